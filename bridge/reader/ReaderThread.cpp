#include "reader/ReaderThread.h"

#include "bus/BusError.h"
#include "bus/JsonReading.h"
#include "bus/SubjectNames.h"
#include "bus/startThread.h"
#include "reader/EndingThreads.h"

#include <algorithm>
#include <climits>

namespace tivra_bus {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::size_t kInboxBytes = 64U << 20;
constexpr milliseconds kLookEvery{20};
/// When messages come all the time.
constexpr milliseconds kLookBetween{100};
/// Bridges say each second how sources are, and a takeover takes 3 to 5.
constexpr seconds kSourceSilence{7};
constexpr std::uint64_t kMostPartitions = 1024;
/// Symbols whose last values are asked for in one round.
constexpr std::size_t kRound = 10'000;

} // namespace

ReaderThread::ReaderThread(tivra::BusOptions options, std::unique_ptr<BusSource> source)
    : m_options(std::move(options))
    , m_inbox(std::make_shared<Inbox>(kInboxBytes))
    , m_source(std::move(source))
    , m_around{*m_source,
               m_counters,
               m_options.lookBack,
               [this](tivra::BusProblem&& problem) { report(std::move(problem)); },
               [this](std::uint64_t revision) -> const FieldTypes& { return typesOf(revision); },
               [inbox = m_inbox](unsigned partition, std::uint64_t generation, StreamMessage&& message) {
                   inbox->push({partition, generation, std::move(message)});
               }} {
    const JsonReading layout(m_source->layout(), "the layout of the bus");
    if (layout.number("tivra") != kLayoutVersion)
        throw BusError("the engine is laid out for another release: use the release of its bridges");
    m_partitionCount = static_cast<unsigned>(layout.number("partitions", kMostPartitions));
    if (m_partitionCount == 0)
        layout.fail("partitions", "a number from 1");
    if (const std::string dictionary = m_source->dictionary(); !dictionary.empty())
        takeDictionary(dictionary);
}

ReaderThread::~ReaderThread() {
    close();
}

void ReaderThread::begin() {
    (void)EndingThreads::instance();
    const tp::MutexLock lock(m_mutex);
    const auto running = std::make_shared<const int>();
    m_running = running;
    // The thread keeps this alive when it is closed in a handler of its own.
    m_thread = startThread("tivra-bus", [running, self = shared_from_this()]() mutable {
        self->run();
        self.reset();
    });
    m_threadId = m_thread.get_id();
}

void ReaderThread::close() {
    m_isEnding = true;
    std::vector<std::weak_ptr<SubscriptionState>> subscriptions;
    std::thread thread;
    std::weak_ptr<const void> running;
    bool isOwn = false;
    {
        const tp::MutexLock lock(m_mutex);
        subscriptions.swap(m_subscriptions);
        thread.swap(m_thread);
        running = m_running;
        isOwn = m_threadId == std::this_thread::get_id();
    }
    for (const auto& each : subscriptions)
        if (const auto subscription = each.lock())
            subscription->close();
    m_inbox->close();
    if (isOwn) {
        if (thread.joinable())
            EndingThreads::instance().add(std::move(thread), std::move(running));
        return;
    }
    if (thread.joinable())
        thread.join();
    // It may be somebody else who waits for the thread itself.
    const tp::MutexLock lock(m_mutex);
    while (!m_hasEnded && m_threadId != std::thread::id())
        m_ended.wait(m_mutex);
}

std::shared_ptr<SubscriptionState> ReaderThread::subscribe(const std::vector<tivra::Instrument>& instruments,
                                                           tivra::BusHandlers handlers,
                                                           std::vector<std::string> fields) {
    auto subscription = std::make_shared<SubscriptionState>(
        instruments, std::move(handlers), std::move(fields), m_counters, [this](const std::string& text) {
            report({tivra::BusProblem::Kind::Callback, -1, 0, text});
        });
    {
        const tp::MutexLock lock(m_mutex);
        if (m_isEnding)
            throw tivra::Error({tivra::Error::Code::Closed, tivra::Error::Phase::Request,
                                "the reader of the bus has been closed", "", "", 0, "", 0});
        m_new.push_back(subscription);
        // Not each time: there may be one for each of very many symbols.
        if (m_subscriptions.size() >= m_lookForEndedAt) {
            std::erase_if(m_subscriptions, [](const auto& each) { return each.expired(); });
            m_lookForEndedAt = std::max(2 * m_subscriptions.size(), kFewSubscriptions);
        }
        m_subscriptions.push_back(subscription);
    }
    m_inbox->wake();
    return subscription;
}

tivra::FeedState ReaderThread::state() const {
    if (m_isEnding)
        return tivra::FeedState::Closed;
    return m_source->isConnected() ? tivra::FeedState::Established : tivra::FeedState::Recovering;
}

