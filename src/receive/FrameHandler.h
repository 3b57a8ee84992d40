#pragma once

#include <cstdint>

namespace tivra_internal {

/// What a receive queue hands its frames to: the decoder at its consumer end. @thread user; with inline
/// delivery the hub's too, one at a time
class FrameHandler {
public:
    virtual ~FrameHandler() = default;

    /// Decodes one frame and calls the application. Adds the messages that reached the application to
    /// `*netMsgs` and returns the number of failed parses.
    virtual unsigned process_kvn_buffer(char* buf, unsigned long len, uint64_t* netMsgs) = 0;

    /// The queue has been emptied for a new connection. @thread hub
    virtual void reset() = 0;
};

} // namespace tivra_internal
