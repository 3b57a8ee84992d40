#include "run/Bridge.h"

#include "bus/BatchHeader.h"
#include "bus/BusError.h"
#include "bus/JsonText.h"
#include "bus/SubjectNames.h"
#include "bus/counted.h"
#include "bus/startThread.h"
#include "run/StateNames.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>

namespace tivra_bus {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kSendEvery{1};
constexpr milliseconds kLookEvery{20};
constexpr milliseconds kLeasesEvery{250};
constexpr milliseconds kStatusEvery{1000};
/// For all partitions together: a bridge that ends or gives partitions away holds nobody up for longer.
constexpr milliseconds kDrainWithin{2000};
/// For which a bridge that was seen alive is taken for alive by all others, and what it sends then arrives.
/// One that was stopped for longer may have been replaced: an engine that knows no condition would let its
/// last values replace those of the new one.
constexpr milliseconds kSurelyAlive{2000};
/// Hubs that come back within that time cost nobody a partition.
constexpr milliseconds kHubPatience{3000};

/// Where the engine has dropped batches and lease alike, readers and last values still know the epoch. There
/// was hardly one without a batch, and surely not one each second.
std::uint64_t aboveForgotten(const StreamEnd& end) {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now).count();
    return std::max(end.position, static_cast<std::uint64_t>(std::max<std::int64_t>(seconds, 0)));
}

} // namespace

