#include "run/Bridge.h"

#include "bus/BusError.h"
#include "bus/SubjectNames.h"
#include "run/DictionaryText.h"
#include "run/StateNames.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>

namespace tivra_bus {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kSendEvery{1};
constexpr milliseconds kLookEvery{20};
constexpr milliseconds kRenewEvery{1000};
constexpr milliseconds kLeasesEvery{250};
constexpr milliseconds kStatusEvery{1000};
constexpr milliseconds kDrainWithin{2000};

} // namespace

Bridge::Bridge(BridgeOptions options, tivra::Feed& feed, BusPublisher& publisher, LeaseTable& leases, Log log)
    : m_options(std::move(options))
    , m_feed(feed)
    , m_publisher(publisher)
    , m_table(leases)
    , m_log(std::move(log))
    , m_instruments(m_options.layout.partitions)
    , m_writerOptions(m_options.writer)
    , m_book(m_options.name, m_options.layout.partitions, m_options.lease) {
    for (const tivra::Instrument& instrument : m_options.instruments)
        m_instruments[partitionOf(instrument.source, instrument.symbol, m_options.layout.partitions)]
            .push_back(instrument);
    m_publisher.prepare(m_options.layout);
    m_writerOptions.dictionary = m_publisher.storeDictionary(dictionaryText(m_feed));
    m_writerOptions.maxMessage = m_publisher.maxMessage();
    m_sender = std::thread([this] { send(); });
    m_manager = std::thread([this] { manage(); });
}

Bridge::~Bridge() {
    {
        const tp::MutexLock lock(m_mutex);
        m_isEnding = true;
    }
    m_ending.notifyAll();
    m_manager.join();
    m_sender.join();
}

std::set<unsigned> Bridge::held() const {
    std::set<unsigned> partitions;
    for (const auto& [partition, tenure] : m_tenures)
        partitions.insert(partition);
    return partitions;
}

void Bridge::send() {
    Clock::time_point nextLast{};
    for (;;) {
        std::vector<std::pair<std::shared_ptr<PartitionWriter>, std::shared_ptr<LastValuesWriter>>> writers;
        {
            const tp::MutexLock lock(m_mutex);
            m_ending.waitFor(m_mutex, kSendEvery);
            // The thread that manages lets what waits be sent first.
            if (m_isEnding && m_writers.empty())
                return;
            for (const auto& [partition, pair] : m_writers)
                writers.push_back(pair);
        }
        const Clock::time_point now = Clock::now();
        const bool isLastDue = now >= nextLast;
        if (isLastDue)
            nextLast = now + m_options.lastEvery;
        for (const auto& [writer, lastValues] : writers) {
            writer->pump(now);
            if (isLastDue || lastValues->isSettling())
                lastValues->pump();
        }
        m_publisher.flush();
    }
}

void Bridge::manage() {
    Clock::time_point nextLeases{};
    std::string lastFailure;
    for (;;) {
        {
            const tp::MutexLock lock(m_mutex);
            if (!m_isEnding)
                m_ending.waitFor(m_mutex, kLookEvery);
            if (m_isEnding)
                break;
        }
        try {
            look();
            sendStatus();
            if (Clock::now() >= nextLeases) {
                nextLeases = Clock::now() + kLeasesEvery;
                manageLeases();
                if (!lastFailure.empty())
                    m_log("the engine answers again");
                lastFailure.clear();
            }
        } catch (const std::exception& error) {
            if (lastFailure != error.what())
                m_log(fmt::format("the engine: {}; tried again", error.what()));
            lastFailure = error.what();
            // The engine's own time-outs are the pauses, and this where it refuses at once.
            nextLeases = Clock::now() + kRenewEvery;
        }
    }
    for (const unsigned partition : held()) {
        try {
            release(partition);
        } catch (const std::exception& error) {
            m_log(fmt::format("partition {}: its lease couldn't be given back: {}", partition, error.what()));
            drop(partition, "end");
        }
    }
    try {
        m_table.remove(m_book.memberKey());
    } catch (const std::exception&) {
        // It is taken for dead when the lease is over.
    }
}

void Bridge::renew() {
    const Clock::time_point now = Clock::now();
    if (now < m_nextRenewal)
        return;
    m_nextRenewal = now + kRenewEvery;
    (void)m_table.write(m_book.memberKey(), fmt::format(R"({{"partitions":{}}})", m_tenures.size()),
                        m_book.memberRevision());
    const tp::MutexLock lock(m_mutex);
    m_renewed = now;
}

