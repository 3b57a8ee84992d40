#include "kafka/KafkaReader.h"

#include "bus/BusError.h"
#include "kafka/KafkaNames.h"

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
                 {"group.id", kReaderGroup},
                 {"fetch.wait.max.ms", "50"}},
                nullptr}) {}

KafkaReader::Extent KafkaReader::extentOf(const std::string& topic, unsigned partition) {
    const std::string attempt = fmt::format("the end of partition {} of {}", partition, topic);
    Extent extent;
    // The first before the end: what is dropped between the answers leaves them in order.
    extent.first = m_client.offsetAt(topic, partition, RD_KAFKA_OFFSET_BEGINNING, attempt);
    extent.end = m_client.offsetAt(topic, partition, RD_KAFKA_OFFSET_END, attempt);
    return extent;
}

int KafkaReader::partitionsOf(const std::string& topic) {
    const rd_kafka_metadata_t* raw = nullptr;
    const rd_kafka_resp_err_t error =
        rd_kafka_metadata(m_client.get(), 1, nullptr, &raw, m_client.patience());
    {
        // What stands behind an error is told to who polls; no messages come, since nothing is assigned.
        const tp::MutexLock lock(m_mutex);
        const KafkaMessage none(rd_kafka_consumer_poll(m_client.get(), 0));
    }
    m_client.check(error, "its topics");
    const KafkaMetadata metadata(raw);
    for (int i = 0; i < raw->topic_cnt; ++i)
        if (topic == raw->topics[i].topic && raw->topics[i].err == RD_KAFKA_RESP_ERR_NO_ERROR)
            return raw->topics[i].partition_cnt;
    return 0;
}

std::optional<std::int64_t> KafkaReader::offsetAt(const std::string& topic, unsigned partition,
                                                  std::chrono::system_clock::time_point time) {
    const std::int64_t offset = m_client.offsetAt(
        topic, partition,
        std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count(),
        fmt::format("an offset of partition {} of {}", partition, topic));
    return offset >= 0 ? std::optional(offset) : std::nullopt;
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
