#pragma once

namespace tivra_internal {

/// Says when the frame was read that is being delivered. @thread that delivers for the hub, during delivery
class FrameTime {
public:
    virtual ~FrameTime() = default;

    /// By the monotonic clock, in seconds: when the read returned that completed the frame; 0 for a frame
    /// that the library has built itself.
    [[nodiscard]] virtual double readAt() const = 0;
};

} // namespace tivra_internal
