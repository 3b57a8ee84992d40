#pragma once

#include <cstdint>

#include "TivraApi.h"

namespace tivra {

/// A calendar date in UTC. A value: copy and keep it as you like. All fields 0 mean "none".
class TIVRA_API Date {
public:
    /// No date: all fields 0.
    constexpr Date() noexcept = default;

    /// Month, 1 to 12.
    constexpr int month() const noexcept { return m_month; }
    /// Day of the month, 1 to 31.
    constexpr int day() const noexcept { return m_day; }
    /// Year, with its century.
    constexpr int year() const noexcept { return m_year; }

    /// Sets all three as given; they aren't checked against the calendar.
    void setdate(int month, int day, int year) noexcept {
        m_month = static_cast<int8_t>(month);
        m_day = static_cast<int8_t>(day);
        m_year = static_cast<int16_t>(year);
    }

private:
    int8_t m_month = 0;
    int8_t m_day = 0;
    int16_t m_year = 0;
};

} // namespace tivra
