#pragma once

#include <chrono>
#include <limits>
#include <string>
#include <string_view>

namespace tivra_internal {

/// The values between which a number may be; as it stands, any.
struct OptionRange {
    long minimum = std::numeric_limits<long>::min();
    long maximum = std::numeric_limits<long>::max();
};

/// @throws tivra::Error (InvalidOption)
[[noreturn]] void refuseOption(std::string cause, std::string advice = {});

[[nodiscard]] std::string quoted(std::string_view text);

// The value that a text stands for. Each throws tivra::Error (InvalidOption), with the name in it, for one
// that can't be meant.
[[nodiscard]] bool parseBool(std::string_view name, std::string_view text);
[[nodiscard]] long parseWhole(std::string_view name, std::string_view text, const OptionRange& range);
/// "250" and "250ms" are milliseconds, "5s" seconds.
[[nodiscard]] std::chrono::milliseconds parseTime(std::string_view name, std::string_view text,
                                                  const OptionRange& range);
/// "host:port" with both in it. @throws tivra::Error (InvalidOption)
void checkHost(std::string_view host);

} // namespace tivra_internal
