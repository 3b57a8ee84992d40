#pragma once

#include "bus/BusPublisher.h"
#include "kafka/KafkaReader.h"
#include "kafka/KafkaSends.h"

#include <tp/Mutex.h>

#include <atomic>
#include <map>
#include <memory>
#include <string>

namespace tivra_bus {

/// Publishes onto Kafka. A position is the offset after a message, so that the first one's is 1.
///
/// A broker can't refuse a batch that doesn't come directly after the expected one; but the offset that it
/// gets says whether it does. Where it doesn't, another writer has been there, or the broker has lost what it
/// had acknowledged: the batch is a conflict, and endOf() says who may go on.
class KafkaPublisher : public BusPublisher {
public:
    /// @param writer  of this process, which no other has. @throws BusError
    KafkaPublisher(const KafkaAddress& address, std::string writer);
    ~KafkaPublisher() override;

    void prepare(const BusLayout& layout) override;
    /// StreamEnd::epoch is the highest among the last batches, of which one of an old writer may be the last.
    /// It is higher than that of any when nobody may go on: two have written in one epoch, or the broker has
    /// gone back behind what it had acknowledged.
    [[nodiscard]] StreamEnd endOf(unsigned partition) override;
    void sendBatch(unsigned partition, std::string_view batch, std::uint64_t expected,
                   SendTicket ticket) override;
    /// Finds none: sendLast() replaces whatever is there, since Kafka knows no condition.
    void findLast(int source, std::string_view symbol, SendTicket ticket) override;
    void sendLast(int source, std::string_view symbol, std::string_view message, std::uint64_t expected,
                  SendTicket ticket) override;
    void sendStatus(int source, std::string_view message) override;
    /// Does nothing: everything that is sent is stored.
    void sendLive(int source, std::string_view symbol, std::string_view record) override;
    void flush() override {}
    [[nodiscard]] std::uint64_t storeDictionary(const std::string& text) override;
    [[nodiscard]] bool isConnected() const override { return m_sends.client()->isConnected(); }
    [[nodiscard]] std::size_t maxMessage() const override { return m_maxMessage; }

private:
    /// Notes that the broker has gone back.
    void rolledBack(unsigned partition) TP_EXCLUDES(m_mutex);

    const std::string m_writer;
    KafkaReader m_reader;
    std::atomic<unsigned> m_partitions{0};
    std::atomic<std::size_t> m_maxMessage{1U << 20};
    tp::Mutex m_mutex;
    std::map<unsigned, bool> m_isRolledBack TP_GUARDED_BY(m_mutex);
    KafkaSends m_sends; ///< last, so that its completions end first
};

} // namespace tivra_bus
