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
    /// Waits until no callback runs.
    ~NatsPublisher() override;

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
    [[nodiscard]] std::uint64_t storeDictionary(const std::string& text) override;
    [[nodiscard]] bool isConnected() const override { return m_connection.isConnected(); }
    [[nodiscard]] std::size_t maxMessage() const override;

private:
    static void onAnswer(natsConnection*, natsSubscription*, natsMsg* message, void* self);
    static void onAnswersEnded(void* self);
    /// @param header  null for none
    void send(const std::string& subject, std::string_view bytes, const char* header, std::uint64_t value,
              SendTicket ticket);

    const NatsConnection& m_connection;
    PendingSends m_pending;
    std::string m_inbox; ///< answers come to it, a number added
    NatsSubscription m_answers;

    tp::Mutex m_mutex;
    tp::ConditionVariable m_changed;
    bool m_haveAnswersEnded TP_GUARDED_BY(m_mutex) = false;
};

} // namespace tivra_bus
