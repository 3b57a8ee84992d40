#pragma once

#include "kafka/KafkaClient.h"
#include "kafka/KafkaGroupWatch.h"
#include "share/PartitionShare.h"

#include <tp/Mutex.h>

#include <atomic>
#include <cstdint>
#include <set>
#include <string>
#include <thread>

namespace tivra_bus {

/// Shares partitions as the members of a consumer group do, of which each writes what it is assigned and
/// consumes nothing. The broker takes a member for dead that it hasn't heard for 6 seconds, and a partition
/// moves only when its writer has let it go.
///
/// The epoch of a writer stands in the group's committed offset of its partition. The broker takes it from
/// present members alone, so that two who believe they have a partition never get the same epoch from here.
class KafkaShare : public PartitionShare {
public:
    /// Joins the group with the first decide(), when there are topics. @throws BusError
    /// @param name  of this bridge
    KafkaShare(const KafkaAddress& address, std::string name, unsigned partitions);
    ~KafkaShare() override;

    /// One that hasn't got its hubs keeps what it has.
    [[nodiscard]] LeaseDecision decide(const std::set<unsigned>& held, bool isReady) override;
    /// The client library shows it by itself.
    void renew(bool) override {}
    [[nodiscard]] Before before(unsigned partition) override;
    [[nodiscard]] bool claim(unsigned partition, std::uint64_t epoch) override;
    void giveBack(unsigned partition) override;
    void leave() override;
    [[nodiscard]] std::string end() const override { return {}; }
    [[nodiscard]] std::size_t members() const override { return m_members.load(); }
    [[nodiscard]] Clock::time_point confirmed() const override { return m_group.heard(); }

private:
    void join();
    void poll();
    void rebalance(rd_kafka_resp_err_t event, rd_kafka_topic_partition_list_t* partitions);
    void assigned(rd_kafka_topic_partition_list_t* partitions) TP_EXCLUDES(m_mutex);
    void revoked(rd_kafka_topic_partition_list_t* partitions) TP_EXCLUDES(m_mutex);
    /// Whether any of them is still written.
    [[nodiscard]] bool isClaimed(const std::set<unsigned>& partitions) const TP_REQUIRES(m_mutex);
    /// Has the group keep an epoch. @return whether this is a present member. @throws BusError
    [[nodiscard]] bool commit(unsigned partition, std::uint64_t epoch);
    /// A partition is assigned and nobody wants it back.
    [[nodiscard]] bool isToBeWritten(unsigned partition) const TP_EXCLUDES(m_mutex);
    void countMembers();

    const unsigned m_partitions;
    const std::string m_name;
    Clock::time_point m_nextCount{};
    std::atomic<std::size_t> m_members{1};
    std::atomic<bool> m_isEnding{false};

    mutable tp::Mutex m_mutex;
    tp::ConditionVariable m_changed;
    std::set<unsigned> m_assigned TP_GUARDED_BY(m_mutex);
    std::set<unsigned> m_wanted TP_GUARDED_BY(m_mutex);  ///< that the group wants back
    std::set<unsigned> m_claimed TP_GUARDED_BY(m_mutex); ///< that this bridge writes

    KafkaGroupWatch m_group;
    KafkaClient m_client;
    std::thread m_poller;
};

} // namespace tivra_bus
