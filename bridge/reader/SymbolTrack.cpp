#include "reader/SymbolTrack.h"

#include "bus/TimeText.h"

#include <algorithm>
#include <array>

namespace tivra_bus {

namespace {

using tivra::DataState;
using Cause = tivra::BusGap::Cause;
using Kind = tivra::Update::Kind;
using std::chrono::milliseconds;
using std::chrono::system_clock;

constexpr milliseconds kFirstPause{50};
constexpr milliseconds kLongestPause{5000};

DataState stateNamed(const std::string& name) {
    constexpr std::array kNames{
        std::pair("pending", DataState::Pending), std::pair("live", DataState::Live),
        std::pair("stale", DataState::Stale),     std::pair("recovering", DataState::Recovering),
        std::pair("refused", DataState::Refused), std::pair("closed", DataState::Closed)};
    for (const auto& [known, state] : kNames)
        if (name == known)
            return state;
    return DataState::Stale; // whatever it is, it isn't known to be good
}

Cause causeNamed(const std::string& name) {
    constexpr std::array kCauses{Cause::Loss,       Cause::Withdrawal, Cause::Overrun,
                                 Cause::Conflation, Cause::Takeover,   Cause::Overflow};
    for (const Cause cause : kCauses)
        if (name == nameOf(cause))
            return cause;
    return Cause::Missing;
}

Kind kindOf(RecordType type) {
    return type == RecordType::Image     ? Kind::Image
           : type == RecordType::Refresh ? Kind::Refresh
                                         : Kind::Update;
}

system_clock::time_point timeOr(const std::string& text, system_clock::time_point other) {
    return timeOf(text).value_or(other);
}

} // namespace

SymbolTrack::SymbolTrack(tivra::Instrument instrument, std::shared_ptr<SubscriptionState> subscription)
    : m_instrument(std::move(instrument)), m_subscription(std::move(subscription)), m_pause(kFirstPause) {}

bool SymbolTrack::wantsLastValues(milliseconds lookBack, Clock::time_point now) const {
    if (m_kept || now < m_askAfter)
        return false;
    // Of one that goes on the numbers show what is missing; before those of a quiet one are asked for, they
    // have to be as late as what is missing.
    return !m_isJoined || m_isPartial || (m_missed && now - m_missedSince >= lookBack);
}

SymbolTrack::Clock::time_point SymbolTrack::dueAt(milliseconds lookBack) const {
    if (m_kept)
        return {}; // the stream may come to them at any moment
    if (!m_isJoined || m_isPartial)
        return m_askAfter;
    return m_missed ? std::max(m_askAfter, m_missedSince + lookBack) : kSettled;
}

void SymbolTrack::takeLastValues(const LastValues* last, const FieldTypes& types, Clock::time_point now) {
    m_askAfter = now + m_pause;
    m_pause = std::min(m_pause * 2, kLongestPause);
    if (last == nullptr || (last->number == 0 && last->fields.empty()))
        return;
    const RecordPlace place{last->epoch, last->number};
    if (!m_isJoined) {
        if (m_missed)
            tellMissing(place, std::nullopt);
        m_told = stateNamed(last->state);
        replaceByLast(*last, Kind::Image, types);
    } else if (place >= m_place) {
        m_kept = *last;
        m_keptSince = now;
        m_keptTo.reset();
        reach(types);
    }
}

void SymbolTrack::take(const BusRecord& record, const BatchHeader& header, std::uint64_t position,
                       const FieldTypes& types) {
    if (position <= m_readTo)
        return;
    const bool isOfAll = record.symbol.empty();
    const RecordPlace place{header.epoch, isOfAll ? m_place.number : record.number};
    if (place < m_place)
        return;
    if (record.type == RecordType::Gap) {
        takeGap(record, place, position);
    } else if (record.type == RecordType::State) {
        m_told = stateNamed(record.state);
        show(record.cause);
    } else if (place > m_place) {
        takeValues(record, place, header, types);
    }
}

void SymbolTrack::takeGap(const BusRecord& record, const RecordPlace& place, std::uint64_t position) {
    const bool isOfAll = record.symbol.empty();
    if (!m_isJoined)
        return;
    const system_clock::time_point now = system_clock::now();
    tivra::BusGap gap;
    gap.cause = causeNamed(record.gap.cause);
    gap.from = timeOr(record.gap.from, now);
    gap.to = timeOr(record.gap.to, now);
    // Those of a gap of all symbols are of all symbols together.
    if (!isOfAll)
        gap.messages = record.gap.messages;
    gap.bytes = record.gap.bytes;
    if (gap.cause == Cause::Takeover) {
        if (place.epoch == m_place.epoch)
            return; // the last values are of the new bridge
        if (m_missed)
            tellMissing(m_place, std::nullopt);
        m_place = {place.epoch, 0};
        want(true);
    } else if (isOfAll && position <= m_joinEnd) {
        return; // the numbers show whether it concerns what comes after the last values
    }
    tell(gap);
    m_isExcused = true;
    show("something was missed");
}

void SymbolTrack::takeValues(const BusRecord& record, const RecordPlace& place, const BatchHeader& header,
                             const FieldTypes& types) {
    const bool isWhole = record.type != RecordType::Update;
    if (!m_isJoined && !isWhole)
        return;
    if (!m_isJoined && m_missed)
        tellMissing(place, std::nullopt);
    if (m_isJoined) {
        const bool isSameEpoch = place.epoch == m_place.epoch;
        const std::uint64_t missing = place.number - (isSameEpoch ? m_place.number : 0) - 1;
        const bool isTold = m_isExcused && isWhole;
        if (m_missed || !isSameEpoch || (missing > 0 && !isTold))
            tellMissing(place, isSameEpoch ? std::optional(missing) : std::nullopt);
        if ((missing > 0 || !isSameEpoch) && !isWhole)
            want(true);
    }
    m_isExcused = false;
    if (isWhole) {
        want(false);
        m_isJoined = true;
    }
    m_place = place;
    deliver(kindOf(record.type), place, {record.fields, header.time}, types);
    show("");
    reach(types);
}

void SymbolTrack::tellMissing(const RecordPlace& next, std::optional<std::uint64_t> messages) {
    const system_clock::time_point now = system_clock::now();
    tivra::BusGap gap = m_missed.value_or(tivra::BusGap{Cause::Missing, now, now, {}, {}});
    if (!m_missed && next.epoch != m_place.epoch)
        gap.cause = Cause::Takeover; // which stood in what is missing
    gap.to = now;
    gap.messages = messages;
    m_missed.reset();
    tell(gap);
}

void SymbolTrack::reach(const FieldTypes& types) {
    if (!m_kept)
        return;
    const RecordPlace place{m_kept->epoch, m_kept->number};
    if (place > m_place)
        return;
    const LastValues last = std::move(*m_kept);
    m_kept.reset();
    if (place < m_place)
        return; // the stream has gone on over its place
    if (m_missed)
        tellMissing(place, 0);
    if (m_isPartial)
        replaceByLast(last, Kind::Refresh, types);
    else
        show("");
}

void SymbolTrack::settle(std::uint64_t position, const FieldTypes& types) {
    if (!m_kept || !m_keptTo || position < *m_keptTo)
        return;
    const LastValues last = std::move(*m_kept);
    m_kept.reset();
    const RecordPlace place{last.epoch, last.number};
    const bool isSameEpoch = place.epoch == m_place.epoch;
    tellMissing(place, isSameEpoch ? std::optional(place.number - m_place.number) : std::nullopt);
    m_told = stateNamed(last.state);
    replaceByLast(last, Kind::Image, types);
}

void SymbolTrack::replaceByLast(const LastValues& last, Kind kind, const FieldTypes& types) {
    m_isJoined = true;
    m_place = {last.epoch, last.number};
    want(false);
    deliver(kind, m_place, {last.fields, last.time}, types);
    show("");
}

void SymbolTrack::deliver(Kind kind, const RecordPlace& place, const Content& content,
                          const FieldTypes& types) {
    std::vector<tivra::BusUpdate::Entry> entries;
    entries.reserve(content.fields.size());
    for (const auto& [name, value] : content.fields)
        entries.emplace_back(name, types.valueOf(name, value));
    m_subscription->update(kind, {kind, m_instrument, place.epoch, place.number,
                                  timeOr(content.time, system_clock::now()), entries});
}

void SymbolTrack::miss(Cause cause) {
    if (!m_isJoined || m_missed)
        return;
    const system_clock::time_point now = system_clock::now();
    m_missed = tivra::BusGap{cause, now, now, {}, {}};
    m_missedSince = Clock::now();
    m_askAfter = {};
    m_pause = kFirstPause;
    show("something may be missing");
}

void SymbolTrack::beginAnew() {
    miss(Cause::Expired);
    m_isJoined = m_isPartial = m_isExcused = false;
    m_kept.reset();
    m_place = {};
    m_readTo = m_joinEnd = 0;
    show("the stream has begun anew");
}

void SymbolTrack::want(bool isWanted) {
    if (isWanted && !m_isPartial) {
        m_askAfter = Clock::now() + kFirstPause;
        m_pause = kFirstPause;
    }
    m_isPartial = isWanted;
    if (!isWanted)
        m_kept.reset();
}

void SymbolTrack::tell(const tivra::BusGap& gap) {
    m_subscription->gap(m_instrument, gap);
}

void SymbolTrack::setStale(const std::string& cause) {
    m_staleCause = cause;
    show(cause);
}

void SymbolTrack::setBehind(bool isBehind) {
    m_isBehind = isBehind;
    show(isBehind ? "the stream is read from where it was left" : "the stream is read up to its end");
}

DataState SymbolTrack::shown() const {
    if (!m_isJoined)
        return m_told == DataState::Refused ? DataState::Refused : DataState::Pending;
    if (!m_staleCause.empty())
        return DataState::Stale;
    if (m_told == DataState::Live && (m_isBehind || m_isPartial || m_missed))
        return DataState::Recovering;
    return m_told == DataState::Pending ? DataState::Recovering : m_told;
}

void SymbolTrack::show(const std::string& cause) {
    const DataState now = shown();
    if (now == m_shown)
        return;
    tivra::StateChange change;
    change.from = std::exchange(m_shown, now);
    change.to = now;
    change.cause = now == DataState::Stale && !m_staleCause.empty() ? std::string_view(m_staleCause)
                                                                    : std::string_view(cause);
    change.time = system_clock::now();
    m_subscription->changed(m_instrument, change);
}

} // namespace tivra_bus
