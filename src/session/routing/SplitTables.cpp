#include "session/routing/SplitTables.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string>

#include <tp/eprintf.h>

#include "session/routing/PatternLimits.h"

namespace tivra_internal {
namespace {

constexpr std::size_t kMaxPatternsPerSource = 4096;
// Each pattern is bounded; so many of the worst would still take a hub's thread for minutes.
constexpr std::size_t kMaxPatternCost = 4U << 20U;
// The entry that takes every letter without one of its own.
constexpr char kAnyLetter = '[';

bool isUsable(int exch) {
    if (exch >= 0 && exch <= SplitTables::kMaxSplitSource)
        return true;
    eprintf(EPF_WARN, "Source %d cannot be a split source; ignored", exch);
    return false;
}

std::string letterKey(int exch, char letter) {
    return std::to_string(exch) + "," + letter;
}

} // namespace

void SplitTables::addSplitExchange(int exch, HubClient* hub) {
    if (!isUsable(exch))
        return;
    tp::MutexLock lock(m_split_mutex);
    splitPerm_[exch].insert(hub);
}

void SplitTables::addSplitSymbol(int exch, const char* rx, HubClient* hub, const std::string& hubName,
                                 const std::vector<HubClient*>& leaving) {
    if (!isUsable(exch))
        return;
    if (rx == nullptr) {
        eprintf(EPF_CRIT, "Cannot add split symbol with NULL regex for exch=%d hub=%p", exch,
                static_cast<const void*>(hub));
        return;
    }
    tp::MutexLock lock(m_split_mutex);
    const bool isNew = SrcToSplitServByRegex.count(exch) == 0;
    PatternTable& table = SrcToSplitServByRegex[exch];
    const auto found = table.find(rx);
    if (found != table.end()) {
        if (std::find(leaving.begin(), leaving.end(), found->second.mHub) != leaving.end())
            found->second.mHub = hub;
        if (found->second.mHub != hub)
            eprintf(EPF_INFO,
                    "Exch %d already inserted;Existing hub=%p duplicate Exch=%d hub=%p duplicate regex %s",
                    exch, static_cast<const void*>(found->second.mHub), exch, static_cast<const void*>(hub),
                    rx);
        return;
    }
    if (table.size() >= kMaxPatternsPerSource) {
        eprintf(EPF_WARN, "Source %d has %zu patterns; a further one is ignored", exch, table.size());
        return;
    }
    const std::size_t cost = patternCost(rx).value_or(0);
    if (m_patternCost + cost > kMaxPatternCost) {
        eprintf(EPF_WARN,
                "The patterns of all sources are too many or too complex; one of source %d is ignored", exch);
        return;
    }
    m_patternCost += cost;
    if (isNew)
        eprintf(EPF_DBUG, "Inserting [exch %d] regex %s for hub=%s", exch, rx, hubName.c_str());
    else
        eprintf(EPF_DBUG, "Exch %d already inserted;Inserting regex %s for hub=%s", exch, rx,
                hubName.c_str());
    SplitSymRegex& entry = table[rx];
    entry.mRegExpression.set(rx);
    entry.mHub = hub;
}

void SplitTables::addSplitSymbol(int exch, char letter, HubClient* hub, int start_char) {
    if (!isUsable(exch) || start_char < 0)
        return;
    tp::MutexLock lock(m_split_mutex);
    splitServ_[letterKey(exch, letter)] = hub;
    SKIPSPLITLETTERS[static_cast<std::size_t>(exch)] = static_cast<uint32_t>(start_char);
}

bool SplitTables::isSplitSymbol(int exch) const {
    tp::MutexLock lock(m_split_mutex);
    return splitPerm_.count(exch) != 0;
}

HubClient* SplitTables::getHubForSplitSymbol(int exch, const char* symbol) const {
    tp::MutexLock lock(m_split_mutex);
    const auto found = SrcToSplitServByRegex.find(exch);
    if (found == SrcToSplitServByRegex.end())
        return nullptr;
    for (const auto& [text, entry] : found->second) {
        if (!entry.mRegExpression.match(symbol))
            continue;
        eprintf(EPF_DBUG, "Matched regexp %s with sym %s", text.c_str(), symbol);
        return entry.mHub;
    }
    return nullptr;
}

HubClient* SplitTables::getHubForSplitSymbol(int exch, char letter) const {
    tp::MutexLock lock(m_split_mutex);
    auto found = splitServ_.find(letterKey(exch, letter));
    if (found == splitServ_.end())
        found = splitServ_.find(letterKey(exch, kAnyLetter));
    return found == splitServ_.end() ? nullptr : found->second;
}

unsigned SplitTables::skipSplitLetters(int exch) const {
    if (exch < 0 || exch > kMaxSplitSource)
        return 0;
    tp::MutexLock lock(m_split_mutex);
    return SKIPSPLITLETTERS[static_cast<std::size_t>(exch)];
}

std::vector<HubClient*> SplitTables::hubsOf(int exch) const {
    tp::MutexLock lock(m_split_mutex);
    const auto found = splitPerm_.find(exch);
    if (found == splitPerm_.end())
        return {};
    return {found->second.begin(), found->second.end()};
}

bool SplitTables::patternsByHub(int exch, std::map<HubClient*, std::set<std::string>>& patterns) const {
    tp::MutexLock lock(m_split_mutex);
    const auto found = SrcToSplitServByRegex.find(exch);
    if (found == SrcToSplitServByRegex.end())
        return false;
    for (const auto& [text, entry] : found->second)
        patterns[entry.mHub].insert(text);
    return true;
}

void SplitTables::forget(HubClient* hub) {
    tp::MutexLock lock(m_split_mutex);
    // A source that no other hub carries a part of is split no more.
    for (auto source = splitPerm_.begin(); source != splitPerm_.end();) {
        source->second.erase(hub);
        source = source->second.empty() ? splitPerm_.erase(source) : std::next(source);
    }
    for (auto letter = splitServ_.begin(); letter != splitServ_.end();)
        letter = letter->second == hub ? splitServ_.erase(letter) : std::next(letter);
    for (auto& [source, table] : SrcToSplitServByRegex) {
        for (auto pattern = table.begin(); pattern != table.end();) {
            if (pattern->second.mHub != hub) {
                ++pattern;
                continue;
            }
            m_patternCost -= patternCost(pattern->first.c_str()).value_or(0);
            pattern = table.erase(pattern);
        }
    }
    for (auto table = SrcToSplitServByRegex.begin(); table != SrcToSplitServByRegex.end();)
        table = table->second.empty() ? SrcToSplitServByRegex.erase(table) : std::next(table);
}

void SplitTables::clear() {
    tp::MutexLock lock(m_split_mutex);
    SrcToSplitServByRegex.clear();
    m_patternCost = 0;
    splitServ_.clear();
    splitPerm_.clear();
    SKIPSPLITLETTERS.fill(0);
}

} // namespace tivra_internal
