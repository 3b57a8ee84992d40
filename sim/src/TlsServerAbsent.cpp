// In place of TlsServer.cpp in a simulator that is built without OpenSSL.
#include "TlsServer.h"

namespace tivra_sim {

std::unique_ptr<TlsServer> TlsServer::make(const Tls&) {
    throw ConfigError("this hub has been built without TLS: build it with -DTIVRA_TLS=ON");
}

} // namespace tivra_sim
