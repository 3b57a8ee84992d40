#include "kafka/KafkaFollower.h"

#include "bus/BusError.h"
#include "bus/startThread.h"
#include "kafka/KafkaNames.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace tivra_bus {

namespace {

/// How long a thread that nothing comes for takes to notice that it is over.
constexpr int kLookMilliseconds = 200;

} // namespace

class KafkaFollower::Consumer : public BusConsumer {
public:
    Consumer(std::shared_ptr<Following> following, std::uint64_t behind)
        : m_following(std::move(following)), m_behind(behind) {}
    ~Consumer() override { m_following->isOver = true; }

    [[nodiscard]] std::uint64_t behind() const override { return m_behind; }

private:
    const std::shared_ptr<Following> m_following;
    const std::uint64_t m_behind;
};

KafkaFollower::KafkaFollower(const KafkaAddress& address)
    : m_client(KafkaClient::Role::Follower, address,
               {{{"enable.auto.commit", "false"},
                 {"enable.auto.offset.store", "false"},
                 // What the topic has dropped meanwhile shows by the offsets.
                 {"auto.offset.reset", "earliest"},
                 {"queued.max.messages.kbytes", "8192"},
                 {"fetch.wait.max.ms", "100"}},
                nullptr}) {
    m_topic = rd_kafka_topic_new(m_client.get(), kTickTopic, nullptr);
    if (m_topic == nullptr)
        m_client.check(rd_kafka_last_error(), std::string("the topic ") + kTickTopic);
}

KafkaFollower::~KafkaFollower() {
    for (const auto& [partition, each] : m_threads)
        if (each.following)
            each.following->isOver = true;
    for (auto& [partition, each] : m_threads)
        if (each.thread.joinable())
            each.thread.join();
    rd_kafka_topic_destroy(m_topic);
}

std::unique_ptr<BusConsumer> KafkaFollower::follow(unsigned partition, std::int64_t offset,
                                                   std::uint64_t behind, BusSource::OnMessage onMessage) {
    Thread& present = m_threads[partition];
    if (present.following)
        present.following->isOver = true;
    // The caller is the one whom the thread before may be waiting for.
    const auto before = std::make_shared<std::thread>(std::move(present.thread));
    auto following = std::make_shared<Following>();
    following->partition = partition;
    following->offset = offset;
    following->onMessage = std::move(onMessage);
    try {
        present.thread = startThread(fmt::format("tivra-bus-{}", partition), [this, following, before] {
            if (before->joinable())
                before->join();
            if (!following->isOver)
                run(*following);
        });
    } catch (const BusError&) {
        present.thread = std::move(*before);
        throw;
    }
    present.following = following;
    return std::make_unique<Consumer>(std::move(following), behind);
}

void KafkaFollower::run(Following& following) const {
    const auto partition = static_cast<std::int32_t>(following.partition);
    // Without a sign of life it is started again.
    if (rd_kafka_consume_start(m_topic, partition, following.offset) != 0)
        return;
    while (!following.isOver) {
        const KafkaMessage message(rd_kafka_consume(m_topic, partition, kLookMilliseconds));
        rd_kafka_poll(m_client.get(), 0);
        if (message && message->err == RD_KAFKA_RESP_ERR_NO_ERROR)
            hand(following, *message);
        else if (!message || message->err == RD_KAFKA_RESP_ERR__PARTITION_EOF)
            following.onMessage({});
    }
    rd_kafka_consume_stop(m_topic, partition);
}

void KafkaFollower::hand(Following& following, const rd_kafka_message_t& message) const {
    StreamMessage handed;
    handed.position = static_cast<std::uint64_t>(message.offset) + 1;
    handed.order = ++following.order;
    std::int64_t first = 0;
    std::int64_t end = 0;
    if (rd_kafka_get_watermark_offsets(m_client.get(), kTickTopic, message.partition, &first, &end) ==
        RD_KAFKA_RESP_ERR_NO_ERROR)
        handed.behind = static_cast<std::uint64_t>(std::max<std::int64_t>(end - message.offset - 1, 0));
    handed.bytes.assign(static_cast<const char*>(message.payload), message.len);
    following.onMessage(std::move(handed));
}

} // namespace tivra_bus
