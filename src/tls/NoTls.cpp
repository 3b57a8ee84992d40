// In place of everything else here in a library that is built without OpenSSL.
#include "tls/TlsClient.h"

namespace tivra_internal {

std::unique_ptr<TlsClient> TlsClient::make(const TlsSettings&) {
    return nullptr;
}

} // namespace tivra_internal
