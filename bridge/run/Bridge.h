#pragma once

#include "bus/BusPublisher.h"
#include "bus/RepeatedTrouble.h"
#include "run/HubDictionary.h"
#include "run/LastValuesWriter.h"
#include "run/PartitionWriter.h"
#include "run/SendBell.h"
#include "run/WriterCounters.h"
#include "run/WriterOptions.h"
#include "share/PartitionShare.h"

#include <feed/Feed.h>

#include <tp/Mutex.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
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
};

/// How a bridge is doing.
struct BridgeStatus {
    std::vector<unsigned> partitions; ///< whose leases it holds
    std::size_t members = 0;          ///< bridges that are alive, this one included
    bool isConnected = false;         ///< to the engine
    tivra::FeedState feed = tivra::FeedState::Connecting;
    double leaseAge = 0.0;    ///< seconds since this bridge has last shown that it is alive
    std::size_t troubled = 0; ///< partitions that the engine doesn't take or doesn't answer for
    std::string end;          ///< why it can't go on, once it can't
};

/// Holds leases for its share of the partitions and writes those: subscriptions, batches and last values of
/// each.
/// @thread any
class Bridge {
public:
    using Log = std::function<void(const std::string& line)>;

    /// Everything that it is given has to stay. @throws BusError, tivra::Error
    Bridge(BridgeOptions options, tivra::Feed& feed, BusPublisher& publisher, PartitionShare& share, Log log);
    /// Gives its leases back.
    ~Bridge();
    Bridge(const Bridge&) = delete;
    Bridge& operator=(const Bridge&) = delete;

    [[nodiscard]] BridgeStatus status() const;
    [[nodiscard]] const WriterCounters& counters() const { return *m_counters; }

private:
    using Clock = std::chrono::steady_clock;

    /// A partition whose lease is held. Of the thread that manages, but for the writers.
    struct Tenure {
        std::shared_ptr<PartitionWriter> writer;
        std::shared_ptr<LastValuesWriter> lastValues;
        tivra::SubscriptionGroup group;
        std::string trouble; ///< of the writer, as it was logged last
    };

    void send();
    /// Until there may be something to send.
    /// @param heldUp  a partition of which a batch waits for an acknowledgement
    void awaitWork(std::optional<unsigned> heldUp);
    void manage();
    /// One round over what is held and over the leases.
    void manageOnce();
    /// One round over the leases. @throws BusError
    void manageLeases();
    /// Shows that this bridge is alive, when that is due. Called between any two steps that may wait.
    void renew();
    void renewIfPossible();
    [[nodiscard]] bool isEnding() const TP_EXCLUDES(m_mutex);
    [[nodiscard]] bool isReady();
    /// Does it, and notes what it throws as the partition's trouble. @return whether it hasn't thrown
    bool attempt(unsigned partition, const std::function<void()>& action);
    void noteTrouble(unsigned partition, const std::string& text);
    void forgetTroubles(const LeaseDecision& decision);
    void countTroubles();
    void take(unsigned partition);
    void release(const std::vector<unsigned>& partitions);
    /// @return whether the engine has answered
    bool giveBack(unsigned partition);
    /// Waits until all that was taken is stored, or the time is over.
    void drain(const std::vector<unsigned>& partitions);
    void drop(unsigned partition, const std::string& why);
    void look();
    void shareRoom();
    void sendStatus();
    void updateDictionary();
    void endAs(const std::string& why);
    void end();
    /// The thread that sends ends then, too.
    void setEnded() TP_EXCLUDES(m_mutex);
    [[nodiscard]] std::set<unsigned> held() const;

    const BridgeOptions m_options;
    tivra::Feed& m_feed;
    BusPublisher& m_publisher;
    PartitionShare& m_share;
    const Log m_log;
    std::vector<std::vector<tivra::Instrument>> m_instruments; ///< by partition
    WriterOptions m_writerOptions;
    const std::shared_ptr<WriterCounters> m_counters = std::make_shared<WriterCounters>();
    const std::shared_ptr<FieldNames> m_names = std::make_shared<FieldNames>();
    const std::shared_ptr<SendBell> m_bell = std::make_shared<SendBell>();

    // Of the thread that manages.
    HubDictionary m_dictionary;
    std::uint64_t m_dictionaryRevision = 0;
    std::optional<std::string> m_unstored; ///< the hubs' present dictionary, until the engine has it
    RepeatedTrouble m_dictionaryTrouble;
    std::map<unsigned, Tenure> m_tenures;
    std::map<unsigned, RepeatedTrouble> m_troubles; ///< by partition
    /// Bridges whose engine is back have to meet again before a lease is over.
    RepeatedTrouble m_engineTrouble{std::chrono::seconds(1)};
    bool m_answersAtEnd = true; ///< the engine, when leases were given back last
    Clock::time_point m_nextLeases{};
    Clock::time_point m_nextStatus{};
    Clock::time_point m_established = Clock::now(); ///< when the hubs were all there last
    std::string m_lastStatus;
    std::string m_statusSince;

    mutable tp::Mutex m_mutex{tp::LockRank{5, "bridge"}};
    /// What the thread that sends goes over.
    std::map<unsigned, std::pair<std::shared_ptr<PartitionWriter>, std::shared_ptr<LastValuesWriter>>>
        m_writers TP_GUARDED_BY(m_mutex);
    std::size_t m_members TP_GUARDED_BY(m_mutex) = 1;
    std::size_t m_troubled TP_GUARDED_BY(m_mutex) = 0;
    Clock::time_point m_renewed TP_GUARDED_BY(m_mutex) = Clock::now();
    std::string m_end TP_GUARDED_BY(m_mutex);
    bool m_isEnding TP_GUARDED_BY(m_mutex) = false;
    bool m_hasEnded TP_GUARDED_BY(m_mutex) = false; ///< the leases are given back
    tp::ConditionVariable m_ending;

    std::thread m_manager;
    std::thread m_sender;
};

} // namespace tivra_bus
