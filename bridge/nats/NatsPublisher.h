#pragma once

#include "bus/BusPublisher.h"
#include "nats/NatsConnection.h"
#include "nats/PendingSends.h"

#include <string>

namespace tivra_bus {

/// Publishes onto JetStream. A publish is a request whose answer is the acknowledgement; the client library's
/// own asynchronous publishing isn't used, since it has no end for a lost answer and refuses under load.
class NatsPublisher : public BusPublisher {
public:
    /// The connection has to stay. @throws BusError
    NatsPublisher(const NatsConnection& connection, std::chrono::milliseconds patience);
    ~NatsPublisher() override;

    void prepare(const BusLayout& layout) override;
    [[nodiscard]] StreamEnd endOf(unsigned partition) override;
    void sendBatch(unsigned partition, std::string_view batch, std::uint64_t expected,
                   Completion done) override;
    void sendLast(int source, std::string_view symbol, std::string_view message,
                  std::optional<std::uint64_t> expected, Completion done) override;
    void sendStatus(int source, std::string_view message) override;
    void sendLive(int source, std::string_view symbol, std::string_view record) override;
    void flush() override;
    [[nodiscard]] std::uint64_t storeDictionary(const std::string& text) override;
    [[nodiscard]] bool isConnected() const override { return m_connection.isConnected(); }
    [[nodiscard]] std::size_t maxMessage() const override;

private:
    static void onAnswer(natsConnection*, natsSubscription*, natsMsg* message, void* self);
    void send(const std::string& subject, std::string_view bytes, const char* header,
              const std::string& value, Completion done);

    const NatsConnection& m_connection;
    PendingSends m_pending;
    std::string m_inbox; ///< acknowledgements come to it, "." and a number added
    NatsSubscription m_answers;
};

} // namespace tivra_bus
