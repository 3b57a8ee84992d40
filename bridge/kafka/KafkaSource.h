#pragma once

#include "kafka/KafkaFollower.h"
#include "kafka/KafkaLastValues.h"
#include "kafka/KafkaReader.h"
#include "kafka/KafkaStatus.h"
#include "reader/BusSource.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace tivra_bus {

/// Reads what bridges have published onto Kafka. A position is the offset of a message and one.
class KafkaSource : public BusSource {
public:
    /// Looks for the topics. @throws BusError
    explicit KafkaSource(const KafkaAddress& address);

    [[nodiscard]] std::string layout() override;
    [[nodiscard]] std::string dictionary() override;
    [[nodiscard]] std::vector<std::optional<std::string>>
    lastValues(const std::vector<tivra::Instrument>& instruments) override;
    [[nodiscard]] std::optional<std::string> status(int source) override;
    void followStatus(OnStatus onStatus) override;
    [[nodiscard]] StreamSpan spanOf(unsigned partition) override;
    [[nodiscard]] std::unique_ptr<BusConsumer> follow(unsigned partition, const StreamStart& start,
                                                      OnMessage onMessage) override;
    [[nodiscard]] bool isConnected() const override { return m_status.isConnected(); }

private:
    KafkaReader m_reader;
    const unsigned m_partitions;
    std::map<unsigned, std::uint64_t> m_epochs; ///< of the last batches, by partition
    KafkaLastValues m_lastValues;
    KafkaStatus m_status;
    KafkaFollower m_follower;
};

} // namespace tivra_bus
