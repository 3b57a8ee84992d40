#pragma once

#include <sys/time.h>

namespace tivra_internal {

/// What a receive queue may ask of the connection that fills it.
class QueueHub {
public:
    virtual ~QueueHub() = default;

    /// Frames and writes a request text; below 0 when it could not be written within `timeout`. @thread hub
    virtual int sendRequest(const char* text, timeval* timeout) = 0;
    /// Reads that are held back can go on: see Queue::awaitRoom. @thread user
    virtual void roomForReads() = 0;
    /// The queue has just come to its threshold, at so many percent. Called before the connection is given up
    /// for want of room. @thread hub
    virtual void queueIsDeep(int percent) = 0;
};

} // namespace tivra_internal
