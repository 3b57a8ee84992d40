#include "kafka/KafkaShare.h"

#include "bus/BatchHeader.h"
#include "bus/BusError.h"
#include "bus/JsonReading.h"
#include "bus/startThread.h"
#include "kafka/KafkaNames.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace tivra_bus {

namespace {

using std::chrono::milliseconds;

constexpr int kPollMilliseconds = 100;
constexpr milliseconds kCountEvery{5000};
/// How long a writer may take to let a partition go.
constexpr milliseconds kLetGoWithin{5000};
/// The least that a broker takes by default; one that isn't heard for so long is dead.
constexpr const char* kSessionMilliseconds = "6000";
constexpr const char* kHeartbeatMilliseconds = "500";

/// Brokers may allow less, which the user's properties say then.
KafkaAddress withSession(KafkaAddress address) {
    address.properties.emplace("session.timeout.ms", kSessionMilliseconds);
    address.properties.emplace("heartbeat.interval.ms", kHeartbeatMilliseconds);
    return address;
}

std::set<unsigned> numbersOf(const rd_kafka_topic_partition_list_t* partitions) {
    std::set<unsigned> numbers;
    for (int i = 0; i < partitions->cnt; ++i)
        numbers.insert(static_cast<unsigned>(partitions->elems[i].partition));
    return numbers;
}

} // namespace

KafkaShare::KafkaShare(const KafkaAddress& address, std::string name, unsigned partitions)
    : m_partitions(partitions)
    , m_name(std::move(name))
    , m_client(KafkaClient::Role::Consumer, withSession(address),
               {{{"group.id", kBridgeGroup},
                 {"partition.assignment.strategy", "cooperative-sticky"},
                 {"enable.auto.commit", "false"},
                 {"enable.auto.offset.store", "false"},
                 {"auto.offset.reset", "latest"}},
                nullptr,
                [this](rd_kafka_resp_err_t event, rd_kafka_topic_partition_list_t* list) {
                    rebalance(event, list);
                },
                &m_group}) {}

void KafkaShare::join() {
    const KafkaPartitions topics(rd_kafka_topic_partition_list_new(1));
    rd_kafka_topic_partition_list_add(topics.get(), kTickTopic, RD_KAFKA_PARTITION_UA);
    m_client.check(rd_kafka_subscribe(m_client.get(), topics.get()), "joining the group of bridges");
    m_poller = startThread("tivra-bus-group", [this] { poll(); });
}

KafkaShare::~KafkaShare() {
    leave();
}

void KafkaShare::leave() {
    if (!m_poller.joinable())
        return;
    m_isEnding.store(true);
    m_changed.notifyAll();
    m_poller.join();
    rd_kafka_consumer_close(m_client.get());
}

void KafkaShare::poll() {
    while (!m_isEnding.load()) {
        // What is assigned is paused, so that errors alone come.
        const KafkaMessage message(rd_kafka_consumer_poll(m_client.get(), kPollMilliseconds));
    }
}

void KafkaShare::rebalance(rd_kafka_resp_err_t event, rd_kafka_topic_partition_list_t* partitions) {
    if (event == RD_KAFKA_RESP_ERR__ASSIGN_PARTITIONS)
        assigned(partitions);
    else
        revoked(partitions);
}

void KafkaShare::assigned(rd_kafka_topic_partition_list_t* partitions) {
    for (int i = 0; i < partitions->cnt; ++i)
        partitions->elems[i].offset = RD_KAFKA_OFFSET_END;
    if (rd_kafka_error_t* error = rd_kafka_incremental_assign(m_client.get(), partitions); error != nullptr) {
        // The group has gone on meanwhile: its next assignment comes.
        rd_kafka_error_destroy(error);
        return;
    }
    rd_kafka_pause_partitions(m_client.get(), partitions);
    const tp::MutexLock lock(m_mutex);
    for (const unsigned partition : numbersOf(partitions)) {
        m_assigned.insert(partition);
        m_wanted.erase(partition);
    }
}

bool KafkaShare::isClaimed(const std::set<unsigned>& partitions) const {
    for (const unsigned partition : partitions)
        if (m_claimed.count(partition) != 0)
            return true;
    return false;
}

void KafkaShare::revoked(rd_kafka_topic_partition_list_t* partitions) {
    const std::set<unsigned> numbers = numbersOf(partitions);
    const bool isLost = rd_kafka_assignment_lost(m_client.get()) != 0;
    {
        const tp::MutexLock lock(m_mutex);
        const Clock::time_point deadline = Clock::now() + kLetGoWithin;
        if (!isLost)
            m_wanted.insert(numbers.begin(), numbers.end());
        while (!isLost && isClaimed(numbers) && !m_isEnding.load() && Clock::now() < deadline)
            m_changed.waitFor(m_mutex, milliseconds(kPollMilliseconds));
        for (const unsigned partition : numbers) {
            m_assigned.erase(partition);
            m_wanted.erase(partition);
            m_claimed.erase(partition);
        }
    }
    if (rd_kafka_error_t* error = rd_kafka_incremental_unassign(m_client.get(), partitions); error != nullptr)
        rd_kafka_error_destroy(error);
}

