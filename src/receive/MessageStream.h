#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <request/Commands.h>

namespace KVNAPI {
class Message;
} // namespace KVNAPI

namespace tivra_internal {

class FrameTime;
class MetaTokenMap;
class Queue;

/// A message for the application, with what the library has taken out of it.
struct StreamMessage {
    const KVNAPI::Message& message;
    int64_t tag = 0;    ///< of the request that this answers; 0 when nobody has asked for it
    int64_t status = 0; ///< of no meaning without hasStatus
    bool hasStatus = false;
    tivra::Commands command = tivra::SUBSCRIBE; ///< of that request, with a status
    const FrameTime* frame = nullptr;           ///< when the message was read; null where nobody knows
    std::string_view body{}; ///< the bytes that the message was made of; empty when it was changed since
};

/// Who takes a hub's messages in place of the session's message handler. Its calls come one at a time, on
/// whichever thread delivers for the hub, in the order of the data. It goes with the hub. Times are those of
/// the monotonic clock.
class MessageStream {
public:
    virtual ~MessageStream() = default;

    virtual void deliver(const StreamMessage& incoming) = 0;
    /// The connection is lost, and everything that came over it has been delivered. Before deliver() for
    /// anything of the next one.
    /// @param heard  by then nothing had come to this machine but that: what is missing was sent later, or
    ///               was on its way
    virtual void connectionLost(double heard) = 0;
    /// What follows comes over another connection.
    virtual void connectionBegins() = 0;
    /// This hub, of those that were asked, has refused the request, or is lost before its answer. The answer
    /// as a whole comes by deliver().
    virtual void hubRefused(int64_t tag, int64_t status) = 0;
    /// This hub, of those that were asked, has answered the request, maybe without a record. The end of the
    /// answer as a whole comes by deliver().
    virtual void hubAnswered(int64_t tag) = 0;
    /// The hub says that it has dropped so many bytes more of what was for this connection.
    /// @param since  when it said last how many there were
    virtual void hubDropped(uint64_t bytes, double since) = 0;
    /// The hub merges updates for want of room, or has ceased to. What was merged before has been delivered.
    /// @param since  when it said so
    virtual void conflationChanged(bool isConflating, double since) = 0;
};

/// What makes the streams of a session.
class MessageStreams {
public:
    virtual ~MessageStreams() = default;

    /// @param dictionary  the hub's, which lives as long as the stream
    /// @param hub         "host:port"; empty for the pseudo connection that carries the library's own
    /// messages
    /// @param queue       what the hub's messages wait in, which lives as long as the stream
    [[nodiscard]] virtual std::unique_ptr<MessageStream> open(const MetaTokenMap& dictionary,
                                                              const std::string& hub, const Queue& queue) = 0;
};

} // namespace tivra_internal
