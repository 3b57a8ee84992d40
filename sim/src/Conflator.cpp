#include "Conflator.h"

#include "tivra_sim/Tokens.h"
#include "tivra_sim/Wire.h"

#include <algorithm>

namespace tivra_sim {

namespace {

/// How long a client that is behind is spared, unless it has named an interval for that.
constexpr std::chrono::milliseconds kJustInTimePace{100};

bool isMergeable(std::string_view body, FrameKind kind) {
    return kind != FrameKind::System && findValue(body, token::TRADE_PRICE).empty() &&
           findValue(body, token::REFRESH).empty();
}

} // namespace

void Conflator::setType(std::int64_t type, std::int64_t percent) {
    m_type = type;
    m_threshold = percent;
    m_isBehind = false;
}

bool Conflator::report(std::int64_t percent) {
    const bool before = m_isBehind;
    m_isBehind = isJustInTimeType() && percent >= m_threshold;
    return m_isBehind != before;
}

bool Conflator::isMerging() const {
    if (m_type == kJustInTime)
        return m_isBehind;
    return m_interval.count() > 0 && (m_isBehind || !isJustInTimeType());
}

void Conflator::append(const Merged& merged, OutputQueue& output) {
    Record record;
    for (const auto& [token, value] : merged.pairs)
        record.add(token, value);
    output.append(encodeFrame(record.body()), merged.kind);
}

void Conflator::update(const SymbolEntry& entry, std::string_view body, FrameKind kind, OutputQueue& output,
                       Clock::time_point now) {
    const bool isMerged = isMerging() && isMergeable(body, kind);
    const auto waiting = m_waiting.find(&entry);
    if (waiting != m_waiting.end() && !isMerged) {
        append(waiting->second, output);
        m_waiting.erase(waiting);
    }
    if (!isMerged) {
        output.append(encodeFrame(body), kind);
        return;
    }
    if (m_waiting.empty())
        m_due = now + (m_type == kJustInTime ? kJustInTimePace : m_interval);
    Merged& merged = m_waiting[&entry];
    merged.kind = kind;
    for (const Pair& pair : splitPairs(body)) {
        const auto known = std::find_if(merged.pairs.begin(), merged.pairs.end(),
                                        [&pair](const auto& other) { return other.first == pair.token; });
        if (known != merged.pairs.end())
            known->second = pair.value;
        else
            merged.pairs.emplace_back(pair.token, pair.value);
    }
}

bool Conflator::holdsPlayback() const {
    return std::any_of(m_waiting.begin(), m_waiting.end(),
                       [](const auto& entry) { return entry.second.kind == FrameKind::Playback; });
}

void Conflator::release(OutputQueue& output, Clock::time_point now) {
    if (isMerging() && now < m_due)
        return;
    for (const auto& entry : m_waiting)
        append(entry.second, output);
    m_waiting.clear();
}

} // namespace tivra_sim
