#pragma once

#include <string>

namespace tivra_internal {

/// The version of a hub; -1 for a part that could not be read.
struct HubVersion {
    int major = 0;
    int minor = 0;

    /// "Above 7.3" and the like: a later major version is above every minor one.
    [[nodiscard]] constexpr bool isAbove(int otherMajor, int otherMinor) const noexcept {
        return major > otherMajor || (major == otherMajor && minor > otherMinor);
    }
    friend constexpr bool operator==(const HubVersion&, const HubVersion&) = default;
};

/// Reads a dotted version with or without a leading "V"; a part without a dot behind it is -1 and logged.
[[nodiscard]] HubVersion parseHubVersion(const std::string& text);

} // namespace tivra_internal
