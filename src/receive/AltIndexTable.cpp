#include "receive/AltIndexTable.h"

#include <algorithm>

#include <tp/eprintf.h>

#include "kvnparse/NumericText.h"

namespace tivra_internal {

const std::string& AltIndexTable::tickerKey(int source, std::string_view symbol) {
    char number[KVNAPI::kNumberTextMax];
    const char* const end = KVNAPI::i64toa(number, source);
    m_tickerKey.assign(number, static_cast<std::size_t>(end - number));
    m_tickerKey += ',';
    m_tickerKey += symbol;
    return m_tickerKey;
}

std::string AltIndexTable::identifierKey(const AltIndexInfo& info) {
    return std::to_string(info.kvnid) + '=' + info.value;
}

bool AltIndexTable::setAltIndexForTicker(int source, std::string_view symbol, const AltIndexInfo& info) {
    const std::string& ticker = tickerKey(source, symbol);
    std::string identifier = identifierKey(info);
    const bool fits = (symAltIdMap.size() < m_maxKeys || symAltIdMap.count(ticker) != 0) &&
                      (altIdSymMap.size() < m_maxKeys || altIdSymMap.count(identifier) != 0);
    if (!fits)
        return false;

    std::vector<AltIndexInfo>& known = symAltIdMap[ticker];
    const bool isKnown = std::any_of(known.begin(), known.end(),
                                     [&](const AltIndexInfo& entry) { return entry.kvnid == info.kvnid; });
    if (!isKnown)
        known.push_back(info);
    altIdSymMap[std::move(identifier)].insert(ticker);
    m_altIndexInUse = true;
    return true;
}

const std::vector<AltIndexInfo>* AltIndexTable::getAltIndexForTicker(int source, std::string_view symbol) {
    const auto entry = symAltIdMap.find(tickerKey(source, symbol));
    return entry != symAltIdMap.end() ? &entry->second : nullptr;
}

void AltIndexTable::unsetAltIndexForTicker(const std::vector<AltIndexInfo>& identifiers,
                                           const std::string& hub) {
    if (!m_altIndexInUse) {
        eprintf(EPF_DBUG, "%s: No alt index in use", hub.c_str());
        return;
    }
    for (const AltIndexInfo& info : identifiers) {
        const std::string identifier = identifierKey(info);
        const auto entry = altIdSymMap.find(identifier);
        if (entry == altIdSymMap.end()) {
            eprintf(EPF_DBUG, "%s: %s not found", hub.c_str(), identifier.c_str());
            continue;
        }
        for (const std::string& ticker : entry->second) {
            eprintf(EPF_DBUG, "%s: Erasing symAltIdMap[%s]", hub.c_str(), ticker.c_str());
            symAltIdMap.erase(ticker);
        }
        altIdSymMap.erase(entry);
    }
    if (!symAltIdMap.empty())
        return;
    m_altIndexInUse = false;
    if (!altIdSymMap.empty())
        eprintf(EPF_DBUG, "symAltIdMap is empty but altIdSymMap has %zu entries", altIdSymMap.size());
}

} // namespace tivra_internal
