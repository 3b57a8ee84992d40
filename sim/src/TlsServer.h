#pragma once

#include "tivra_sim/HubConfig.h"

#include "TlsSession.h"

#include <memory>

namespace tivra_sim {

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
