#pragma once

#include <cstdint>

#include "TivraApi.h"

namespace tivra {

/// A time of day in UTC. A value: copy and keep it as you like.
class TIVRA_API Time {
public:
    /// Midnight: all fields 0.
    constexpr Time() noexcept = default;

    /// Hour, 0 to 23.
    constexpr int hour() const noexcept { return m_hour; }
    /// Minute, 0 to 59.
    constexpr int minute() const noexcept { return m_minute; }
    /// Second, 0 to 59.
    constexpr int second() const noexcept { return m_second; }
    /// Milliseconds of the second, 0 to 999.
    constexpr int millisecond() const noexcept { return m_millisecond; }
    /// Microseconds of the millisecond, 0 to 999.
    constexpr int microsecond() const noexcept { return m_microsecond; }
    /// Nanoseconds of the microsecond, 0 to 999.
    constexpr int nanosecond() const noexcept { return m_nanosecond; }

    /// Sets all six as given; they aren't checked.
    void settime(int hour, int minute, int second, int16_t millisecond, int16_t microsecond,
                 int16_t nanosecond) noexcept {
        m_hour = static_cast<int8_t>(hour);
        m_minute = static_cast<int8_t>(minute);
        m_second = static_cast<int8_t>(second);
        m_millisecond = millisecond;
        m_microsecond = microsecond;
        m_nanosecond = nanosecond;
    }

private:
    int8_t m_hour = 0;
    int8_t m_minute = 0;
    int8_t m_second = 0;
    int16_t m_millisecond = 0;
    int16_t m_microsecond = 0;
    int16_t m_nanosecond = 0;
};

} // namespace tivra
