#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace tivra_bus {

/// What has become of a message that was sent.
struct SendResult {
    enum class Outcome {
        Stored,   ///< the engine has acknowledged it
        Conflict, ///< something else is there than was expected
        Failed,   ///< refused, or no answer in time: it may be stored or not
        TooBig    ///< larger than the engine takes, now and later
    };
    Outcome outcome = Outcome::Failed;
    std::uint64_t position = 0; ///< where it is stored
    std::uint64_t epoch = 0;    ///< of last values that were asked for; 0 where they can't be read
    std::string cause;          ///< of Failed and TooBig
};

/// Who is told what has become of a message.
class SendListener {
public:
    virtual ~SendListener() = default;
    /// @param tag  of the ticket
    /// @thread of the publisher, or the one that flushes it; it must not wait
    virtual void sent(std::uint64_t tag, const SendResult& result) = 0;
};

/// Goes with a message, so that its result finds the listener, if that is still there.
struct SendTicket {
    std::weak_ptr<SendListener> listener;
    std::uint64_t tag = 0;

    void end(const SendResult& result) const {
        if (const std::shared_ptr<SendListener> present = listener.lock())
            present->sent(tag, result);
    }
};

} // namespace tivra_bus
