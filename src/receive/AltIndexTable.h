#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "request/AltIndexInfo.h"

namespace tivra_internal {

/// Which alternate identifiers the tickers of one hub have been subscribed by: from ticker to identifiers for
/// every message, and back for an unsubscribe. Owned and used by one read handler.
/// @thread user
class AltIndexTable {
public:
    /// An application may not fill the memory with identifiers.
    static constexpr std::size_t kMaxKeys = 1'000'000;

    explicit AltIndexTable(std::size_t maxKeys = kMaxKeys) noexcept : m_maxKeys(maxKeys) {}

    /// False while no ticker has an identifier; tested once per message.
    [[nodiscard]] bool inUse() const noexcept { return m_altIndexInUse; }

    /// Remembers an identifier of a ticker; the first value of a token stays. False when the table is full.
    [[nodiscard]] bool setAltIndexForTicker(int source, std::string_view symbol, const AltIndexInfo& info);

    /// The identifiers of a ticker, null when it has none. Valid until the table changes.
    [[nodiscard]] const std::vector<AltIndexInfo>* getAltIndexForTicker(int source, std::string_view symbol);

    /// Forgets the tickers of each of these identifiers, with all identifiers of those tickers.
    /// @param hub  named in log lines
    void unsetAltIndexForTicker(const std::vector<AltIndexInfo>& identifiers, const std::string& hub);

private:
    using SymAltIdMapType = std::unordered_map<std::string, std::vector<AltIndexInfo>>;
    using AltIdSymMapType = std::unordered_map<std::string, std::unordered_set<std::string>>;

    /// The source in decimal, a comma, and the symbol; built where the last key stood.
    const std::string& tickerKey(int source, std::string_view symbol);
    /// The token number in decimal, "=", and the value.
    [[nodiscard]] static std::string identifierKey(const AltIndexInfo& info);

    const std::size_t m_maxKeys;
    bool m_altIndexInUse = false;
    SymAltIdMapType symAltIdMap; ///< by ticker key
    AltIdSymMapType altIdSymMap; ///< by identifier key; holds ticker keys
    std::string m_tickerKey;     ///< kept so that a look-up allocates nothing
};

} // namespace tivra_internal
