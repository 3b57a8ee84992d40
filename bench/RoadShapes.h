#pragma once

#include <cstddef>
#include <string>

namespace tivra_bench {

/// What the messages of a road look like, where the day's own don't do.
struct Shape {
    enum Kind {
        NUMBERS,   ///< numbers until the frame has its length
        TEXT_END,  ///< a quote whose last value is a text
        LONG_TEXTS ///< a few numbers and three long texts
    };
    Kind kind = NUMBERS;
    std::size_t length = 0; ///< of a frame, for NUMBERS; of a text, for LONG_TEXTS
    std::size_t pairs = 0;  ///< of a message of NUMBERS, in place of a length
    unsigned layouts = 1;   ///< orders and choices of fields that come mixed at random
    unsigned symbols = 4;   ///< different ones, mixed at random
};

/// Frames of this shape about a source, until they have that many bytes. The same at each call.
struct ShapedFrames {
    ShapedFrames(const Shape& shape, int source, std::size_t bytes);

    std::string bytes;
    std::size_t count = 0;
};

} // namespace tivra_bench
