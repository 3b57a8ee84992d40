#include "reader/PartitionReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <iterator>

namespace tivra_bus {

namespace {

using Cause = tivra::BusGap::Cause;
using std::chrono::seconds;

/// A consumer gives a sign of life each second.
constexpr seconds kSilence{4};
/// Messages that a reader may be behind and still be said to be at the end, since there is always one on its
/// way.
constexpr std::uint64_t kNearEnd = 16;

} // namespace

void PartitionReader::add(std::unique_ptr<SymbolTrack> track) {
    m_needsStart = true;
    m_joining.push_back(track.get());
    change(*track, [](const SymbolTrack&) {});
    const tivra::Instrument& instrument = track->instrument();
    m_tracks[{instrument.source, instrument.symbol}].push_back(std::move(track));
}

bool PartitionReader::dropClosed() {
    const auto isClosed = [](const auto& track) { return track->isClosed(); };
    // They stay until nothing points to them: others may be closed at any moment.
    std::vector<std::unique_ptr<SymbolTrack>> dropped;
    for (auto each = m_tracks.begin(); each != m_tracks.end();) {
        auto& tracks = each->second;
        const auto closed = std::stable_partition(tracks.begin(), tracks.end(), std::not_fn(isClosed));
        std::move(closed, tracks.end(), std::back_inserter(dropped));
        tracks.erase(closed, tracks.end());
        each = tracks.empty() ? m_tracks.erase(each) : std::next(each);
    }
    std::erase_if(m_joining, isClosed);
    std::erase_if(m_unsettled, isClosed);
    return m_tracks.empty();
}

void PartitionReader::forEach(const std::function<void(SymbolTrack&)>& call) {
    for (const auto& [key, tracks] : m_tracks)
        for (const auto& track : tracks)
            change(*track, call);
}

void PartitionReader::missAll(Cause cause) {
    forEach([cause](SymbolTrack& track) { track.miss(cause); });
}

bool PartitionReader::needsStart(Clock::time_point now) const {
    return m_trouble.isDue(now) && (m_needsStart || m_pulse->isSilent(kSilence));
}

bool PartitionReader::attempt(const std::function<void()>& action) {
    try {
        action();
    } catch (const BusError& error) {
        const std::string text = fmt::format("partition {}: {}", m_partition, error.what());
        if (m_trouble.failed(text, Clock::now()))
            m_around.onProblem({tivra::BusProblem::Kind::Engine, static_cast<int>(m_partition), 0,
                                text + "; it is tried again"});
        return false;
    }
    return true;
}

void PartitionReader::prepare() {
    m_span = m_around.source.spanOf(m_partition);
    if (std::max(m_highest, m_beginning) > m_span->last) { // it was deleted, or a server has lost its end
        forEach([](SymbolTrack& track) { track.beginAnew(); });
        m_position = m_highest = m_epoch = m_batch = 0;
        m_recent.clear();
        m_hasBegun = false;
    }
    if (!std::exchange(m_hasBegun, true))
        beginAt(*m_span);
    for (SymbolTrack* const track : m_joining)
        track->joinAt(m_span->last);
}

void PartitionReader::beginAt(const StreamSpan& span) {
    m_beginning = span.last;
    if (span.first > span.last || span.last == 0)
        m_firstStart = span.last + 1;
    else
        m_firstStart = span.lastTime - m_around.lookBack;
}

StreamStart PartitionReader::startOf(Clock::time_point now) {
    if (m_highest == 0)
        return m_firstStart;
    std::uint64_t next = m_position + 1;
    forEach([this](SymbolTrack& track) { track.hasRead(m_position); });
    for (SymbolTrack* const track : m_joining)
        track->beginReading();
    while (!m_recent.empty() && now - m_recent.front().first > m_around.lookBack)
        m_recent.pop_front();
    if (!m_joining.empty() && !m_recent.empty())
        next = std::min(next, m_recent.front().second);
    return next;
}

void PartitionReader::start(Clock::time_point now) {
    if (!m_span)
        return;
    const StreamStart start = startOf(now);
    const std::uint64_t first = m_span->first;
    m_span.reset();
    m_joining.clear();
    if (m_generation > 0)
        m_around.counters.restarts.fetch_add(1, std::memory_order_relaxed);
    const std::uint64_t generation = ++m_generation;
    m_consumer.reset();
    m_order = 0;
    if (const auto* const position = std::get_if<std::uint64_t>(&start))
        m_position = *position - 1;
    // The engine only says so itself when something comes.
    if (first > 0)
        passTo(first - 1);
    // Until it is there, it is to be started.
    m_needsStart = true;
    // Nothing of this object: the engine's thread may still be in it when this is gone.
    m_pulse = std::make_shared<ConsumerPulse>();
    m_consumer = m_around.source.follow(m_partition, start,
                                        [onMessage = m_around.onMessage, partition = m_partition, generation,
                                         pulse = m_pulse](StreamMessage&& message) {
                                            const ConsumerPulse::Beat beat(*pulse);
                                            if (message.position > 0)
                                                onMessage(partition, generation, std::move(message));
                                        });
    m_needsStart = false;
    (void)m_trouble.ended();
    setBehind(m_consumer->behind());
}

void PartitionReader::lose() {
    m_consumer.reset();
    m_needsStart = true;
    (void)m_trouble.ended();
    if (m_isBehind)
        return;
    m_isBehind = true;
    forEach([](SymbolTrack& track) { track.setBehind(true); });
}

void PartitionReader::setBehind(std::uint64_t behind) {
    if (behind <= kNearEnd && std::exchange(m_isBehind, false))
        forEach([](SymbolTrack& track) { track.setBehind(false); });
}

void PartitionReader::addWanting(std::vector<SymbolTrack*>& tracks, Clock::time_point now) const {
    if (now < m_lookAt)
        return;
    for (SymbolTrack* const track : m_unsettled)
        if (track->wantsLastValues(m_around.lookBack, now))
            tracks.push_back(track);
}

bool PartitionReader::needsBound(Clock::time_point now) const {
    return now >= m_lookAt && m_consumer != nullptr && m_trouble.isDue(now) &&
           std::any_of(m_unsettled.begin(), m_unsettled.end(),
                       [&](const SymbolTrack* track) { return track->wantsBound(m_around.lookBack, now); });
}

void PartitionReader::bound(Clock::time_point now) {
    const std::uint64_t end = m_around.source.spanOf(m_partition).last;
    for (SymbolTrack* const track : m_unsettled)
        if (track->wantsBound(m_around.lookBack, now))
            track->boundAt(end);
}

void PartitionReader::settle(Clock::time_point now) {
    if (now < m_lookAt)
        return;
    m_lookAt = SymbolTrack::kSettled;
    std::erase_if(m_unsettled, [this](SymbolTrack* track) {
        track->settle(m_position, *m_types);
        const Clock::time_point due = track->dueAt(m_around.lookBack);
        m_lookAt = std::min(m_lookAt, due);
        track->setLookedAt(due != SymbolTrack::kSettled);
        return due == SymbolTrack::kSettled;
    });
}

void PartitionReader::passTo(std::uint64_t position) {
    if (position > std::max({m_position, m_highest, m_beginning})) {
        missAll(Cause::Expired);
        m_hasMissed = true;
    }
    m_position = std::max(m_position, position);
}

void PartitionReader::take(const StreamMessage& message, std::uint64_t generation, Clock::time_point now) {
    if (generation != m_generation || !m_consumer)
        return;
    if (message.order != m_order + 1) {
        // The client library had no room, or the connection was lost: the stream still has it.
        m_needsStart = true;
        m_consumer.reset();
        return;
    }
    m_order = message.order;
    passTo(message.position - 1);
    m_position = message.position;
    read(message);
    m_highest = std::max(m_highest, m_position);
    m_recent.emplace_back(now, m_position);
    while (now - m_recent.front().first > m_around.lookBack)
        m_recent.pop_front();
    setBehind(message.behind);
}

bool PartitionReader::isNew(const BatchHeader& header, std::uint64_t position) {
    if (position <= m_highest)
        return true; // read again, for those who weren't there
    const auto place = std::pair(header.epoch, header.batch);
    if (place <= std::pair(m_epoch, m_batch)) {
        m_around.counters.duplicates.fetch_add(1, std::memory_order_relaxed);
        return false;
    }
    if (!std::exchange(m_hasMissed, false) && m_epoch > 0 &&
        header.batch != (header.epoch == m_epoch ? m_batch + 1 : 1))
        missAll(Cause::Missing);
    m_epoch = header.epoch;
    m_batch = header.batch;
    return true;
}

void PartitionReader::read(const StreamMessage& message) {
    m_around.counters.batches.fetch_add(1, std::memory_order_relaxed);
    try {
        BatchReader reader(message.bytes, m_decoder);
        const BatchHeader& header = reader.header();
        if (header.partition != m_partition)
            throw BatchError(fmt::format("a batch, line 1: it is of partition {}", header.partition));
        if (!isNew(header, message.position))
            return;
        m_types = &m_around.typesOf(header.dictionary);
        readRecords(reader, message.position);
    } catch (const BatchError& error) {
        tellUnreadable(error, message.position);
        m_hasMissed = true;
        // Who has read it before has it.
        forEach([&message](SymbolTrack& track) { track.missAt(Cause::Unreadable, message.position); });
    }
}

void PartitionReader::readRecords(BatchReader& reader, std::uint64_t position) {
    const auto isWanted = [this](int source, std::string_view symbol) {
        return m_tracks.find(Look{source, symbol}) != m_tracks.end();
    };
    bool isTold = false;
    BusRecord record;
    for (;;) {
        try {
            if (!reader.next(record, isWanted))
                return;
            dispatch(record, reader.header(), position, *m_types);
        } catch (const BodyError& error) {
            if (!std::exchange(isTold, true))
                tellUnreadable(error, position);
            const auto found = m_tracks.find(Look{record.source, record.symbol});
            if (found != m_tracks.end())
                for (const auto& track : found->second)
                    change(*track, [&](SymbolTrack& each) { each.missAt(Cause::Unreadable, position); });
        }
    }
}

void PartitionReader::tellUnreadable(const BatchError& error, std::uint64_t position) {
    m_around.onProblem({tivra::BusProblem::Kind::Batch, static_cast<int>(m_partition), position,
                        fmt::format("partition {}, message {}: {}: what it holds is left out", m_partition,
                                    position, error.what())});
}

void PartitionReader::dispatch(const BusRecord& record, const BatchHeader& header, std::uint64_t position,
                               const FieldTypes& types) {
    if (record.type == RecordType::Gap && record.symbol.empty()) {
        forEach([&](SymbolTrack& track) { track.take(record, header, position, types); });
        return;
    }
    const auto found = m_tracks.find(Look{record.source, record.symbol});
    if (found != m_tracks.end())
        for (const auto& track : found->second)
            change(*track, [&](SymbolTrack& each) { each.take(record, header, position, types); });
}

} // namespace tivra_bus
