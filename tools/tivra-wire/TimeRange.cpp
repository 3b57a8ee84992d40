#include "TimeRange.h"

#include "ExitCode.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <ctime>
#include <limits>

namespace tivra_wire {

namespace {

constexpr std::int64_t kSecond = 1000000000;
/// Beyond it, on either side, nanoseconds don't reach.
constexpr double kFarthest = 9.2e9;

std::int64_t sum(std::int64_t left, std::int64_t right) {
    std::int64_t result = 0;
    if (__builtin_add_overflow(left, right, &result))
        return right > 0 ? std::numeric_limits<std::int64_t>::max()
                         : std::numeric_limits<std::int64_t>::min();
    return result;
}

/// Seconds with a fraction, the whole of the text.
bool readSeconds(const char* begin, const char* end, double& seconds) {
    const auto [next, error] = std::from_chars(begin, end, seconds, std::chars_format::fixed);
    return next == end && error == std::errc{} && std::abs(seconds) < kFarthest;
}

bool readMoment(const std::string& text, std::int64_t& nanoseconds) {
    std::tm date{};
    const char* rest = strptime(text.c_str(), "%Y-%m-%dT%H:%M:", &date);
    const std::size_t end = text.size() - (!text.empty() && text.back() == 'Z' ? 1 : 0);
    double seconds = 0.0;
    if (rest == nullptr || !readSeconds(rest, text.c_str() + end, seconds) || seconds < 0.0 ||
        seconds >= 61.0)
        return false;
    const std::time_t minute = timegm(&date);
    if (std::abs(static_cast<double>(minute)) > kFarthest)
        return false;
    nanoseconds = static_cast<std::int64_t>(minute) * kSecond + std::llround(seconds * 1e9);
    return true;
}

} // namespace

TimeRange TimeRange::after(std::int64_t first) const {
    TimeRange range;
    if (begin)
        range.begin = isBeginRelative ? sum(first, *begin) : *begin;
    if (end)
        range.end = isEndRelative ? sum(first, *end) : *end;
    return range;
}

void readTime(const std::string& option, const std::string& text, std::optional<std::int64_t>& nanoseconds,
              bool& isRelative) {
    if (text.empty())
        return;
    double seconds = 0.0;
    std::int64_t moment = 0;
    isRelative = readSeconds(text.data(), text.data() + text.size(), seconds);
    if (isRelative)
        nanoseconds = std::llround(seconds * 1e9);
    else if (readMoment(text, moment))
        nanoseconds = moment;
    else
        throw Failure(ExitCode::Usage,
                      fmt::format("{} \"{}\": seconds after the first message are wanted, or a "
                                  "time like 2026-11-27T02:40:00.5Z",
                                  option, text));
}

std::int64_t firstTime(const tivra_capture::CaptureReader& reader) {
    return reader.blocks().empty() ? 0 : reader.blocks().front().firstNanoseconds;
}

std::string timeText(std::int64_t nanoseconds) {
    std::time_t seconds = nanoseconds / kSecond;
    std::int64_t rest = nanoseconds % kSecond;
    if (rest < 0) {
        rest += kSecond;
        --seconds;
    }
    std::tm date{};
    gmtime_r(&seconds, &date);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:09}Z", date.tm_year + 1900, date.tm_mon + 1,
                       date.tm_mday, date.tm_hour, date.tm_min, date.tm_sec, rest);
}

} // namespace tivra_wire
