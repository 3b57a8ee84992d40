#pragma once

#include "kafka/KafkaClient.h"

#include <tp/Mutex.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace tivra_bus {

/// Reads messages that are stored already, by their offsets, outside any consumer group.
/// @thread any, one after the other
class KafkaReader {
public:
    /// Where a partition's messages begin, and the offset after its last.
    struct Extent {
        std::int64_t first = 0;
        std::int64_t end = 0;
    };

    /// @throws BusError for a property that the client library refuses
    explicit KafkaReader(const KafkaAddress& address);

    /// @throws BusError
    [[nodiscard]] Extent extentOf(const std::string& topic, unsigned partition);
    /// How many partitions a topic has; 0 when there is none of that name. @throws BusError
    [[nodiscard]] int partitionsOf(const std::string& topic) TP_EXCLUDES(m_mutex);
    /// Of the first message of that time or a later one; nothing when there is none. @throws BusError
    [[nodiscard]] std::optional<std::int64_t> offsetAt(const std::string& topic, unsigned partition,
                                                       std::chrono::system_clock::time_point time);
    /// Hands over the last messages of a partition, at most so many, in their order.
    /// @return where the partition ends. @throws BusError, also when they don't come in time
    Extent readLast(const std::string& topic, unsigned partition, std::int64_t most,
                    const std::function<void(const rd_kafka_message_t&)>& take);

    /// Hands over what there is between two offsets, of which the later one is at most the partition's end.
    /// @throws BusError, also when the next doesn't come in time
    void read(const std::string& topic, unsigned partition, std::int64_t from, std::int64_t end,
              const std::function<void(const rd_kafka_message_t&)>& take) TP_EXCLUDES(m_mutex);

private:
    tp::Mutex m_mutex{tp::LockRank{20, "kafka reader"}};
    KafkaClient m_client;
};

} // namespace tivra_bus
