#pragma once

#include <cstddef>
#include <string_view>

namespace tivra_internal {

/// Whether a text matches a pattern of "*" for any characters, "?" for one, and characters for themselves.
[[nodiscard]] constexpr bool matchesWildcard(std::string_view pattern, std::string_view text) noexcept {
    std::size_t at = 0;
    std::size_t star = std::string_view::npos; // the last one met, and what it stands for up to `behind`
    std::size_t behind = 0;
    std::size_t next = 0;
    while (next < text.size()) {
        if (at < pattern.size() && pattern[at] == '*') {
            star = at++;
            behind = next;
        } else if (at < pattern.size() && (pattern[at] == '?' || pattern[at] == text[next])) {
            ++at;
            ++next;
        } else if (star != std::string_view::npos) {
            at = star + 1;
            next = ++behind;
        } else {
            return false;
        }
    }
    while (at < pattern.size() && pattern[at] == '*')
        ++at;
    return at == pattern.size();
}

} // namespace tivra_internal