void Bridge::manageLeases() {
    m_book.read(m_table.entries(), Clock::now());
    renew();
    const Clock::time_point now = Clock::now();
    const LeaseDecision decision = m_book.decide(held(), now);
    {
        const tp::MutexLock lock(m_mutex);
        m_members = m_book.liveMembers(now);
    }
    for (const unsigned partition : decision.lost)
        drop(partition, "another bridge has its lease");
    for (const unsigned partition : decision.release)
        release(partition);
    for (const unsigned partition : decision.take)
        take(partition);
    for (const std::string& key : m_book.deadMembers(now))
        m_table.remove(key);
}

void Bridge::take(unsigned partition) {
    const Lease lease = m_book.lease(partition);
    const StreamEnd end = m_publisher.endOf(partition);
    const std::uint64_t epoch = std::max(lease.epoch, end.epoch) + 1;
    if (!m_table.write(LeaseBook::leaseKey(partition), m_book.leaseValue(epoch), lease.revision))
        return; // somebody else was first
    Tenure tenure;
    tenure.writer =
        std::make_shared<PartitionWriter>(partition, epoch, end, m_publisher, m_writerOptions, m_counters);
    tenure.lastValues = std::make_shared<LastValuesWriter>(tenure.writer, m_publisher, m_counters);
    tenure.group = m_feed.subscribeAll(m_instruments[partition], tenure.writer->handlers());
    {
        const tp::MutexLock lock(m_mutex);
        m_writers[partition] = {tenure.writer, tenure.lastValues};
    }
    m_tenures[partition] = std::move(tenure);
    m_counters.takeovers.fetch_add(1, std::memory_order_relaxed);
    m_log(fmt::format("partition {}: taken{}, epoch {}, {} symbols", partition,
                      lease.holder.empty() ? "" : " over from " + lease.holder, epoch,
                      m_instruments[partition].size()));
}

void Bridge::drop(unsigned partition, const char* why) {
    const auto found = m_tenures.find(partition);
    if (found == m_tenures.end())
        return;
    {
        const tp::MutexLock lock(m_mutex);
        m_writers.erase(partition);
    }
    found->second.group.close();
    m_tenures.erase(found);
    m_log(fmt::format("partition {}: dropped: {}", partition, why));
}

void Bridge::release(unsigned partition) {
    Tenure& tenure = m_tenures.at(partition);
    tenure.group.close();
    const Clock::time_point deadline = Clock::now() + kDrainWithin;
    tenure.lastValues->settle();
    while (!(tenure.writer->isDrained() && (tenure.writer->isFenced() || tenure.lastValues->isSettled())) &&
           Clock::now() < deadline) {
        if (tenure.writer->needsLook())
            tenure.writer->looked(m_publisher.endOf(partition));
        const tp::MutexLock lock(m_mutex);
        m_ending.waitFor(m_mutex, kSendEvery);
    }
    const std::uint64_t epoch = tenure.writer->epoch();
    drop(partition, "given back");
    if (const Lease& lease = m_book.lease(partition); lease.epoch == epoch)
        (void)m_table.write(LeaseBook::leaseKey(partition), LeaseBook::freeValue(epoch), lease.revision);
}

void Bridge::look() {
    std::vector<unsigned> fenced;
    for (auto& [partition, tenure] : m_tenures) {
        if (tenure.writer->needsLook())
            tenure.writer->looked(m_publisher.endOf(partition));
        if (tenure.writer->isFenced())
            fenced.push_back(partition);
    }
    for (const unsigned partition : fenced)
        drop(partition, "another bridge writes it");
}

void Bridge::sendStatus() {
    // One bridge speaks for all: the one that has the first partition.
    const Clock::time_point now = Clock::now();
    const std::string state = statusOf(m_feed.state());
    if (m_tenures.count(0) == 0 || (state == m_lastStatus && now < m_nextStatus))
        return;
    m_nextStatus = now + kStatusEvery;
    std::string time;
    appendTime(time, std::chrono::system_clock::now());
    if (state != m_lastStatus)
        m_statusSince = time;
    m_lastStatus = state;
    std::set<int> sources;
    for (const tivra::Instrument& instrument : m_options.instruments)
        sources.insert(instrument.source);
    for (const int source : sources)
        m_publisher.sendStatus(
            source,
            fmt::format(R"({{"tivra":{},"source":{},"state":"{}","since":"{}","time":"{}","bridge":"{}"}})",
                        kLayoutVersion, source, state, m_statusSince, time, m_options.name));
}

BridgeStatus Bridge::status() const {
    BridgeStatus status;
    status.isConnected = m_publisher.isConnected();
    status.feed = m_feed.state();
    const tp::MutexLock lock(m_mutex);
    for (const auto& [partition, writers] : m_writers)
        status.partitions.push_back(partition);
    status.members = m_members;
    status.leaseAge = std::chrono::duration<double>(Clock::now() - m_renewed).count();
    return status;
}

} // namespace tivra_bus
