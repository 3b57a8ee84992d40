#include "kafka/KafkaReader.h"

#include "bus/BusError.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>

namespace tivra_bus {

namespace {

using Clock = std::chrono::steady_clock;

/// Nothing is assigned any more, whatever happens.
class Assignment {
public:
    Assignment(const KafkaClient& client, const std::string& topic, unsigned partition, std::int64_t from)
        : m_client(client) {
        const KafkaPartitions partitions(rd_kafka_topic_partition_list_new(1));
        rd_kafka_topic_partition_list_add(partitions.get(), topic.c_str(), static_cast<int>(partition))
            ->offset = from;
        client.check(rd_kafka_assign(client.get(), partitions.get()), "reading " + topic);
    }
    ~Assignment() { rd_kafka_assign(m_client.get(), nullptr); }
    Assignment(const Assignment&) = delete;
    Assignment& operator=(const Assignment&) = delete;

private:
    const KafkaClient& m_client;
};

} // namespace

KafkaReader::KafkaReader(const KafkaAddress& address)
    : m_client(KafkaClient::Role::Consumer, address,
               {{{"enable.auto.commit", "false"},
                 {"enable.auto.offset.store", "false"},
                 {"enable.partition.eof", "true"},
                 {"auto.offset.reset", "error"},
                 // A library that reads without a group wants the name of one all the same.
                 {"group.id", "tivra-bridge-reader"},
                 {"fetch.wait.max.ms", "50"}},
                nullptr,
                {}}) {}

KafkaReader::Extent KafkaReader::extentOf(const std::string& topic, unsigned partition) {
    Extent extent;
    m_client.check(rd_kafka_query_watermark_offsets(m_client.get(), topic.c_str(),
                                                    static_cast<int>(partition), &extent.first, &extent.end,
                                                    m_client.patience()),
                   fmt::format("the end of partition {} of {}", partition, topic));
    return extent;
}

int KafkaReader::partitionsOf(const std::string& topic) {
    const rd_kafka_metadata_t* raw = nullptr;
    m_client.check(rd_kafka_metadata(m_client.get(), 1, nullptr, &raw, m_client.patience()), "its topics");
    const KafkaMetadata metadata(raw);
    for (int i = 0; i < raw->topic_cnt; ++i)
        if (topic == raw->topics[i].topic && raw->topics[i].err == RD_KAFKA_RESP_ERR_NO_ERROR)
            return raw->topics[i].partition_cnt;
    return 0;
}

std::optional<std::int64_t> KafkaReader::offsetAt(const std::string& topic, unsigned partition,
                                                  std::chrono::system_clock::time_point time) {
    const KafkaPartitions partitions(rd_kafka_topic_partition_list_new(1));
    rd_kafka_topic_partition_t* const entry =
        rd_kafka_topic_partition_list_add(partitions.get(), topic.c_str(), static_cast<int>(partition));
    entry->offset = std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
    const std::string attempt = fmt::format("an offset of partition {} of {}", partition, topic);
    m_client.check(rd_kafka_offsets_for_times(m_client.get(), partitions.get(), m_client.patience()),
                   attempt);
    m_client.check(entry->err, attempt);
    return entry->offset >= 0 ? std::optional(entry->offset) : std::nullopt;
}

KafkaReader::Extent KafkaReader::readLast(const std::string& topic, unsigned partition, std::int64_t most,
                                          const std::function<void(const rd_kafka_message_t&)>& take) {
    const Extent extent = extentOf(topic, partition);
    if (extent.end > extent.first)
        read(topic, partition, std::max(extent.first, extent.end - most), extent.end, take);
    return extent;
}

void KafkaReader::read(const std::string& topic, unsigned partition, std::int64_t from, std::int64_t end,
                       const std::function<void(const rd_kafka_message_t&)>& take) {
    const tp::MutexLock lock(m_mutex);
    const Assignment assignment(m_client, topic, partition, from);
    const std::string attempt = fmt::format("reading the end of partition {} of {}", partition, topic);
    const std::chrono::milliseconds patience(m_client.patience());
    Clock::time_point deadline = Clock::now() + patience;
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        const KafkaMessage message(
            rd_kafka_consumer_poll(m_client.get(), static_cast<int>(std::max<std::int64_t>(left, 0))));
        if (!message)
            m_client.check(RD_KAFKA_RESP_ERR__TIMED_OUT, attempt);
        // Of an assignment before.
        if (message->partition != static_cast<int>(partition) || message->rkt == nullptr ||
            topic != rd_kafka_topic_name(message->rkt))
            continue;
        if (message->err == RD_KAFKA_RESP_ERR__PARTITION_EOF)
            return;
        m_client.check(message->err, attempt);
        // What was there at the end before may have come in one piece with more.
        if (message->offset < end)
            take(*message);
        deadline = Clock::now() + patience;
        // Compacting may have taken those at the end.
        if (message->offset + 1 >= end)
            return;
    }
}

} // namespace tivra_bus
