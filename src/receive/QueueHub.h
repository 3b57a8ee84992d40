#pragma once

#include <sys/time.h>

namespace tivra_internal {

/// What a receive queue may ask of the connection that fills it: send a fill report. @thread hub
class QueueHub {
public:
    virtual ~QueueHub() = default;

    /// Frames and writes a request text; below 0 when it could not be written within `timeout`.
    virtual int sendRequest(const char* text, timeval* timeout) = 0;
};

} // namespace tivra_internal
