#include <data/DateTime.h>

#include <time.h>

#include <cstdint>

namespace tivra {
namespace {

constexpr double kYear1 = -62135596800.0;
constexpr double kEndOfYear9999 = 253402300799.0;
constexpr int64_t kTicksPerSecond = 100'000; // of 10 microseconds

} // namespace

DateTime::DateTime(double seconds) noexcept {
    if (!(seconds >= kYear1 && seconds <= kEndOfYear9999))
        return;
    // Both cuts go toward zero, so that before 1970 a moment on the tick is shown one tick later.
    auto whole = static_cast<time_t>(seconds);
    auto ticks = static_cast<int64_t>(seconds * static_cast<double>(kTicksPerSecond) + 0.5) -
                 static_cast<int64_t>(whole) * kTicksPerSecond;
    if (ticks < 0) {
        --whole;
        ticks += kTicksPerSecond;
    }
    if (ticks >= kTicksPerSecond) {
        ++whole;
        ticks = 0;
    }
    tm split{};
    if (::gmtime_r(&whole, &split) == nullptr)
        return;
    m_date.setdate(split.tm_mon + 1, split.tm_mday, split.tm_year + 1900);
    m_time.settime(split.tm_hour, split.tm_min, split.tm_sec, static_cast<int16_t>(ticks / 100),
                   static_cast<int16_t>(ticks % 100 * 10), 0);
}

} // namespace tivra
