#include "ChaosLedger.h"

#include <algorithm>

#include <tivra_sim/Tokens.h>

namespace chaos {

void Ledger::note(const tivra::MessageEvent& event) {
    if (event.getType() != tivra::MessageEvent::UPDATE)
        return;
    const SeenMessage update(event);
    const std::string number = update.field(tivra_sim::token::SEQUENCE);
    if (number.empty())
        return;
    const std::int64_t sequence = std::stoll(number);
    const std::string hub = update.field(tivra_sim::token::BID);
    const std::lock_guard lock(m_mutex);
    ++m_updates;
    Line& line = m_lines[{update.symbol, hub}];
    if (sequence <= line.last && m_disorder.empty())
        m_disorder =
            update.symbol + " of hub " + hub + ": " + number + " behind " + std::to_string(line.last);
    line.gaps += line.last >= 0 && sequence > line.last + 1;
    line.last = sequence;
}

std::int64_t Ledger::lastOf(const std::string& symbol) const {
    const std::lock_guard lock(m_mutex);
    std::int64_t last = -1;
    for (auto line = m_lines.lower_bound({symbol, ""}); line != m_lines.end() && line->first.first == symbol;
         ++line)
        last = std::max(last, line->second.last);
    return last;
}

std::string Ledger::disorder() const {
    const std::lock_guard lock(m_mutex);
    return m_disorder;
}

Ledger::Gaps Ledger::settleGaps(const std::string& excepted, std::size_t allowed) {
    const std::lock_guard lock(m_mutex);
    Gaps most;
    for (const auto& [key, line] : m_lines) {
        if (key.first != excepted)
            most = std::max(most, {line.gaps, key.first + " of hub " + key.second});
    }
    if (most.count <= allowed) {
        for (auto& [key, line] : m_lines)
            line.gaps = 0;
    }
    return most;
}

std::size_t Ledger::updates() const {
    const std::lock_guard lock(m_mutex);
    return m_updates;
}

} // namespace chaos
