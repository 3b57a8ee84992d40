#pragma once

#include "bus/BusPublisher.h"
#include "nats/NatsConnection.h"
#include "nats/NatsInbox.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

namespace tivra_bus {

/// Publishes onto JetStream. A publish is a request whose answer is the acknowledgement; the client library's
/// own asynchronous publishing isn't used, since it has no end for a lost answer and refuses under load.
class NatsPublisher : public BusPublisher {
public:
    /// The connection has to stay. @throws BusError
    NatsPublisher(const NatsConnection& connection, std::chrono::milliseconds patience);
    void prepare(const BusLayout& layout) override;
    [[nodiscard]] StreamEnd endOf(unsigned partition) override;
    void sendBatch(unsigned partition, std::string_view batch, std::uint64_t expected,
                   SendTicket ticket) override;
    void findLast(int source, std::string_view symbol, SendTicket ticket) override;
    void sendLast(int source, std::string_view symbol, std::string_view message, std::uint64_t expected,
                  SendTicket ticket) override;
    void sendStatus(int source, std::string_view message) override;
    void sendLive(int source, std::string_view symbol, std::string_view record) override;
    void flush() override;
    [[nodiscard]] bool awaitAnswer(unsigned partition, std::chrono::milliseconds longest) override;
    [[nodiscard]] std::uint64_t storeDictionary(const std::string& text) override;
    [[nodiscard]] bool isConnected() const override { return m_connection.isConnected(); }
    [[nodiscard]] std::size_t maxMessage() const override;

private:
    const NatsConnection& m_connection;
    const std::chrono::milliseconds m_patience;
    std::vector<std::unique_ptr<NatsInbox>> m_batches; ///< by partition, of which each is a stream
    NatsInbox m_last;
    std::uint64_t m_losses = 0; ///< of the connection, as the last flush() has seen them
};

} // namespace tivra_bus
