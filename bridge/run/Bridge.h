#pragma once

#include "bus/BusPublisher.h"
#include "bus/LeaseTable.h"
#include "run/LastValuesWriter.h"
#include "run/PartitionWriter.h"
#include "run/WriterCounters.h"
#include "run/WriterOptions.h"
#include "share/LeaseBook.h"

#include <feed/Feed.h>

#include <tp/Mutex.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace tivra_bus {

/// What a bridge is to do.
struct BridgeOptions {
    std::string name; ///< of this bridge, which no other has
    std::vector<tivra::Instrument> instruments;
    BusLayout layout;
    WriterOptions writer;
    std::chrono::milliseconds lastEvery{100};
    std::chrono::milliseconds lease{3000};
};

/// How a bridge is doing.
struct BridgeStatus {
    std::vector<unsigned> partitions; ///< whose leases it holds
    std::size_t members = 0;          ///< bridges that are alive, this one included
    bool isConnected = false;         ///< to the engine
    tivra::FeedState feed = tivra::FeedState::Connecting;
    double leaseAge = 0.0; ///< seconds since this bridge has last shown that it is alive
};

/// Holds leases for its share of the partitions and writes those: subscriptions, batches and last values of
/// each.
/// @thread any
class Bridge {
public:
    using Log = std::function<void(const std::string& line)>;

    /// Everything that it is given has to stay. @throws BusError, tivra::Error
    Bridge(BridgeOptions options, tivra::Feed& feed, BusPublisher& publisher, LeaseTable& leases, Log log);
    /// Gives its leases back.
    ~Bridge();
    Bridge(const Bridge&) = delete;
    Bridge& operator=(const Bridge&) = delete;

    [[nodiscard]] BridgeStatus status() const;
    [[nodiscard]] const WriterCounters& counters() const { return m_counters; }

private:
    using Clock = std::chrono::steady_clock;

    /// A partition whose lease is held. Of the thread that manages, but for the writers.
    struct Tenure {
        std::shared_ptr<PartitionWriter> writer;
        std::shared_ptr<LastValuesWriter> lastValues;
        tivra::SubscriptionGroup group;
    };

    void send();
    void manage();
    /// One round over the leases. @throws BusError
    void manageLeases();
    void renew();
    void take(unsigned partition);
    void release(unsigned partition);
    void drop(unsigned partition, const char* why);
    void look();
    void sendStatus();
    [[nodiscard]] std::set<unsigned> held() const;

    const BridgeOptions m_options;
    tivra::Feed& m_feed;
    BusPublisher& m_publisher;
    LeaseTable& m_table;
    const Log m_log;
    std::vector<std::vector<tivra::Instrument>> m_instruments; ///< by partition
    WriterOptions m_writerOptions;
    WriterCounters m_counters;
    LeaseBook m_book;
    std::map<unsigned, Tenure> m_tenures; ///< of the thread that manages
    Clock::time_point m_nextRenewal{};
    Clock::time_point m_nextStatus{};
    std::string m_lastStatus;
    std::string m_statusSince;

    mutable tp::Mutex m_mutex{tp::LockRank{5, "bridge"}};
    /// What the thread that sends goes over.
    std::map<unsigned, std::pair<std::shared_ptr<PartitionWriter>, std::shared_ptr<LastValuesWriter>>>
        m_writers TP_GUARDED_BY(m_mutex);
    std::size_t m_members TP_GUARDED_BY(m_mutex) = 1;
    Clock::time_point m_renewed TP_GUARDED_BY(m_mutex) = Clock::now();
    bool m_isEnding TP_GUARDED_BY(m_mutex) = false;
    tp::ConditionVariable m_ending;

    std::thread m_manager;
    std::thread m_sender;
};

} // namespace tivra_bus
