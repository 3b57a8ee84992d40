#pragma once

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
#include <random>
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
    void close() TP_EXCLUDES(m_mutex);

    [[nodiscard]] tivra::FeedState state() const;
    [[nodiscard]] unsigned partitions() const { return m_partitionCount; }
    [[nodiscard]] tivra::BusStatistics statistics() const;

private:
    using Clock = std::chrono::steady_clock;

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
    /// Starts what has to be, and asks for last values. @throws BusError
    void askEngine(Clock::time_point now);
    void askLastValues(std::vector<SymbolTrack*>& tracks, Clock::time_point now);
    void askStatus(Clock::time_point now);
    [[nodiscard]] const FieldTypes& typesOf(std::uint64_t revision);
    void report(tivra::BusProblem&& problem);
    void failed(const std::string& text, Clock::time_point now);

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
    bool m_wasConnected = true;
    bool m_followsStatus = false;
    Clock::time_point m_askAfter{};
    int m_failures = 0;
    std::string m_lastFailure;
    std::minstd_rand m_chance{std::random_device()()};

    mutable tp::Mutex m_mutex;
    std::vector<std::shared_ptr<SubscriptionState>> m_new TP_GUARDED_BY(m_mutex);
    std::vector<std::weak_ptr<SubscriptionState>> m_subscriptions TP_GUARDED_BY(m_mutex);
    std::atomic<bool> m_isEnding{false};
    std::thread m_thread;
};

} // namespace tivra_bus
