#include "TlsServer.h"

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <string>

namespace tivra_sim {

namespace {

template<auto function>
struct Free {
    template<class T>
    void operator()(T* object) const noexcept {
        function(object);
    }
};
using Context = std::unique_ptr<SSL_CTX, Free<&SSL_CTX_free>>;
using Session = std::unique_ptr<SSL, Free<&SSL_free>>;

/// Records that go to the socket at once, as plain bytes would: one system call for each would wake a client
/// for every record.
constexpr std::size_t kRecordsAtOnce = 8;

class OpenSslSession final : public TlsSession {
public:
    OpenSslSession(int fd, Session session) : m_fd(fd), m_session(std::move(session)) {}

    ssize_t receive(void* into, std::size_t length) override {
        std::size_t count = 0;
        ERR_clear_error();
        const int result = SSL_read_ex(m_session.get(), into, length, &count);
        const ssize_t received = result == 1 ? static_cast<ssize_t>(count) : failed(result);
        const int error = errno;
        static_cast<void>(sendSealed()); // the handshake's part; what has broken shows in the next read
        errno = error;
        return received;
    }

    // What is sealed stays so: it counts as sent once the socket has all of it.
    ssize_t send(const void* bytes, std::size_t length) override {
        if (SSL_is_init_finished(m_session.get()) == 0) {
            errno = EAGAIN; // the client's bytes drive the handshake
            return -1;
        }
        if ((m_sealed == 0 && !seal(bytes, length)) || !sendSealed())
            return -1;
        const std::size_t sent = std::min(m_sealed, length);
        m_sealed -= sent;
        return static_cast<ssize_t>(sent);
    }

    void end() override {
        if (!m_hasFailed && SSL_is_init_finished(m_session.get()) == 1)
            static_cast<void>(SSL_shutdown(m_session.get()));
        ERR_clear_error();
        static_cast<void>(sendSealed());
    }

private:
    bool seal(const void* bytes, std::size_t length) {
        for (std::size_t record = 0; record < kRecordsAtOnce && m_sealed < length; ++record) {
            std::size_t count = 0;
            ERR_clear_error();
            const int result = SSL_write_ex(m_session.get(), static_cast<const char*>(bytes) + m_sealed,
                                            length - m_sealed, &count);
            if (result != 1) {
                if (failed(result) == 0)
                    errno = EPIPE; // 0 bytes would be tried again for ever
                return false;
            }
            m_sealed += count;
        }
        return true;
    }

    /// False where some of it has to wait, or the socket has failed; errno says which.
    bool sendSealed() {
        BIO* const sealed = SSL_get_wbio(m_session.get());
        char* bytes = nullptr;
        const auto length = static_cast<std::size_t>(BIO_get_mem_data(sealed, &bytes));
        while (m_sealedDone < length) {
            const ssize_t count =
                ::send(m_fd, bytes + m_sealedDone, length - m_sealedDone, MSG_NOSIGNAL | MSG_DONTWAIT);
            if (count < 0)
                return false;
            m_sealedDone += static_cast<std::size_t>(count);
        }
        m_sealedDone = 0;
        static_cast<void>(BIO_reset(sealed));
        return true;
    }

    ssize_t failed(int result) {
        const int reason = SSL_get_error(m_session.get(), result);
        ERR_clear_error();
        if (reason == SSL_ERROR_ZERO_RETURN)
            return 0;
        const bool waits = reason == SSL_ERROR_WANT_READ || reason == SSL_ERROR_WANT_WRITE;
        m_hasFailed = !waits;
        errno = waits ? EAGAIN : EPROTO;
        return -1;
    }

    int m_fd;
    Session m_session;
    std::size_t m_sealed = 0;     ///< bytes of the caller that are sealed and not yet said to be sent
    std::size_t m_sealedDone = 0; ///< bytes of the records that the socket has
    bool m_hasFailed = false;
};

class OpenSslServer final : public TlsServer {
public:
    explicit OpenSslServer(Context context) : m_context(std::move(context)) {}

    std::unique_ptr<TlsSession> accept(int fd) override {
        Session session(SSL_new(m_context.get()));
        BIO* const received = BIO_new_socket(fd, BIO_NOCLOSE);
        BIO* const sealed = BIO_new(BIO_s_mem());
        if (session == nullptr || received == nullptr || sealed == nullptr) {
            BIO_free(received);
            BIO_free(sealed);
            throw std::bad_alloc();
        }
        SSL_set_bio(session.get(), received, sealed);
        SSL_set_accept_state(session.get());
        return std::make_unique<OpenSslSession>(fd, std::move(session));
    }

private:
    Context m_context;
};

void check(bool isGood, const std::string& what) {
    if (isGood)
        return;
    const char* const reason = ERR_reason_error_string(ERR_get_error());
    ERR_clear_error();
    throw ConfigError(what + (reason != nullptr ? std::string(": ") + reason : std::string()));
}

} // namespace

std::unique_ptr<TlsServer> TlsServer::make(const Tls& config) {
    Context context(SSL_CTX_new(TLS_server_method()));
    check(context != nullptr, "TLS cannot be set up");
    SSL_CTX* const made = context.get();
    // What a hub shows is the client's to judge, weak keys included.
    SSL_CTX_set_security_level(made, 0);
    const std::string& key = config.keyFile.empty() ? config.certificateFile : config.keyFile;
    check(SSL_CTX_use_certificate_chain_file(made, config.certificateFile.c_str()) == 1,
          "no certificate can be read from \"" + config.certificateFile + "\"");
    check(SSL_CTX_use_PrivateKey_file(made, key.c_str(), SSL_FILETYPE_PEM) == 1 &&
              SSL_CTX_check_private_key(made) == 1,
          "no key for the certificate can be read from \"" + key + "\"");
    check(SSL_CTX_set_min_proto_version(made, TLS1_2_VERSION) == 1 &&
              SSL_CTX_set_max_proto_version(made, config.isOldVersion ? TLS1_2_VERSION : 0) == 1,
          "the version of TLS cannot be set");
    SSL_CTX_set_mode(made, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    constexpr unsigned char kContext[] = "tivra-hub";
    SSL_CTX_set_session_id_context(made, kContext, sizeof kContext - 1);
    if (!config.clientCaFile.empty()) {
        check(SSL_CTX_load_verify_file(made, config.clientCaFile.c_str()) == 1,
              "no issuers of clients' certificates can be read from \"" + config.clientCaFile + "\"");
        SSL_CTX_set_verify(made, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    }
    return std::make_unique<OpenSslServer>(std::move(context));
}

} // namespace tivra_sim
