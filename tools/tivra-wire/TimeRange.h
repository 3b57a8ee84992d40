#pragma once

#include <capture/CaptureReader.h>

#include <cstdint>
#include <optional>
#include <string>

namespace tivra_wire {

/// From when to when messages are wanted, in nanoseconds since the Unix epoch; the end is left out.
struct TimeRange {
    std::optional<std::int64_t> begin;
    std::optional<std::int64_t> end;
    bool isBeginRelative = false; ///< counts from the first message
    bool isEndRelative = false;

    [[nodiscard]] bool isWanted() const { return begin || end; }
    [[nodiscard]] bool contains(std::int64_t nanoseconds) const {
        return (!begin || nanoseconds >= *begin) && (!end || nanoseconds < *end);
    }
    /// The same with absolute times, where the first message came at `first`.
    [[nodiscard]] TimeRange after(std::int64_t first) const;
};

/// Reads "12.5", seconds after the first message, or "2026-11-27T02:40:00.5Z". Throws Failure with
/// ExitCode::Usage for anything else; `option` is who asks.
void readTime(const std::string& option, const std::string& text, std::optional<std::int64_t>& nanoseconds,
              bool& isRelative);

/// The time of the first message, 0 for none.
[[nodiscard]] std::int64_t firstTime(const tivra_capture::CaptureReader& reader);

/// "2026-11-27T02:40:00.500000000Z".
[[nodiscard]] std::string timeText(std::int64_t nanoseconds);

} // namespace tivra_wire
