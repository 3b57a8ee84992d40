#pragma once

#include <string>

#include <tp/StreamLayer.h>

namespace tivra_internal {

/// The encryption of one connection. @thread hub
class TlsStream : public tp::StreamLayer {
public:
    enum class Step {
        Done,
        AwaitsBytes, ///< from the peer
        AwaitsRoom,  ///< in the socket
        Failed       ///< for the reason that fault() gives
    };

    /// Goes on with the handshake as far as it can without waiting.
    [[nodiscard]] virtual Step handshake() = 0;
    /// Why the handshake or a read has failed, and what to do; empty as long as nothing has.
    [[nodiscard]] virtual const std::string& fault() const = 0;
    /// For the log: version, cipher, and whether an earlier session has been resumed.
    [[nodiscard]] virtual std::string description() const = 0;
    /// Tells the peer, if the socket takes it at once, that nothing more comes.
    virtual void end() = 0;
};

} // namespace tivra_internal
