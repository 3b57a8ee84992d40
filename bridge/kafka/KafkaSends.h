#pragma once

#include "bus/SendResult.h"
#include "kafka/KafkaClient.h"

#include <tp/Mutex.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace tivra_bus {

/// A message of a topic.
struct KafkaSend {
    const char* topic = nullptr;
    unsigned partition = 0;
    std::string_view key;
    std::string_view bytes;
    std::string_view replaces{}; ///< which revision of an entry, of the table of leases alone
};

/// Sends messages and ends each once, with the offset that it got or the cause why it has none. What is on
/// its way is bounded by the client library's queue; what is beyond ends at once, as failed. A producer that
/// can't go on is replaced.
/// @thread any; completions run on a thread of its own
class KafkaSends {
public:
    using Completion = std::function<void(const SendResult&)>;

    static constexpr std::chrono::milliseconds kSendWithin{10'000};

    /// @throws BusError for a property that the client library refuses
    /// @param sendWithin  a message that isn't acknowledged so long ends as failed
    KafkaSends(const KafkaAddress& address, std::string writer,
               std::chrono::milliseconds sendWithin = kSendWithin);
    /// Ends what is still on its way as failed.
    ~KafkaSends();
    KafkaSends(const KafkaSends&) = delete;
    KafkaSends& operator=(const KafkaSends&) = delete;

    /// SendResult::position is the offset after the message's own.
    void send(const KafkaSend& send, Completion done);
    /// Ends what isn't sent, on the thread of completions.
    void end(Completion done, SendResult result);
    /// For what isn't sent itself.
    [[nodiscard]] std::shared_ptr<KafkaClient> client() const;

private:
    /// Goes with a message as long as it is on its way.
    struct Flight {
        Completion done;
    };
    struct Ended {
        Completion done;
        SendResult result;
    };

    static void onDelivery(rd_kafka_t*, const rd_kafka_message_t* message, void* self);
    [[nodiscard]] std::shared_ptr<KafkaClient> makeClient() const;
    void poll();
    /// Puts another producer in the place of one that can't go on.
    void replace();
    /// Lets go of those that nobody sends with and that have ended all they had: what is still with a
    /// producer when it goes is never ended.
    void endRetired();
    void callEnded();
    /// Asks whether a server is back.
    void lookForServer(KafkaClient& client);

    const KafkaAddress m_address;
    const std::string m_writer;
    const std::chrono::milliseconds m_sendWithin;
    mutable tp::Mutex m_mutex;
    std::shared_ptr<KafkaClient> m_client TP_GUARDED_BY(m_mutex);
    std::vector<Ended> m_ended TP_GUARDED_BY(m_mutex);
    std::vector<std::shared_ptr<KafkaClient>> m_retired; ///< of the thread that polls
    std::atomic<bool> m_isEnding{false};
    std::thread m_poller;
};

} // namespace tivra_bus
