#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>

#include "Event.h"

namespace tivra_python {

/// What waits in a queue, and what it has counted.
struct EventQueueFigures {
    std::size_t events = 0;    ///< that wait
    std::size_t updates = 0;   ///< those of them that are neither states nor gaps
    std::uint64_t dropped = 0; ///< updates that made room for others
    std::uint64_t merged = 0;  ///< updates that were merged into others
};

/// Events that wait for their reader, in their order and within limits. @thread any
class EventQueue {
public:
    using Handler = std::function<void(Event&&)>;

    virtual ~EventQueue() = default;

    /// Hands out the oldest events, so many at most. @return how many there were
    virtual std::size_t poll(std::size_t most, const Handler& handler) = 0;
    /// @return whether there is an event
    virtual bool wait(std::chrono::nanoseconds timeout) = 0;
    /// Can be read as long as there is an event.
    [[nodiscard]] virtual int descriptor() = 0;
    [[nodiscard]] virtual EventQueueFigures figures() const = 0;
};

} // namespace tivra_python