tivra::BusStatistics ReaderThread::statistics() const {
    tivra::BusStatistics statistics;
    statistics.batches = m_counters.batches.load(std::memory_order_relaxed);
    statistics.duplicates = m_counters.duplicates.load(std::memory_order_relaxed);
    statistics.updates = m_counters.updates.load(std::memory_order_relaxed);
    statistics.gaps = m_counters.gaps.load(std::memory_order_relaxed);
    statistics.problems = m_counters.problems.load(std::memory_order_relaxed);
    statistics.restarts = m_counters.restarts.load(std::memory_order_relaxed);
    statistics.partitions = m_counters.partitions.load(std::memory_order_relaxed);
    statistics.waitingBytes = m_inbox->bytes();
    return statistics;
}

void ReaderThread::run() {
    while (!m_isEnding) {
        const std::deque<InboxItem> items = m_inbox->take(Clock::now() + kLookEvery);
        Clock::time_point lookAt = Clock::now() + kLookBetween;
        for (const InboxItem& item : items) {
            if (m_isEnding)
                break;
            takeItem(item, Clock::now());
            m_inbox->release(item);
            // Slow handlers hold up neither what is subscribed meanwhile nor what is to be noticed.
            if (Clock::now() >= lookAt && !m_isEnding) {
                work(Clock::now());
                lookAt = Clock::now() + kLookBetween;
            }
        }
        if (!m_isEnding)
            work(Clock::now());
    }
    // Consumers end on the thread that has made them.
    m_partitions.clear();
    const tp::MutexLock lock(m_mutex);
    m_hasEnded = true;
    m_ended.notifyAll();
}

void ReaderThread::work(Clock::time_point now) {
    // Before new ones are taken, which may have been closed by then.
    const std::uint64_t closings = m_counters.closings.load();
    takeSubscriptions();
    if (std::exchange(m_closings, closings) != closings)
        for (auto each = m_partitions.begin(); each != m_partitions.end();)
            each = each->second->dropClosed() ? m_partitions.erase(each) : std::next(each);
    m_counters.partitions = m_partitions.size();
    for (const std::string& status : m_inbox->takeStatuses())
        takeStatus(status, now);
    followConnection();
    showStale(now);
    if (m_wasConnected && m_trouble.isDue(now)) {
        try {
            askEngine(now);
            (void)m_trouble.ended();
        } catch (const BusError& error) {
            if (m_trouble.failed(error.what(), now))
                report({tivra::BusProblem::Kind::Engine, -1, 0,
                        std::string(error.what()) + "; it is tried again"});
        }
    }
    for (const auto& [number, partition] : m_partitions)
        partition->settle(now);
}

void ReaderThread::takeSubscriptions() {
    std::vector<std::shared_ptr<SubscriptionState>> added;
    {
        const tp::MutexLock lock(m_mutex);
        added.swap(m_new);
    }
    for (const auto& subscription : added)
        for (const tivra::Instrument& instrument : subscription->instruments()) {
            const unsigned number = partitionOf(instrument.source, instrument.symbol, m_partitionCount);
            std::unique_ptr<PartitionReader>& partition = m_partitions[number];
            if (partition == nullptr)
                partition = std::make_unique<PartitionReader>(number, m_around);
            partition->add(std::make_unique<SymbolTrack>(instrument, subscription));
            m_sources.try_emplace(instrument.source, Source{"", {}, ""});
        }
}

void ReaderThread::takeItem(const InboxItem& item, Clock::time_point now) {
    const auto found = m_partitions.find(item.partition);
    if (found != m_partitions.end())
        found->second->take(item.message, item.generation, now);
}

void ReaderThread::takeStatus(const std::string& text, Clock::time_point now) {
    try {
        const JsonReading reading(text, "the state of a source");
        const auto found = m_sources.find(static_cast<int>(reading.number("source", INT_MAX)));
        if (found == m_sources.end())
            return;
        found->second.state = reading.text("state");
        found->second.heard = now;
    } catch (const BatchError& error) {
        report({tivra::BusProblem::Kind::LastValues, -1, 0, error.what()});
    }
}

void ReaderThread::followConnection() {
    const bool isConnected = m_source->isConnected();
    if (isConnected == std::exchange(m_wasConnected, isConnected))
        return;
    tivra::FeedStateChange change;
    change.from = isConnected ? tivra::FeedState::Recovering : tivra::FeedState::Established;
    change.to = isConnected ? tivra::FeedState::Established : tivra::FeedState::Recovering;
    change.cause = isConnected ? "the engine is connected again" : "the engine is lost";
    change.time = std::chrono::system_clock::now();
    if (!isConnected)
        for (const auto& [number, partition] : m_partitions)
            partition->lose();
    for (auto& [number, source] : m_sources)
        source.heard = Clock::now(); // nobody could be heard
    if (m_options.onState) {
        try {
            m_options.onState(change);
        } catch (const std::exception& error) {
            report({tivra::BusProblem::Kind::Callback, -1, 0,
                    fmt::format("onState of a reader has thrown: {}", error.what())});
        } catch (...) {
            report({tivra::BusProblem::Kind::Callback, -1, 0,
                    "onState of a reader has thrown an exception that is no std::exception"});
        }
    }
}

