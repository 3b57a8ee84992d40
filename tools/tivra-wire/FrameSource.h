#pragma once

#include "Excerpt.h"
#include "Frame.h"

#include <cstdint>

namespace tivra_wire {

/// Where frames or lines come from, one after the other.
class FrameSource {
public:
    virtual ~FrameSource() = default;

    [[nodiscard]] virtual Form form() const = 0;
    /// The next one; false at the end. Throws Fault.
    [[nodiscard]] virtual bool next(Frame& frame) = 0;
    [[nodiscard]] virtual std::uint64_t frames() const = 0;
    /// Bytes of all frames so far, which is where the next one begins.
    [[nodiscard]] virtual std::uint64_t offset() const = 0;
    /// What is still held next to an offset of the stream, until the next frame is read.
    [[nodiscard]] virtual Surroundings around(std::uint64_t offset) const = 0;
};

} // namespace tivra_wire
