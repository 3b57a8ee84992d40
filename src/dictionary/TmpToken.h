#pragma once

#include <algorithm>
#include <cstddef>
#include <string>

namespace tivra_internal {

/// One raw row of a dictionary download: text only, until it is turned into a MetaToken.
struct TmpToken {
    /// One byte more than a name may have, so that the dictionary still refuses a name that is too long.
    static constexpr std::size_t kMaxName = 65;
    static constexpr std::size_t kMaxType = 64;

    void setTokenName(const char* text, std::size_t length) {
        tokName.assign(text, std::min(length, kMaxName));
    }
    void setKVNType(const char* text, std::size_t length) {
        tokType.assign(text, std::min(length, kMaxType));
    }
    void setTokenLength(std::size_t length) noexcept { tokLen = length; }

    [[nodiscard]] const std::string& getTokenName() const noexcept { return tokName; }
    [[nodiscard]] const std::string& getKVNType() const noexcept { return tokType; }
    [[nodiscard]] std::size_t getTokenLength() const noexcept { return tokLen; }

    std::string tokName;
    std::string tokType;
    std::size_t tokLen = 0;
};

} // namespace tivra_internal
