#pragma once

#include <memory>
#include <string>

#include "tls/TlsSettings.h"
#include "tls/TlsStream.h"

namespace tivra_internal {

/// What the encrypted connections to one hub have in common: the certificates, which are read again when
/// their files have changed, and the session that the next connection resumes. @thread hub
class TlsClient {
public:
    virtual ~TlsClient() = default;
    TlsClient(const TlsClient&) = delete;
    TlsClient& operator=(const TlsClient&) = delete;

    /// Null where the library has been built without TLS.
    [[nodiscard]] static std::unique_ptr<TlsClient> make(const TlsSettings& settings);

    /// The stream over a socket that is connected to the hub, before its handshake. Null when the settings
    /// can't be used, with the reason in `fault`.
    /// @param address  the hub's, which its certificate has to be for unless the settings name another
    [[nodiscard]] virtual std::unique_ptr<TlsStream> open(int fd, const std::string& address,
                                                          std::string& fault) = 0;

protected:
    TlsClient() = default;
};

} // namespace tivra_internal