void ReaderThread::showStale(Clock::time_point now) {
    bool isChanged = false;
    for (auto& [number, source] : m_sources) {
        if (source.heard == Clock::time_point())
            source.heard = now;
        std::string cause;
        if (!m_wasConnected)
            cause = "the engine is lost";
        else if (source.state == "down")
            cause = "the bridges have closed the source";
        else if (now - source.heard > kSourceSilence)
            cause = fmt::format("no bridge has said anything of source {} for {} s", number,
                                kSourceSilence.count());
        isChanged = std::exchange(source.staleCause, cause) != cause || isChanged;
    }
    if (!isChanged)
        return;
    for (const auto& [number, partition] : m_partitions)
        partition->forEach(
            [this](SymbolTrack& track) { track.setStale(m_sources[track.instrument().source].staleCause); });
}

void ReaderThread::askEngine(Clock::time_point now) {
    if (!m_followsStatus) {
        m_source->followStatus([inbox = m_inbox](std::string&& text) { inbox->pushStatus(std::move(text)); });
        m_followsStatus = true;
    }
    askStatus(now);
    startPartitions(now);
    for (const auto& [number, each] : m_partitions) {
        PartitionReader& partition = *each;
        if (partition.needsBound(now) && !partition.attempt([&] { partition.bound(now); }))
            return;
    }
}

void ReaderThread::startPartitions(Clock::time_point now) {
    std::vector<PartitionReader*> starting;
    // One that the engine doesn't answer for holds up the others once at a time.
    bool hasFailed = false;
    for (const auto& [number, each] : m_partitions) {
        PartitionReader& partition = *each;
        if (hasFailed || !partition.needsStart(now))
            continue;
        hasFailed = !partition.attempt([&partition] { partition.prepare(); });
        if (!hasFailed)
            starting.push_back(&partition);
    }
    std::vector<SymbolTrack*> wanting;
    for (const auto& [number, partition] : m_partitions)
        partition->addWanting(wanting, now);
    askLastValues(wanting, now);
    for (PartitionReader* const partition : starting)
        if (!hasFailed)
            hasFailed = !partition->attempt([&] { partition->start(now); });
}

void ReaderThread::askStatus(Clock::time_point now) {
    for (auto& [number, source] : m_sources) {
        if (!source.state.empty())
            continue;
        const std::optional<std::string> status = m_source->status(number);
        source.state = "unknown";
        source.heard = now;
        if (status)
            takeStatus(*status, now);
    }
}

void ReaderThread::askLastValues(std::vector<SymbolTrack*>& tracks, Clock::time_point now) {
    for (std::size_t begin = 0; begin < tracks.size() && !m_isEnding; begin += kRound) {
        const std::size_t end = std::min(begin + kRound, tracks.size());
        std::vector<tivra::Instrument> instruments;
        for (std::size_t i = begin; i < end; ++i)
            instruments.push_back(tracks[i]->instrument());
        const std::vector<std::optional<std::string>> answers = m_source->lastValues(instruments);
        for (std::size_t i = begin; i < end && !m_isEnding; ++i) {
            std::optional<LastValues> last;
            try {
                if (answers[i - begin])
                    last = readLastValues(*answers[i - begin]);
            } catch (const BatchError& error) {
                report({tivra::BusProblem::Kind::LastValues, -1, 0,
                        fmt::format("{} of source {}: {}", tracks[i]->instrument().symbol,
                                    tracks[i]->instrument().source, error.what())});
            }
            tracks[i]->takeLastValues(last ? &*last : nullptr, m_types, now);
        }
    }
}

const FieldTypes& ReaderThread::typesOf(std::uint64_t revision) {
    if (revision == m_typesRevision || Clock::now() < m_typesAfter)
        return m_types;
    try {
        if (const std::string text = m_source->dictionary(); !text.empty())
            takeDictionary(text);
        m_typesRevision = revision;
    } catch (const BusError& error) {
        report({tivra::BusProblem::Kind::Engine, -1, 0, error.what()});
    }
    // From when it has answered or hasn't, or batches that wait would each wait for it again.
    m_typesAfter = Clock::now() + seconds(1);
    return m_types;
}

void ReaderThread::takeDictionary(const std::string& text) {
    m_types = FieldTypes(text);
    const tp::MutexLock lock(m_mutex);
    m_sharedTypes = m_types;
}

std::optional<tivra::Value::Type> ReaderThread::typeOf(const std::string& field) const {
    const tp::MutexLock lock(m_mutex);
    return m_sharedTypes.typeOf(field);
}

void ReaderThread::report(tivra::BusProblem&& problem) {
    m_counters.problems.fetch_add(1, std::memory_order_relaxed);
    if (!m_options.onProblem)
        return;
    try {
        m_options.onProblem(problem);
    } catch (...) {
        // There is nobody left who could be told.
        m_counters.problems.fetch_add(1, std::memory_order_relaxed);
    }
}

} // namespace tivra_bus
