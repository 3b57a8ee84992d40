#include "kafka/KafkaStatus.h"

#include "bus/BusError.h"
#include "bus/startThread.h"
#include "kafka/KafkaNames.h"

#include <chrono>
#include <string>
#include <utility>

namespace tivra_bus {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kStatusLookMilliseconds = 200;
constexpr std::chrono::seconds kAskEvery{1};

} // namespace

KafkaStatus::KafkaStatus(const KafkaAddress& address)
    : m_client(KafkaClient::Role::Consumer, address,
               {{{"enable.auto.commit", "false"},
                 {"enable.auto.offset.store", "false"},
                 {"auto.offset.reset", "latest"},
                 {"group.id", kReaderGroup},
                 {"fetch.wait.max.ms", "500"}},
                nullptr}) {
    const KafkaPartitions partitions(rd_kafka_topic_partition_list_new(1));
    rd_kafka_topic_partition_list_add(partitions.get(), kStatusTopic, 0)->offset = RD_KAFKA_OFFSET_END;
    m_client.check(rd_kafka_assign(m_client.get(), partitions.get()), std::string("reading ") + kStatusTopic);
    m_client.answered(); // until it is found otherwise
    m_thread = startThread("tivra-bus-state", [this] { run(); });
}

KafkaStatus::~KafkaStatus() {
    m_isEnding = true;
    m_thread.join();
}

void KafkaStatus::follow(BusSource::OnStatus onStatus) {
    const tp::MutexLock lock(m_mutex);
    m_onStatus = std::move(onStatus);
}

void KafkaStatus::run() {
    Clock::time_point askAt = Clock::now() + kAskEvery;
    while (!m_isEnding) {
        const KafkaMessage message(rd_kafka_consumer_poll(m_client.get(), kStatusLookMilliseconds));
        if (message && message->err == RD_KAFKA_RESP_ERR_NO_ERROR && message->payload != nullptr)
            hand({static_cast<const char*>(message->payload), message->len});
        if (Clock::now() < askAt)
            continue;
        ask();
        askAt = Clock::now() + kAskEvery;
    }
}

void KafkaStatus::hand(std::string&& status) {
    BusSource::OnStatus onStatus;
    {
        const tp::MutexLock lock(m_mutex);
        onStatus = m_onStatus;
    }
    if (onStatus)
        onStatus(std::move(status));
}

void KafkaStatus::ask() {
    try {
        (void)m_client.offsetAt(kStatusTopic, 0, RD_KAFKA_OFFSET_END, "the state of sources");
        m_client.answered();
    } catch (const BusError&) {
        m_client.lost();
    }
}

} // namespace tivra_bus
