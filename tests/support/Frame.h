#pragma once

#include <string>
#include <string_view>

namespace support {

/// A body in its frame.
[[nodiscard]] inline std::string frameOf(std::string_view body) {
    std::string frame("\x04 ");
    for (const int shift : {24, 16, 8, 0})
        frame += static_cast<char>(body.size() >> shift & 0xff);
    return frame.append(body) + '\x03';
}

} // namespace support
