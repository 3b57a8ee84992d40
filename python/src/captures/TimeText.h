#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>

namespace tivra_python {

/// Writes times as texts of one length, in UTC with nanoseconds. Those of one second share what stands in
/// front of the fraction. One thread at a time.
class TimeText {
public:
    static constexpr std::size_t kLength = 30; ///< of "2013-10-07T13:30:00.000000000Z"

    /// @param separator  between date and time
    explicit TimeText(char separator) noexcept;

    /// @param nanoseconds  since 1970-01-01 00:00 UTC
    /// @return kLength bytes, until the next call
    const char* of(std::int64_t nanoseconds) noexcept;

private:
    void setSecond(std::int64_t second) noexcept;

    char m_text[kLength];
    std::int64_t m_second = std::numeric_limits<std::int64_t>::min(); ///< that the text has
};

} // namespace tivra_python
