#include "tls/OpenSslClient.h"

#include <arpa/inet.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <utility>

#include <openssl/err.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <tp/Clock.h>

#include "tls/OpenSslStream.h"
#include "tls/SocketBio.h"
#include "tls/TlsFault.h"

namespace tivra_internal {
namespace {

/// 112 bits: no RSA key below 2048 bits and no SHA-1, whatever the system's configuration allows.
constexpr int kSecurityLevel = 2;
/// What one look at the socket brings at most: four full records of TLS 1.3, and what OpenSSL loses to the
/// alignment. It fetches the rest of a record that the buffer cuts with a look for that alone.
constexpr std::size_t kReadAhead = 4 * (5 + 16384 + 1 + 16) + 3;
/// How long issuers are taken as they have been read, and so how long a chain that has been verified may go
/// unverified while its session is resumed: the system's store changes, and certificates expire.
constexpr double kTrustSeconds = 3600.0;

[[nodiscard]] bool isAddress(const std::string& text) {
    in6_addr address{};
    return ::inet_pton(AF_INET, text.c_str(), &address) == 1 ||
           ::inet_pton(AF_INET6, text.c_str(), &address) == 1;
}

// A key that is encrypted would be asked for at the terminal otherwise.
int refuseKeyPassword(char*, int, int, void*) {
    return -1;
}

// The host's process may end while connections go on: nothing is cleaned up under them.
void startOpenSsl() {
    static const int started = OPENSSL_init_ssl(OPENSSL_INIT_NO_ATEXIT, nullptr);
    static_cast<void>(started);
}

[[nodiscard]] bool isStillValid(const SSL_SESSION* session) {
    const X509* const certificate = SSL_SESSION_get0_peer(const_cast<SSL_SESSION*>(session));
    return SSL_SESSION_is_resumable(session) == 1 && certificate != nullptr &&
           X509_cmp_current_time(X509_get0_notAfter(certificate)) > 0;
}

[[nodiscard]] bool expectName(SSL* ssl, const std::string& name) {
    if (isAddress(name))
        return X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl), name.c_str()) == 1;
    SSL_set_hostflags(ssl, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS | X509_CHECK_FLAG_NEVER_CHECK_SUBJECT);
    // The macro for the last step casts in the old style.
    std::string text = name;
    return SSL_set1_host(ssl, name.c_str()) == 1 &&
           SSL_ctrl(ssl, SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name, text.data()) == 1;
}

} // namespace

std::unique_ptr<TlsClient> TlsClient::make(const TlsSettings& settings) {
    return std::make_unique<OpenSslClient>(settings);
}

OpenSslClient::FileStamp OpenSslClient::FileStamp::of(const std::string& path) {
    struct stat status {};
    if (path.empty() || ::stat(path.c_str(), &status) != 0)
        return {};
    return {status.st_dev, status.st_ino, status.st_size, status.st_mtim};
}

bool OpenSslClient::FileStamp::isSameAs(const FileStamp& other) const {
    return device == other.device && inode == other.inode && size == other.size &&
           changed.tv_sec == other.changed.tv_sec && changed.tv_nsec == other.changed.tv_nsec;
}

OpenSslClient::OpenSslClient(TlsSettings settings) : m_settings(std::move(settings)) {
    startOpenSsl();
}

std::unique_ptr<TlsStream> OpenSslClient::open(int fd, const std::string& address, std::string& fault) {
    ERR_clear_error();
    if (!prepare(fault)) {
        ERR_clear_error();
        return nullptr;
    }
    m_expectedName = m_settings.serverName.empty() ? address : m_settings.serverName;
    SslHandle ssl(SSL_new(m_context.get()));
    BIO* const bio = ssl != nullptr ? makeSocketBio(fd) : nullptr;
    if (bio == nullptr) {
        fault = "there is no memory for a TLS connection";
        return nullptr;
    }
    SSL_set_bio(ssl.get(), bio, bio);
    SSL_set_app_data(ssl.get(), this);
    if (!expectName(ssl.get(), m_expectedName)) {
        fault = "a certificate can't be for " + m_expectedName + ": correct TLS_SERVER_NAME_STRING";
        return nullptr;
    }
    offerSession(ssl.get(), m_expectedName);
    return std::make_unique<OpenSslStream>(std::move(ssl), m_expectedName, m_pins);
}

OpenSslClient::FileStamps OpenSslClient::stampFiles() const {
    return {FileStamp::of(m_settings.caFile), FileStamp::of(m_settings.crlFile),
            FileStamp::of(m_settings.certificateFile), FileStamp::of(m_settings.keyFile)};
}

