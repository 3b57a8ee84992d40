#include "bus/TimeText.h"

#include <charconv>

namespace tivra_bus {

namespace {

/// Reads digits from the front of `text`, and what follows them.
bool take(std::string_view& text, std::size_t least, std::string_view after, int& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const auto length = static_cast<std::size_t>(end - text.data());
    if (error != std::errc() || length < least || text.substr(length, after.size()) != after)
        return false;
    text.remove_prefix(length + after.size());
    return true;
}

} // namespace

std::optional<std::chrono::system_clock::time_point> timeOf(std::string_view text) {
    using namespace std::chrono;
    int years = 0, months = 0, days = 0, hour = 0, minute = 0, second = 0, micros = 0;
    if (!take(text, 4, "-", years) || !take(text, 2, "-", months) || !take(text, 2, "T", days) ||
        !take(text, 2, ":", hour) || !take(text, 2, ":", minute) || !take(text, 2, ".", second) ||
        !take(text, 6, "Z", micros) || !text.empty())
        return std::nullopt;
    const year_month_day date(year(years), month(static_cast<unsigned>(months)),
                              day(static_cast<unsigned>(days)));
    // Beyond these years the clock has no such time.
    if (!date.ok() || years < 1700 || years > 2260)
        return std::nullopt;
    return sys_days(date) + hours(hour) + minutes(minute) + seconds(second) + microseconds(micros);
}

} // namespace tivra_bus