Bridge::Bridge(BridgeOptions options, tivra::Feed& feed, BusPublisher& publisher, PartitionShare& share,
               Log log)
    : m_options(std::move(options))
    , m_feed(feed)
    , m_publisher(publisher)
    , m_share(share)
    , m_log(std::move(log))
    , m_instruments(m_options.layout.partitions)
    , m_writerOptions(m_options.writer)
    , m_dictionary(feed) {
    for (const tivra::Instrument& instrument : m_options.instruments)
        m_instruments[partitionOf(instrument.source, instrument.symbol, m_options.layout.partitions)]
            .push_back(instrument);
    m_publisher.prepare(m_options.layout);
    m_dictionaryRevision = m_publisher.storeDictionary(m_dictionary.get());
    m_writerOptions.maxMessage = m_publisher.maxMessage();
    m_sender = startThread("tivra-sender", [this] { send(); });
    try {
        m_manager = startThread("tivra-manager", [this] { manage(); });
    } catch (...) {
        setEnded();
        m_sender.join();
        throw;
    }
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

void Bridge::setEnded() {
    const tp::MutexLock lock(m_mutex);
    m_hasEnded = true;
}

std::set<unsigned> Bridge::held() const {
    std::set<unsigned> partitions;
    for (const auto& [partition, tenure] : m_tenures)
        partitions.insert(partition);
    return partitions;
}

void Bridge::awaitWork(std::optional<unsigned> heldUp) {
    if (m_bell->take() || (heldUp && m_publisher.awaitAnswer(*heldUp, kSendEvery)))
        return;
    m_bell->wait(kSendEvery);
}

void Bridge::send() {
    Clock::time_point nextLast{};
    std::optional<unsigned> heldUp;
    for (;;) {
        std::vector<std::pair<std::shared_ptr<PartitionWriter>, std::shared_ptr<LastValuesWriter>>> writers;
        Clock::time_point renewed;
        awaitWork(heldUp);
        {
            const tp::MutexLock lock(m_mutex);
            // The thread that manages lets what waits be sent first.
            if (m_hasEnded)
                return;
            for (const auto& [partition, pair] : m_writers)
                writers.push_back(pair);
            renewed = m_renewed;
        }
        const Clock::time_point now = Clock::now();
        const bool isLastDue = now >= nextLast;
        if (isLastDue)
            nextLast = now + m_options.lastEvery;
        for (const auto& [writer, lastValues] : writers) {
            writer->pump(now);
            // By a clock that is read after whatever may have stopped this process before.
            if (Clock::now() - renewed < kSurelyAlive)
                lastValues->pump(now, isLastDue);
        }
        m_publisher.flush();
        const auto found = std::find_if(writers.begin(), writers.end(),
                                        [](const auto& each) { return each.first->isHeldUp(); });
        heldUp = found != writers.end() ? std::optional(found->first->partition()) : std::nullopt;
    }
}

void Bridge::manage() {
    for (;;) {
        {
            const tp::MutexLock lock(m_mutex);
            if (!m_isEnding && m_end.empty())
                m_ending.waitFor(m_mutex, kLookEvery);
        }
        if (isEnding())
            break;
        manageOnce();
    }
    end();
}

bool Bridge::isEnding() const {
    const tp::MutexLock lock(m_mutex);
    return m_isEnding || !m_end.empty();
}

void Bridge::manageOnce() {
    try {
        look();
        updateDictionary();
        sendStatus();
        const Clock::time_point now = Clock::now();
        if (now < m_nextLeases || !m_engineTrouble.isDue(now))
            return;
        m_nextLeases = now + kLeasesEvery;
        manageLeases();
        if (m_engineTrouble.ended())
            m_log("the engine answers again");
    } catch (const std::exception& error) {
        if (m_engineTrouble.failed(error.what(), Clock::now()))
            m_log(fmt::format("the engine: {}; tried again", error.what()));
    }
}

void Bridge::end() {
    std::vector<unsigned> partitions;
    for (const auto& [partition, tenure] : m_tenures)
        partitions.push_back(partition);
    release(partitions);
    if (m_answersAtEnd)
        m_share.leave();
    setEnded();
}

void Bridge::endAs(const std::string& why) {
    m_log(why);
    const tp::MutexLock lock(m_mutex);
    m_end = why;
}

bool Bridge::isReady() {
    const Clock::time_point now = Clock::now();
    if (m_feed.state() == tivra::FeedState::Established)
        m_established = now;
    return now - m_established < kHubPatience;
}

void Bridge::renew() {
    m_share.renew(isReady());
    const tp::MutexLock lock(m_mutex);
    m_renewed = m_share.confirmed();
}

void Bridge::renewIfPossible() {
    try {
        renew();
    } catch (const BusError&) {
        // It is tried again soon.
    }
}

void Bridge::manageLeases() {
    const LeaseDecision decision = m_share.decide(held(), isReady());
    if (const std::string why = m_share.end(); !why.empty()) {
        endAs(why);
        return;
    }
    {
        const tp::MutexLock lock(m_mutex);
        m_members = m_share.members();
        m_renewed = m_share.confirmed();
    }
    for (const unsigned partition : decision.lost)
        drop(partition, "another bridge has its lease");
    release(decision.release);
    for (const unsigned partition : decision.giveBack)
        attempt(partition, [&] { m_share.giveBack(partition); });
    for (const unsigned partition : decision.take) {
        if (isEnding())
            return;
        if (!attempt(partition, [&] { take(partition); }))
            look(); // the attempt may have taken its time
        renew();
    }
    forgetTroubles(decision);
}

void Bridge::forgetTroubles(const LeaseDecision& decision) {
    // What somebody else writes by now is no trouble of this bridge.
    const auto isConcerned = [&](const std::vector<unsigned>& partitions, unsigned partition) {
        return std::find(partitions.begin(), partitions.end(), partition) != partitions.end();
    };
    std::erase_if(m_troubles, [&](const auto& trouble) {
        const unsigned partition = trouble.first;
        return m_tenures.count(partition) == 0 && !isConcerned(decision.take, partition) &&
               !isConcerned(decision.giveBack, partition);
    });
    countTroubles();
}

bool Bridge::attempt(unsigned partition, const std::function<void()>& action) {
    if (!m_troubles[partition].isDue(Clock::now()))
        return false;
    try {
        action();
    } catch (const std::exception& error) {
        noteTrouble(partition, error.what());
        return false;
    }
    noteTrouble(partition, {});
    return true;
}

void Bridge::noteTrouble(unsigned partition, const std::string& text) {
    RepeatedTrouble& trouble = m_troubles[partition];
    if (text.empty() ? trouble.ended() : trouble.failed(text, Clock::now()))
        m_log(
            fmt::format("partition {}: {}", partition, text.empty() ? "well again" : text + "; tried again"));
    countTroubles();
}

void Bridge::countTroubles() {
    const auto count = std::count_if(m_troubles.begin(), m_troubles.end(),
                                     [](const auto& each) { return each.second.isTroubled(); });
    const tp::MutexLock lock(m_mutex);
    m_troubled = static_cast<std::size_t>(count);
}

void Bridge::take(unsigned partition) {
    const PartitionShare::Before before = m_share.before(partition);
    const StreamEnd end = m_publisher.endOf(partition);
    const bool isForgotten = before.epoch == 0 && end.epoch == 0 && end.position > 0;
    const std::uint64_t epoch = (isForgotten ? aboveForgotten(end) : std::max(before.epoch, end.epoch)) + 1;
    // Readers leave out what has a higher one.
    if (epoch > kMostEpoch)
        throw BusError(
            fmt::format("it is in epoch {}, after which there is none: something else than a bridge "
                        "has written there; create its stream anew",
                        epoch - 1));
    if (!m_share.claim(partition, epoch))
        return; // somebody else was first
    Tenure tenure;
    tenure.writer = std::make_shared<PartitionWriter>(partition, epoch, end, m_publisher, m_writerOptions,
                                                      m_counters, m_names, m_bell);
    tenure.writer->setDictionary(m_dictionaryRevision);
    tenure.lastValues = std::make_shared<LastValuesWriter>(tenure.writer, m_publisher, m_counters);
    tenure.group = m_feed.subscribeAll(m_instruments[partition], tenure.writer->handlers());
    {
        const tp::MutexLock lock(m_mutex);
        m_writers[partition] = {tenure.writer, tenure.lastValues};
    }
    m_tenures[partition] = std::move(tenure);
    shareRoom();
    m_counters->takeovers.fetch_add(1, std::memory_order_relaxed);
    m_log(fmt::format("partition {}: taken{}, epoch {}, {}", partition,
                      before.holder.empty() ? "" : " over from " + before.holder, epoch,
                      counted(m_instruments[partition].size(), "symbol")));
}

void Bridge::shareRoom() {
    const std::size_t each = m_writerOptions.bufferBytes / std::max<std::size_t>(m_tenures.size(), 1);
    for (const auto& [partition, tenure] : m_tenures)
        tenure.writer->setRoom(std::max(each, 2 * m_writerOptions.batchBytes));
}

void Bridge::drop(unsigned partition, const std::string& why) {
    const auto found = m_tenures.find(partition);
    if (found == m_tenures.end())
        return;
    {
        const tp::MutexLock lock(m_mutex);
        m_writers.erase(partition);
    }
    found->second.group.close();
    m_tenures.erase(found);
    shareRoom();
    m_log(fmt::format("partition {}: dropped: {}", partition, why));
}

void Bridge::release(const std::vector<unsigned>& partitions) {
    for (const unsigned partition : partitions) {
        Tenure& tenure = m_tenures.at(partition);
        tenure.writer->endTaking();
        tenure.group.close();
        tenure.writer->setClosed();
        tenure.lastValues->settle();
    }
    drain(partitions);
    // An engine that doesn't answer is asked once: the leases are over soon without it.
    bool answers = true;
    for (const unsigned partition : partitions) {
        const bool isStored = m_tenures.at(partition).writer->isDrained();
        drop(partition, isStored ? "given back" : "given back, and not all of it was stored in time");
        answers = answers && m_publisher.isConnected() && giveBack(partition);
    }
    m_answersAtEnd = answers;
}

/// Whatever trouble there was with its batches.
bool Bridge::giveBack(unsigned partition) {
    try {
        m_share.giveBack(partition);
        return true;
    } catch (const std::exception& error) {
        noteTrouble(partition, error.what());
        return false;
    }
}

void Bridge::drain(const std::vector<unsigned>& partitions) {
    const Clock::time_point deadline = Clock::now() + kDrainWithin;
    const auto isDone = [this](unsigned partition) {
        const Tenure& tenure = m_tenures.at(partition);
        return tenure.writer->isFenced() || (tenure.writer->isDrained() && tenure.lastValues->isSettled());
    };
    while (!std::all_of(partitions.begin(), partitions.end(), isDone) && Clock::now() < deadline) {
        for (const unsigned partition : partitions) {
            PartitionWriter& writer = *m_tenures.at(partition).writer;
            if (writer.needsLook() && Clock::now() < deadline)
                attempt(partition, [&] { writer.looked(m_publisher.endOf(partition)); });
        }
        renewIfPossible(); // those who think that it is dead take what is given away anyway
        const tp::MutexLock lock(m_mutex);
        m_ending.waitFor(m_mutex, kSendEvery);
    }
}

void Bridge::look() {
    std::vector<std::pair<unsigned, std::string>> fenced;
    for (auto& [partition, tenure] : m_tenures) {
        if (isEnding())
            return;
        PartitionWriter& writer = *tenure.writer;
        if (writer.needsLook()) {
            attempt(partition,
                    [&writer, partition = partition, this] { writer.looked(m_publisher.endOf(partition)); });
            renewIfPossible(); // the next look at the leases says what is wrong
        }
        const std::string trouble = writer.trouble();
        if (writer.isFenced())
            fenced.emplace_back(partition, trouble);
        else if (!writer.needsLook() && trouble != tenure.trouble)
            noteTrouble(partition, tenure.trouble = trouble);
    }
    for (const auto& [partition, why] : fenced) {
        m_counters->fenced.fetch_add(1, std::memory_order_relaxed);
        drop(partition, why);
    }
}

void Bridge::updateDictionary() {
    if (std::optional<std::string> text = m_dictionary.poll())
        m_unstored = std::move(text);
    if (!m_unstored || !m_dictionaryTrouble.isDue(Clock::now()))
        return;
    try {
        m_dictionaryRevision = m_publisher.storeDictionary(*m_unstored);
    } catch (const BusError& error) {
        // Nothing else waits for it: what is written names the dictionary before.
        if (m_dictionaryTrouble.failed(error.what(), Clock::now()))
            m_log(fmt::format("{}; tried again", error.what()));
        return;
    }
    m_unstored.reset();
    if (m_dictionaryTrouble.ended())
        m_log("the dictionary is stored");
    for (const auto& [partition, tenure] : m_tenures)
        tenure.writer->setDictionary(m_dictionaryRevision);
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
    status.troubled = m_troubled;
    status.end = m_end;
    return status;
}

} // namespace tivra_bus
