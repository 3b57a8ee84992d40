#pragma once

#include <sys/types.h>

#include <cstddef>

namespace tivra_sim {

/// The hub's end of the encryption of one connection. Used by the hub's thread alone.
class TlsSession {
public:
    virtual ~TlsSession() = default;
    TlsSession(const TlsSession&) = delete;
    TlsSession& operator=(const TlsSession&) = delete;

    /// As ::recv and ::send on a socket that doesn't block; the handshake goes on in the first reads.
    [[nodiscard]] virtual ssize_t receive(void* into, std::size_t length) = 0;
    [[nodiscard]] virtual ssize_t send(const void* bytes, std::size_t length) = 0;
    /// Tells the client that nothing more comes.
    virtual void end() = 0;

protected:
    TlsSession() = default;
};

} // namespace tivra_sim
