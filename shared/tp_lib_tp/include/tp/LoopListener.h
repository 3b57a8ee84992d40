#pragma once

namespace tp {

/// What the owner of a reactor hears from its loop, on the loop's thread.
class LoopListener {
public:
    virtual ~LoopListener() = default;

    /// ReactorLoop::ask() was called since the last time; `what` holds the bits of all those calls.
    virtual void asked(unsigned what, double curtime) = 0;
    /// Sources are ready, and their handlers are called next.
    virtual void sourcesReady(double curtime) = 0;
};

} // namespace tp
