#pragma once

#include "bus/RepeatedTrouble.h"
#include "reader/BusOptions.h"
#include "reader/BusReader.h"
#include "reader/BusSource.h"
#include "reader/Inbox.h"
#include "reader/PartitionReader.h"

#include <tp/Mutex.h>

#include <atomic>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace tivra_bus {

/// What is behind a BusReader: one thread that reads all partitions and calls all handlers.
class ReaderThread : public std::enable_shared_from_this<ReaderThread> {
public:
    /// Looks how the engine is laid out. @throws BusError
    ReaderThread(tivra::BusOptions options, std::unique_ptr<BusSource> source);
    ~ReaderThread();
    ReaderThread(const ReaderThread&) = delete;
    ReaderThread& operator=(const ReaderThread&) = delete;

    /// Once, after it was made.
    void begin();
    /// @throws tivra::Error (Closed)
    [[nodiscard]] std::shared_ptr<SubscriptionState>
    subscribe(const std::vector<tivra::Instrument>& instruments, tivra::BusHandlers handlers,
              std::vector<std::string> fields);
    /// Waits until the thread has done its last, unless it is called on it.
    void close() TP_EXCLUDES(m_mutex);

    [[nodiscard]] tivra::FeedState state() const;
    [[nodiscard]] unsigned partitions() const { return m_partitionCount; }
    [[nodiscard]] std::optional<tivra::Value::Type> typeOf(const std::string& field) const;
    [[nodiscard]] tivra::BusStatistics statistics() const;

private:
    using Clock = std::chrono::steady_clock;

    static constexpr std::size_t kFewSubscriptions = 64;

    /// How a source is, by what the bridges say of it.
    struct Source {
        std::string state = "up";
        Clock::time_point heard{}; ///< or first asked for
        std::string staleCause;    ///< that its symbols were given
    };

    void run();
    void work(Clock::time_point now);
    void takeSubscriptions();
    void takeItem(const InboxItem& item, Clock::time_point now);
    void takeStatus(const std::string& text, Clock::time_point now);
    void followConnection();
    void showStale(Clock::time_point now);
    /// Asks for all that is wanted of it. @throws BusError
    void askEngine(Clock::time_point now);
    void askLastValues(std::vector<SymbolTrack*>& tracks, Clock::time_point now);
    void askStatus(Clock::time_point now);
    /// Starts the reading of partitions that want it. @throws BusError
    void startPartitions(Clock::time_point now);
    [[nodiscard]] const FieldTypes& typesOf(std::uint64_t revision);
    void takeDictionary(const std::string& text);
    void report(tivra::BusProblem&& problem);

    const tivra::BusOptions m_options;
    const std::shared_ptr<Inbox> m_inbox;
    const std::unique_ptr<BusSource> m_source;
    ReaderCounters m_counters;
    unsigned m_partitionCount = 0;

    // Of the thread.
    PartitionReader::Surroundings m_around;
    std::map<unsigned, std::unique_ptr<PartitionReader>> m_partitions;
    std::map<int, Source> m_sources;
    FieldTypes m_types;
    std::uint64_t m_typesRevision = 0;
    Clock::time_point m_typesAfter{};
    std::uint64_t m_closings = 0; ///< of subscriptions whose symbols have been dropped
    bool m_wasConnected = true;
    bool m_followsStatus = false;
    RepeatedTrouble m_trouble; ///< with what isn't of one partition

    mutable tp::Mutex m_mutex;
    FieldTypes m_sharedTypes TP_GUARDED_BY(m_mutex); ///< what the thread's own are, for others to ask
    std::vector<std::shared_ptr<SubscriptionState>> m_new TP_GUARDED_BY(m_mutex);
    std::vector<std::weak_ptr<SubscriptionState>> m_subscriptions TP_GUARDED_BY(m_mutex);
    std::size_t m_lookForEndedAt TP_GUARDED_BY(m_mutex) = kFewSubscriptions; ///< so many of them
    std::atomic<bool> m_isEnding{false};
    tp::ConditionVariable m_ended;
    bool m_hasEnded TP_GUARDED_BY(m_mutex) = false; ///< nothing is called any more
    std::thread::id m_threadId TP_GUARDED_BY(m_mutex);
    std::thread m_thread TP_GUARDED_BY(m_mutex);                ///< until somebody closes
    std::weak_ptr<const void> m_running TP_GUARDED_BY(m_mutex); ///< expires as the thread ends
};

} // namespace tivra_bus
