#pragma once

#include "kafka/KafkaClient.h"
#include "reader/BusSource.h"

#include <tp/Mutex.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <thread>

namespace tivra_bus {

/// Reads partitions of the topic of batches from an offset on, outside any consumer group, each on a thread
/// of its own: one that waits for the reader to have room holds up no other.
/// @thread one at a time
class KafkaFollower {
public:
    /// @throws BusError for a property that the client library refuses
    explicit KafkaFollower(const KafkaAddress& address);
    /// Nobody may have its consumers wait any more.
    ~KafkaFollower();
    KafkaFollower(const KafkaFollower&) = delete;
    KafkaFollower& operator=(const KafkaFollower&) = delete;

    /// Ends the one that was there. @param behind  messages that the partition has from the offset on
    [[nodiscard]] std::unique_ptr<BusConsumer> follow(unsigned partition, std::int64_t offset,
                                                      std::uint64_t behind, BusSource::OnMessage onMessage);

private:
    /// What a consumer and its thread share.
    struct Following {
        unsigned partition = 0;
        std::int64_t offset = 0;
        BusSource::OnMessage onMessage;
        std::uint64_t order = 0;
        std::atomic<bool> isOver{false};
    };
    struct Thread {
        std::shared_ptr<Following> following;
        std::thread thread;
    };
    class Consumer;

    void run(Following& following) const;
    void hand(Following& following, const rd_kafka_message_t& message) const;

    KafkaClient m_client;
    rd_kafka_topic_t* m_topic = nullptr;
    std::map<unsigned, Thread> m_threads; ///< by partition; each waits for the one before it
};

} // namespace tivra_bus
