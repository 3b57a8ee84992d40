#pragma once

#include "TivraApi.h"
#include "data/Date.h"
#include "data/Time.h"

namespace tivra {

/// A date and a time of day in UTC. A value: copy and keep it as you like.
class TIVRA_API DateTime {
public:
    /// Nothing: all fields 0, hasDate() and hasTime() false.
    constexpr DateTime() noexcept = default;

    /// The moment that lies `seconds` after 1970-01-01 00:00 UTC, rounded to 10 microseconds. Outside the
    /// years 1 to 9999 (and for a NaN) all fields are 0. hasDate() and hasTime() stay false.
    explicit DateTime(double seconds) noexcept;

    /// Whether a date was given. False for every value that MessageReader hands out: read date() directly.
    constexpr bool hasDate() const noexcept { return m_hasDate; }
    /// The date.
    constexpr const Date& date() const noexcept { return m_date; }
    /// Whether a time was given. False for every value that MessageReader hands out: read time() directly.
    constexpr bool hasTime() const noexcept { return m_hasTime; }
    /// The time of day.
    constexpr const Time& time() const noexcept { return m_time; }

private:
    bool m_hasDate = false;
    bool m_hasTime = false;
    Date m_date;
    Time m_time;
};

} // namespace tivra
