#pragma once

#include "HubDictionary.h"
#include "Options.h"

#include "kvnparse/DataMap.h"

#include <string>
#include <string_view>
#include <vector>

namespace tivra_wire {

/// The tokens of a hub and of some map files.
class Dictionary {
public:
    /// Those that every hub has, those of the hub that the options name, if any, and behind them the files.
    /// Throws Failure: with ExitCode::Usage, the file and the line for what can't be loaded.
    explicit Dictionary(const Options& options);

    [[nodiscard]] KVNAPI::DataMap& map() { return m_map; }
    /// By name or number, and a text of digits is always a number, as it is for the parsers; null when there
    /// is none.
    [[nodiscard]] KVNAPI::Token* find(const std::string& nameOrNumber) const;
    [[nodiscard]] static bool isNumber(std::string_view text);

private:
    void add(const std::vector<HubToken>& tokens);
    [[nodiscard]] bool addToken(std::int64_t number, const std::string& name, std::string_view typeWord);
    void load(const std::string& file);

    KVNAPI::DataMap m_map;
};

} // namespace tivra_wire
