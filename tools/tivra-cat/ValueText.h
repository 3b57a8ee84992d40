#pragma once

#include "Record.h"

#include <string>
#include <string_view>

namespace tivra_cat {

/// `text` with everything but printable ASCII written as \xHH, so that a feed cannot drive a terminal.
[[nodiscard]] std::string printable(std::string_view text);

/// Seconds since 1970-01-01 00:00 UTC as "2013-10-07 13:30:00.039", with `separator` between date and time.
[[nodiscard]] std::string dateTimeText(double seconds, char separator);

/// The UTC time of day, "13:30:00.039".
[[nodiscard]] std::string timeText(double seconds);

/// A field's value for a reader: dates as dates, everything else as the library writes it.
[[nodiscard]] std::string readableValue(const Field& field);

/// "update", "image-complete" and so on.
[[nodiscard]] const char* typeName(tivra::MessageEvent::Types type);

} // namespace tivra_cat
