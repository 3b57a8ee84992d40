#pragma once

#include "nats/NatsConnection.h"
#include "reader/BusSource.h"

#include <string>
#include <vector>

namespace tivra_bus {

/// Reads what bridges have published onto JetStream.
class NatsSource : public BusSource {
public:
    /// Connects. @throws BusError
    explicit NatsSource(const NatsAddress& address);
    ~NatsSource() override;

    [[nodiscard]] std::string layout() override;
    [[nodiscard]] std::string dictionary() override;
    [[nodiscard]] std::vector<std::optional<std::string>>
    lastValues(const std::vector<tivra::Instrument>& instruments) override;
    [[nodiscard]] std::optional<std::string> status(int source) override;
    void followStatus(OnStatus onStatus) override;
    [[nodiscard]] StreamSpan spanOf(unsigned partition) override;
    [[nodiscard]] std::unique_ptr<BusConsumer> follow(unsigned partition, const StreamStart& start,
                                                      OnMessage onMessage) override;
    [[nodiscard]] bool isConnected() const override { return m_connection.isConnected(); }

private:
    /// The last message of each subject, by direct gets that are all on their way at once.
    [[nodiscard]] std::vector<std::optional<std::string>>
    lastMessages(const std::string& stream, const std::vector<std::string>& subjects);
    [[nodiscard]] std::optional<std::string> entry(const char* bucket, const char* key);

    const NatsConnection m_connection;
    const std::chrono::milliseconds m_patience;
    NatsSubscription m_status;
};

} // namespace tivra_bus
