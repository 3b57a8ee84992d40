#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>

namespace tivra_python {

/// Which messages of a file are wanted.
struct RowFilter {
    std::unordered_set<std::string> symbols; ///< empty for all
    /// Nanoseconds since 1970-01-01 00:00 UTC: from the first on, and before the second.
    std::optional<std::int64_t> start;
    std::optional<std::int64_t> end;

    [[nodiscard]] bool takes(std::int64_t received) const {
        return (!start || received >= *start) && (!end || received < *end);
    }
    [[nodiscard]] bool takes(std::string_view symbol) const {
        return symbols.empty() || symbols.count(std::string(symbol)) != 0;
    }
};

} // namespace tivra_python
