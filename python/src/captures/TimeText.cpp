#include "captures/TimeText.h"

#include <chrono>
#include <cstring>

namespace tivra_python {
namespace {

constexpr std::int64_t kSecond = 1'000'000'000;

/// The last `width` digits, up to `end`.
void putDigits(char* end, int width, std::uint32_t value) noexcept {
    for (; width > 0; --width) {
        *--end = static_cast<char>('0' + value % 10);
        value /= 10;
    }
}

} // namespace

TimeText::TimeText(char separator) noexcept {
    std::memcpy(m_text, "0000-00-00 00:00:00.000000000Z", kLength);
    m_text[10] = separator;
}

const char* TimeText::of(std::int64_t nanoseconds) noexcept {
    std::int64_t second = nanoseconds / kSecond;
    std::int64_t rest = nanoseconds % kSecond;
    if (rest < 0) {
        rest += kSecond;
        --second;
    }
    if (second != m_second)
        setSecond(second);
    putDigits(m_text + kLength - 1, 9, static_cast<std::uint32_t>(rest));
    return m_text;
}

/// 64 bits of nanoseconds know the years from 1677 to 2262.
void TimeText::setSecond(std::int64_t second) noexcept {
    m_second = second;
    const std::chrono::sys_seconds time{std::chrono::seconds(second)};
    const auto day = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss clock(time - day);
    putDigits(m_text + 4, 4, static_cast<std::uint32_t>(static_cast<int>(date.year())));
    putDigits(m_text + 7, 2, static_cast<unsigned>(date.month()));
    putDigits(m_text + 10, 2, static_cast<unsigned>(date.day()));
    putDigits(m_text + 13, 2, static_cast<std::uint32_t>(clock.hours().count()));
    putDigits(m_text + 16, 2, static_cast<std::uint32_t>(clock.minutes().count()));
    putDigits(m_text + 19, 2, static_cast<std::uint32_t>(clock.seconds().count()));
}

} // namespace tivra_python
