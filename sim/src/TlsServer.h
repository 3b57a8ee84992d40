#pragma once

#include "tivra_sim/HubConfig.h"

#include <sys/types.h>

#include <cstddef>
#include <memory>

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

/// Certificate and key of a hub.
class TlsServer {
public:
    virtual ~TlsServer() = default;
    TlsServer(const TlsServer&) = delete;
    TlsServer& operator=(const TlsServer&) = delete;

    /// Throws ConfigError for files that can't be used, and in a simulator that is built without TLS.
    [[nodiscard]] static std::unique_ptr<TlsServer> make(const Tls& config);

    [[nodiscard]] virtual std::unique_ptr<TlsSession> accept(int fd) = 0;

protected:
    TlsServer() = default;
};

} // namespace tivra_sim