LeaseDecision KafkaShare::decide(const std::set<unsigned>& held, bool) {
    if (!m_poller.joinable())
        join();
    countMembers();
    LeaseDecision decision;
    const tp::MutexLock lock(m_mutex);
    // What the bridge has dropped itself isn't waited for.
    std::erase_if(m_claimed, [&held](unsigned partition) { return held.count(partition) == 0; });
    m_changed.notifyAll();
    for (const unsigned partition : held) {
        if (m_claimed.count(partition) == 0)
            decision.lost.push_back(partition);
        else if (m_wanted.count(partition) != 0)
            decision.release.push_back(partition);
    }
    if (m_group.isForming())
        return decision;
    for (const unsigned partition : m_assigned)
        if (partition < m_partitions && held.count(partition) == 0 && m_wanted.count(partition) == 0)
            decision.take.push_back(partition);
    return decision;
}

PartitionShare::Before KafkaShare::before(unsigned partition) {
    const KafkaPartitions list(rd_kafka_topic_partition_list_new(1));
    rd_kafka_topic_partition_t* entry =
        rd_kafka_topic_partition_list_add(list.get(), kTickTopic, static_cast<int>(partition));
    m_client.check(rd_kafka_committed(m_client.get(), list.get(), m_client.patience()),
                   "the epochs of the group of bridges");
    m_client.check(entry->err, "the epochs of the group of bridges");
    Before before;
    try {
        const JsonReading value({static_cast<const char*>(entry->metadata), entry->metadata_size},
                                "what the group of bridges keeps");
        before.holder = value.text("bridge");
        before.epoch = value.number("epoch", kMostEpoch);
    } catch (const BatchError&) {
        // Nobody was there before, or something else has committed: the stream knows the epoch.
    }
    return before;
}

bool KafkaShare::commit(unsigned partition, std::uint64_t epoch) {
    const std::string text = fmt::format(R"({{"epoch":{},"bridge":"{}"}})", epoch, m_name);
    const KafkaPartitions list(rd_kafka_topic_partition_list_new(1));
    rd_kafka_topic_partition_t* entry =
        rd_kafka_topic_partition_list_add(list.get(), kTickTopic, static_cast<int>(partition));
    entry->offset = 0;                      // the group consumes nothing
    entry->metadata = strdup(text.c_str()); // freed with the list
    entry->metadata_size = text.size();
    const KafkaQueue queue(rd_kafka_queue_new(m_client.get()));
    const std::string attempt = "the epoch in the group of bridges";
    m_client.check(rd_kafka_commit_queue(m_client.get(), list.get(), queue.get(), nullptr, nullptr), attempt);
    const KafkaEvent event(rd_kafka_queue_poll(queue.get(), m_client.patience()));
    const rd_kafka_resp_err_t error =
        event ? rd_kafka_event_error(event.get()) : RD_KAFKA_RESP_ERR__TIMED_OUT;
    switch (error) {
    case RD_KAFKA_RESP_ERR_ILLEGAL_GENERATION:
    case RD_KAFKA_RESP_ERR_UNKNOWN_MEMBER_ID:
    case RD_KAFKA_RESP_ERR_FENCED_INSTANCE_ID:
    case RD_KAFKA_RESP_ERR_REBALANCE_IN_PROGRESS:
        return false; // the group has gone on, which this member hears of itself
    default:
        m_client.check(error, attempt);
        return true;
    }
}

void KafkaShare::countMembers() {
    const Clock::time_point now = Clock::now();
    if (now < m_nextCount)
        return;
    m_nextCount = now + kCountEvery;
    const rd_kafka_group_list* groups = nullptr;
    if (rd_kafka_list_groups(m_client.get(), kBridgeGroup, &groups, m_client.patience()) !=
        RD_KAFKA_RESP_ERR_NO_ERROR)
        return; // a number to be shown, no more
    if (groups->group_cnt == 1)
        m_members.store(static_cast<std::size_t>(std::max(groups->groups[0].member_cnt, 1)));
    rd_kafka_group_list_destroy(groups);
}

bool KafkaShare::isToBeWritten(unsigned partition) const {
    const tp::MutexLock lock(m_mutex);
    return m_assigned.count(partition) != 0 && m_wanted.count(partition) == 0;
}

bool KafkaShare::claim(unsigned partition, std::uint64_t epoch) {
    if (m_group.isForming() || !isToBeWritten(partition) || !commit(partition, epoch))
        return false;
    const tp::MutexLock lock(m_mutex);
    if (m_assigned.count(partition) == 0 || m_wanted.count(partition) != 0)
        return false; // taken away in the meantime
    m_claimed.insert(partition);
    return true;
}

void KafkaShare::giveBack(unsigned partition) {
    {
        const tp::MutexLock lock(m_mutex);
        m_claimed.erase(partition);
    }
    m_changed.notifyAll();
}

} // namespace tivra_bus
