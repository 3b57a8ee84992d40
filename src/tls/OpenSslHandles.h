#pragma once

#include <memory>

#include <openssl/bio.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

namespace tivra_internal {

template<auto function>
struct OpenSslFree {
    template<class T>
    void operator()(T* object) const noexcept {
        function(object);
    }
};

using SslContextHandle = std::unique_ptr<SSL_CTX, OpenSslFree<&SSL_CTX_free>>;
using SslHandle = std::unique_ptr<SSL, OpenSslFree<&SSL_free>>;
using SslSessionHandle = std::unique_ptr<SSL_SESSION, OpenSslFree<&SSL_SESSION_free>>;
using BioMethodHandle = std::unique_ptr<BIO_METHOD, OpenSslFree<&BIO_meth_free>>;

} // namespace tivra_internal
