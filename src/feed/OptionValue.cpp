#include "feed/OptionValue.h"

#include <charconv>
#include <cstdint>
#include <optional>
#include <utility>

#include <feed/Error.h>

namespace tivra_internal {
namespace {

using tivra::Error;

constexpr long kMillisecondsPerSecond = 1000;
/// What a hostile file gives may be of any length.
constexpr std::size_t kLongestShown = 80;

[[nodiscard]] std::optional<long> wholeOf(std::string_view text) {
    long value = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (fault != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

[[noreturn]] void refuseValue(std::string_view name, std::string_view text, std::string advice) {
    refuseOption(quoted(text).append(" is no value for ").append(name), std::move(advice));
}

void checkRange(std::string_view name, std::string_view text, long value, const OptionRange& range) {
    if (value >= range.minimum && value <= range.maximum)
        return;
    std::string wanted = "give ";
    wanted.append(std::to_string(range.minimum));
    if (range.maximum == std::numeric_limits<long>::max())
        wanted.append(" or more");
    else
        wanted.append(" to ").append(std::to_string(range.maximum));
    refuseOption(quoted(text).append(" is out of the range of ").append(name), std::move(wanted));
}

} // namespace

void refuseOption(std::string cause, std::string advice) {
    throw Error({Error::Code::InvalidOption, Error::Phase::Options, std::move(cause), std::move(advice), "",
                 0, "", 0});
}

std::string quoted(std::string_view text) {
    std::string result(1, '"');
    result.append(text.substr(0, kLongestShown)).append(text.size() > kLongestShown ? "..." : "");
    result.push_back('"');
    return result;
}

bool parseBool(std::string_view name, std::string_view text) {
    if (text == "true" || text == "1")
        return true;
    if (text == "false" || text == "0")
        return false;
    refuseValue(name, text, "give true or false");
}

long parseWhole(std::string_view name, std::string_view text, const OptionRange& range) {
    const std::optional<long> value = wholeOf(text);
    if (!value)
        refuseValue(name, text, "give a whole number");
    checkRange(name, text, *value, range);
    return *value;
}

std::chrono::milliseconds parseTime(std::string_view name, std::string_view text, const OptionRange& range) {
    std::string_view digits = text;
    long unit = 1;
    if (digits.size() > 2 && digits.substr(digits.size() - 2) == "ms") {
        digits.remove_suffix(2);
    } else if (!digits.empty() && digits.back() == 's') {
        digits.remove_suffix(1);
        unit = kMillisecondsPerSecond;
    }
    const std::optional<long> value = wholeOf(digits);
    if (!value)
        refuseValue(name, text, "give milliseconds, or seconds with an s");
    long milliseconds = 0;
    if (__builtin_mul_overflow(*value, unit, &milliseconds))
        milliseconds = *value < 0 ? std::numeric_limits<long>::min() : std::numeric_limits<long>::max();
    checkRange(name, text, milliseconds, range);
    return std::chrono::milliseconds(milliseconds);
}

void checkHost(std::string_view host) {
    const std::size_t colon = host.rfind(':');
    const std::string_view digits =
        colon == std::string_view::npos ? std::string_view() : host.substr(colon + 1);
    std::uint16_t port = 0;
    const auto [end, fault] = std::from_chars(digits.data(), digits.data() + digits.size(), port);
    if (host.find(':') != colon || host.find('[') != std::string_view::npos)
        refuseOption(quoted(host).append(" is an IPv6 address"),
                     "give an IPv4 address: hubs name themselves and each other by those alone");
    if (colon == 0 || fault != std::errc() || end != digits.data() + digits.size() || port == 0)
        refuseOption(quoted(host).append(" names no hub"), "give host:port, with a port from 1 to 65535");
}

} // namespace tivra_internal
