#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tivra_bus {

/// A message of a stream that is complete. @thread any, it isn't changed
struct ClosedBatch {
    std::string buffer;
    std::size_t begin = 0; ///< of the message in the buffer

    [[nodiscard]] std::string_view message() const { return std::string_view(buffer).substr(begin); }
};

} // namespace tivra_bus
