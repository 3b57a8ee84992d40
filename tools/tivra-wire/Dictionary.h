#ifndef TIVRA_WIRE_DICTIONARY_H
#define TIVRA_WIRE_DICTIONARY_H

#include "kvnparse/DataMap.h"

#include <string>
#include <string_view>
#include <vector>

namespace tivra_wire {

/// The tokens of some map files.
class Dictionary {
public:
    /// Throws Failure with ExitCode::Usage, and the file and line, for what can't be loaded.
    explicit Dictionary(const std::vector<std::string>& files);

    [[nodiscard]] KVNAPI::DataMap& map() { return m_map; }
    /// By name or number, and a text of digits is always a number, as it is for the parsers; null when there
    /// is none.
    [[nodiscard]] KVNAPI::Token* find(const std::string& nameOrNumber) const;
    [[nodiscard]] static bool isNumber(std::string_view text);

private:
    void load(const std::string& file);

    KVNAPI::DataMap m_map;
};

} // namespace tivra_wire

#endif
