#include "tls/TlsFault.h"

#include <cstddef>

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

namespace tivra_internal {
namespace {

struct FaultText {
    long code;
    const char* text;
};

constexpr FaultText kCertificateFaults[] = {
    {X509_V_ERR_CERT_HAS_EXPIRED,
     "the hub's certificate, or one that vouches for it, has expired: have it renewed, or check this "
     "machine's clock"},
    {X509_V_ERR_CERT_NOT_YET_VALID,
     "the hub's certificate, or one that vouches for it, is not valid yet: check this machine's clock"},
    {X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT,
     "the issuer of a certificate in the hub's chain is unknown: name its certificate in TLS_CA_FILE_STRING"},
    {X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, "the issuer of the hub's certificate is unknown: name its "
                                                   "certificate in TLS_CA_FILE_STRING, or have the "
                                                   "hub send the certificates between"},
    {X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE,
     "the hub sends no chain to a known issuer: have it send the certificates between, or name the issuer's "
     "in TLS_CA_FILE_STRING"},
    {X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT,
     "the hub's certificate is signed by itself alone: name it in TLS_CA_FILE_STRING if it is meant to be "
     "trusted"},
    {X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN,
     "the hub's chain ends at an issuer that isn't trusted: name its certificate in TLS_CA_FILE_STRING if it "
     "is meant to be"},
    {X509_V_ERR_CERT_REVOKED, "the hub's certificate has been revoked: have it replaced"},
    {X509_V_ERR_UNABLE_TO_GET_CRL,
     "TLS_CRL_FILE_STRING has no revocation list of an issuer in the hub's chain: add it"},
    {X509_V_ERR_CRL_HAS_EXPIRED,
     "a revocation list in TLS_CRL_FILE_STRING has expired: fetch the issuer's present one"},
    {X509_V_ERR_CRL_NOT_YET_VALID,
     "a revocation list in TLS_CRL_FILE_STRING is not valid yet: check this machine's clock"},
    {X509_V_ERR_CRL_SIGNATURE_FAILURE,
     "a revocation list in TLS_CRL_FILE_STRING is not signed by its issuer: fetch it again"},
    {X509_V_ERR_CERT_SIGNATURE_FAILURE,
     "a signature in the hub's chain is wrong: somebody may be in between, or the file of the chain is "
     "damaged"},
    {X509_V_ERR_EE_KEY_TOO_SMALL,
     "the key of the hub's certificate is too short to be safe: have it replaced by one of 2048 bits RSA or "
     "256 bits EC at least"},
    {X509_V_ERR_CA_KEY_TOO_SMALL,
     "the key of an issuer in the hub's chain is too short to be safe: have the certificate issued by "
     "another"},
    {X509_V_ERR_CA_MD_TOO_WEAK, "a certificate in the hub's chain is signed by a digest that is no longer "
                                "safe: have it issued anew with "
                                "SHA-256"},
    {X509_V_ERR_INVALID_PURPOSE,
     "a certificate in the hub's chain is not meant for servers: have one issued with the usage serverAuth"},
    {X509_V_ERR_INVALID_CA,
     "a certificate in the hub's chain is no issuer's, though it vouches for another: have the hub's issued "
     "by a proper one"},
    {X509_V_ERR_KEYUSAGE_NO_CERTSIGN,
     "an issuer in the hub's chain may not sign certificates: have the hub's issued by a proper one"},
    {X509_V_ERR_PATH_LENGTH_EXCEEDED,
     "an issuer in the hub's chain may not have issuers below it: have the hub's certificate issued by one "
     "that may"},
    {X509_V_ERR_CERT_CHAIN_TOO_LONG, "the hub's chain of certificates is too long: have it shortened"},
    {X509_V_ERR_UNHANDLED_CRITICAL_EXTENSION, "a certificate in the hub's chain has a critical extension "
                                              "that is unknown here: have it issued without"},
    {X509_V_ERR_PERMITTED_VIOLATION,
     "an issuer in the hub's chain may not issue certificates for this name: have another issue it"},
    {X509_V_ERR_EXCLUDED_VIOLATION,
     "an issuer in the hub's chain may not issue certificates for this name: have another issue it"},
};

constexpr const char* kNoTls =
    "the peer doesn't speak TLS: set TLS_BOOL to false for it, or give the port at "
    "which it does";
constexpr const char* kVersion =
    "the hub speaks no version of TLS that is allowed here: have it speak 1.2 or "
    "later, or lower TLS_MIN_VERSION_STRING";
constexpr const char* kClientRefused = "the hub refuses this client's certificate: check "
                                       "TLS_CERTIFICATE_FILE_STRING and whom the hub trusts";

constexpr FaultText kHandshakeFaults[] = {
    {SSL_R_WRONG_VERSION_NUMBER, kNoTls},
    {SSL_R_HTTP_REQUEST, kNoTls},
    {SSL_R_PACKET_LENGTH_TOO_LONG, kNoTls},
    {SSL_R_RECORD_LENGTH_MISMATCH, kNoTls},
    {SSL_R_UNSUPPORTED_PROTOCOL, kVersion},
    {SSL_R_NO_PROTOCOLS_AVAILABLE, kVersion},
    {SSL_R_TLSV1_ALERT_PROTOCOL_VERSION, kVersion},
    {SSL_R_INAPPROPRIATE_FALLBACK, kVersion},
    {SSL_R_TLSV13_ALERT_CERTIFICATE_REQUIRED,
     "the hub wants a certificate of this client: name one in TLS_CERTIFICATE_FILE_STRING"},
    {SSL_R_TLSV1_ALERT_UNKNOWN_CA, kClientRefused},
    {SSL_R_SSLV3_ALERT_BAD_CERTIFICATE, kClientRefused},
    {SSL_R_SSLV3_ALERT_CERTIFICATE_EXPIRED, kClientRefused},
    {SSL_R_SSLV3_ALERT_CERTIFICATE_REVOKED, kClientRefused},
    {SSL_R_SSLV3_ALERT_CERTIFICATE_UNKNOWN, kClientRefused},
    {SSL_R_SSLV3_ALERT_UNSUPPORTED_CERTIFICATE, kClientRefused},
    {SSL_R_TLSV1_ALERT_DECRYPT_ERROR, kClientRefused},
    {SSL_R_TLSV1_ALERT_ACCESS_DENIED, kClientRefused},
    {SSL_R_SSLV3_ALERT_HANDSHAKE_FAILURE, "the hub refuses the handshake: it may want a certificate of this "
                                          "client, or ciphers that aren't allowed "
                                          "here"},
    {SSL_R_TLSV1_UNRECOGNIZED_NAME, "the hub has no certificate for the name in TLS_SERVER_NAME_STRING"},
    {SSL_R_DH_KEY_TOO_SMALL, "the hub offers a key exchange that is too short to be safe: have it use ECDHE"},
    {SSL_R_EE_KEY_TOO_SMALL, "the key of the hub's certificate is too short to be safe: have it replaced by "
                             "one of 2048 bits RSA or 256 bits EC at least"},
};

template<std::size_t N>
const char* textOf(const FaultText (&table)[N], long code) {
    for (const FaultText& fault : table)
        if (fault.code == code)
            return fault.text;
    return nullptr;
}

} // namespace

std::string certificateFault(long code, const std::string& expectedName) {
    if (code == X509_V_ERR_HOSTNAME_MISMATCH || code == X509_V_ERR_IP_ADDRESS_MISMATCH)
        return "the hub's certificate is not for " + expectedName +
               ": name what it is for in TLS_SERVER_NAME_STRING, if the hub is the right one";
    if (const char* const text = textOf(kCertificateFaults, code))
        return text;
    return std::string("the hub's certificate can't be trusted: ") + X509_verify_cert_error_string(code);
}

std::string alertFault() {
    const unsigned long error = ERR_peek_error();
    const char* const text =
        ERR_GET_LIB(error) == ERR_LIB_SSL ? textOf(kHandshakeFaults, ERR_GET_REASON(error)) : nullptr;
    if (text == nullptr)
        return {};
    ERR_clear_error();
    return text;
}

std::string handshakeFault() {
    if (std::string text = alertFault(); !text.empty())
        return text;
    const unsigned long error = ERR_peek_error();
    if (ERR_GET_LIB(error) == ERR_LIB_SSL && ERR_GET_REASON(error) == SSL_R_UNEXPECTED_EOF_WHILE_READING) {
        ERR_clear_error();
        return closedInHandshake();
    }
    return "the TLS handshake has failed: " + queuedError();
}

std::string closedInHandshake() {
    return "the peer has closed the connection during the TLS handshake: it may speak no TLS, or refuse this "
           "client";
}

std::string pinMismatch(const std::string& foundPin) {
    return "the hub's key is " + foundPin +
           ", which TLS_PINNED_KEY_STRING doesn't list: somebody may be in between, or the hub has a new key";
}

std::string queuedError() {
    const unsigned long error = ERR_get_error();
    ERR_clear_error();
    const char* const reason = ERR_reason_error_string(error);
    return reason != nullptr ? reason : "no reason is given";
}

} // namespace tivra_internal
