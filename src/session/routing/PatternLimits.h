#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace tivra_internal {

/// What a pattern from outside costs the matcher, as a bound on the work and the memory that it can cause
/// when it is compiled and matched. Nothing when that could get out of hand: a pattern of a few bytes can
/// keep `regcomp` or `regexec` busy for hours.
[[nodiscard]] std::optional<std::size_t> patternCost(const std::string& text);

} // namespace tivra_internal