bool OpenSslClient::prepare(std::string& fault) {
    const FileStamps stamps = stampFiles();
    const bool isCurrent =
        std::equal(stamps.begin(), stamps.end(), m_stamps.begin(),
                   [](const FileStamp& now, const FileStamp& then) { return now.isSameAs(then); });
    const bool isRecent = tp::Clock::monotonic() - m_preparedAt < kTrustSeconds;
    if (m_context != nullptr && isCurrent && isRecent)
        return true;
    m_session.reset(); // what it rests on may not hold any more
    m_context.reset();
    if (!PinnedKeys::read(m_settings.pinnedKeys, m_pins)) {
        fault =
            "TLS_PINNED_KEY_STRING can't be read: give sha256/ and the Base64 of the hash of a public key";
        return false;
    }
    SslContextHandle context(SSL_CTX_new(TLS_client_method()));
    if (context == nullptr) {
        fault = "TLS can't be set up: " + queuedError();
        return false;
    }
    SSL_CTX* const made = context.get();
    SSL_CTX_set_security_level(made, kSecurityLevel);
    SSL_CTX_set_verify(made, SSL_VERIFY_PEER, nullptr);
    SSL_CTX_set_options(made, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION);
    SSL_CTX_set_mode(made, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    SSL_CTX_set_default_read_buffer_len(made, kReadAhead);
    SSL_CTX_set_default_passwd_cb(made, refuseKeyPassword);
    SSL_CTX_set_session_cache_mode(made, SSL_SESS_CACHE_CLIENT | SSL_SESS_CACHE_NO_INTERNAL);
    SSL_CTX_sess_set_new_cb(made, noteSession);
    SSL_CTX_set_info_callback(made, noteProgress);
    if (!takeVersion(made, fault) || !takeIssuers(made, fault) || !takeRevocations(made, fault) ||
        !takeIdentity(made, fault))
        return false;
    m_context = std::move(context);
    m_stamps = stamps;
    m_preparedAt = tp::Clock::monotonic();
    return true;
}

bool OpenSslClient::takeVersion(SSL_CTX* context, std::string& fault) const {
    const std::string& text = m_settings.minVersion;
    const int version = text.empty() || text == "1.2" ? TLS1_2_VERSION : text == "1.3" ? TLS1_3_VERSION : 0;
    if (version != 0 && SSL_CTX_set_min_proto_version(context, version) == 1)
        return true;
    fault = "there is no version " + text + " of TLS to demand: set TLS_MIN_VERSION_STRING to 1.2 or 1.3";
    return false;
}

bool OpenSslClient::takeIssuers(SSL_CTX* context, std::string& fault) const {
    const std::string& file = m_settings.caFile;
    if (file.empty()) {
        if (SSL_CTX_set_default_verify_paths(context) == 1)
            return true;
        fault = "the system's store of issuers can't be read: name a file in TLS_CA_FILE_STRING";
        return false;
    }
    if (SSL_CTX_load_verify_file(context, file.c_str()) != 1) {
        fault = "no certificate can be read from TLS_CA_FILE_STRING " + file + ": " + queuedError();
        return false;
    }
    // Whatever stands in the file is trusted, be it only a link of the chain.
    X509_VERIFY_PARAM_set_flags(SSL_CTX_get0_param(context), X509_V_FLAG_PARTIAL_CHAIN);
    return true;
}

bool OpenSslClient::takeRevocations(SSL_CTX* context, std::string& fault) const {
    const std::string& file = m_settings.crlFile;
    if (file.empty())
        return true;
    X509_STORE* const store = SSL_CTX_get_cert_store(context);
    X509_LOOKUP* const lookup = X509_STORE_add_lookup(store, X509_LOOKUP_file());
    if (lookup == nullptr || X509_load_crl_file(lookup, file.c_str(), X509_FILETYPE_PEM) < 1) {
        fault = "no revocation list can be read from TLS_CRL_FILE_STRING " + file + ": " + queuedError();
        return false;
    }
    X509_VERIFY_PARAM_set_flags(SSL_CTX_get0_param(context),
                                X509_V_FLAG_CRL_CHECK | X509_V_FLAG_CRL_CHECK_ALL);
    return true;
}

bool OpenSslClient::takeIdentity(SSL_CTX* context, std::string& fault) const {
    const std::string& certificate = m_settings.certificateFile;
    const std::string& key = m_settings.keyFile.empty() ? certificate : m_settings.keyFile;
    if (key.empty())
        return true;
    struct stat status {};
    if (::stat(key.c_str(), &status) == 0 && (status.st_mode & (S_IROTH | S_IWOTH)) != 0) {
        fault = "everybody can read the key in " + key + ": take that away with chmod o-rwx";
        return false;
    }
    if (SSL_CTX_use_certificate_chain_file(context, certificate.c_str()) != 1) {
        fault = "no certificate can be read from TLS_CERTIFICATE_FILE_STRING " + certificate + ": " +
                queuedError();
        return false;
    }
    if (SSL_CTX_use_PrivateKey_file(context, key.c_str(), SSL_FILETYPE_PEM) != 1 ||
        SSL_CTX_check_private_key(context) != 1) {
        fault = "no key for this client's certificate can be read from " + key +
                ", which mustn't be encrypted: " + queuedError();
        return false;
    }
    return true;
}

void OpenSslClient::offerSession(SSL* ssl, const std::string& expectedName) {
    const SslSessionHandle session = std::move(m_session);
    // Revocation is looked at in a full handshake alone.
    if (session != nullptr && m_settings.crlFile.empty() && m_sessionName == expectedName &&
        isStillValid(session.get()))
        SSL_set_session(ssl, session.get());
}

// Up to 1.2 a session that has been resumed may be again, and none comes in its place.
void OpenSslClient::noteProgress(const SSL* ssl, int where, int) {
    if ((where & SSL_CB_HANDSHAKE_DONE) == 0 || SSL_session_reused(ssl) == 0 ||
        SSL_version(ssl) >= TLS1_3_VERSION)
        return;
    auto* const client = static_cast<OpenSslClient*>(SSL_get_app_data(ssl));
    if (client->m_session == nullptr)
        client->m_session.reset(SSL_get1_session(const_cast<SSL*>(ssl)));
}

// Takes the session over, as 1 says.
int OpenSslClient::noteSession(SSL* ssl, SSL_SESSION* session) {
    auto* const client = static_cast<OpenSslClient*>(SSL_get_app_data(ssl));
    client->m_session.reset(session);
    client->m_sessionName = client->m_expectedName;
    return 1;
}

} // namespace tivra_internal
