#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <tp/Mutex.h>

#include "request/SourceNumbers.h"
#include "session/routing/RegExpression.h"

namespace tivra_internal {

class HubClient;

/// The sources whose symbols are divided among several hubs. Written by the hubs' conversations, read by
/// routing.
/// @thread any; a hub named here lives until the session stops
class SplitTables {
public:
    /// Sources that the tables can hold are 0 to this one.
    static constexpr int kMaxSplitSource = kFirstNewsSource;

    void addSplitExchange(int exch, HubClient* hub);
    /// `hubName` stands in the log. A pattern that a hub of `leaving` offered first becomes this hub's.
    void addSplitSymbol(int exch, const char* rx, HubClient* hub, const std::string& hubName,
                        const std::vector<HubClient*>& leaving = {});
    void addSplitSymbol(int exch, char letter, HubClient* hub, int start_char);

    [[nodiscard]] bool isSplitSymbol(int exch) const;
    /// The hub whose pattern takes the symbol; null when none does.
    [[nodiscard]] HubClient* getHubForSplitSymbol(int exch, const char* symbol) const;
    /// The hub of the deciding letter of the symbol; null when no entry takes it.
    [[nodiscard]] HubClient* getHubForSplitSymbol(int exch, char letter) const;
    /// Position in the symbol of the letter that decides.
    [[nodiscard]] unsigned skipSplitLetters(int exch) const;
    /// The hubs that carry a part of the source.
    [[nodiscard]] std::vector<HubClient*> hubsOf(int exch) const;
    /// The patterns of a source by hub; false when the source has no pattern table.
    [[nodiscard]] bool patternsByHub(int exch, std::map<HubClient*, std::set<std::string>>& patterns) const;

    /// The hub has left the session.
    void forget(HubClient* hub);
    void clear();

private:
    struct SplitSymRegex {
        RegExpression mRegExpression;
        HubClient* mHub = nullptr;
    };
    using PatternTable = std::map<std::string, SplitSymRegex>;

    mutable tp::Mutex m_split_mutex;
    std::map<int, std::set<HubClient*>> splitPerm_ TP_GUARDED_BY(m_split_mutex);
    std::size_t m_patternCost TP_GUARDED_BY(m_split_mutex) = 0; ///< of all patterns together
    std::map<std::string, HubClient*> splitServ_ TP_GUARDED_BY(m_split_mutex);
    std::map<int, PatternTable> SrcToSplitServByRegex TP_GUARDED_BY(m_split_mutex);
    std::array<uint32_t, kMaxSplitSource + 1> SKIPSPLITLETTERS TP_GUARDED_BY(m_split_mutex){};
};

} // namespace tivra_internal
