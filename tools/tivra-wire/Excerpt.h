#pragma once

#include <string>
#include <string_view>

namespace tivra_wire {

/// Bytes of a stream on both sides of an offset.
struct Surroundings {
    std::string_view before;
    std::string_view after;
};

/// Two lines for people: the bytes next to the place, and below them a caret at it; nothing where there are
/// no bytes. Of a stream of lines only the line with the place is shown.
[[nodiscard]] std::string excerpt(Surroundings around, bool isLine);

} // namespace tivra_wire
