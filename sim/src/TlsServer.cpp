#include "TlsServer.h"

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <cerrno>
#include <csignal>
#include <ctime>
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

/// OpenSSL writes to a socket in a way that raises SIGPIPE, which would end the process.
class NoBrokenPipe {
public:
    NoBrokenPipe() {
        sigemptyset(&m_pipe);
        sigaddset(&m_pipe, SIGPIPE);
        sigset_t pending;
        sigpending(&pending);
        m_wasPending = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &m_pipe, &m_before);
    }
    ~NoBrokenPipe() {
        const int error = errno;
        const timespec now{};
        if (!m_wasPending)
            static_cast<void>(sigtimedwait(&m_pipe, nullptr, &now));
        pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
        errno = error;
    }
    NoBrokenPipe(const NoBrokenPipe&) = delete;
    NoBrokenPipe& operator=(const NoBrokenPipe&) = delete;

private:
    sigset_t m_pipe{};
    sigset_t m_before{};
    bool m_wasPending = false;
};

class OpenSslSession final : public TlsSession {
public:
    explicit OpenSslSession(Session session) : m_session(std::move(session)) {}

    ssize_t receive(void* into, std::size_t length) override {
        const NoBrokenPipe guard;
        std::size_t count = 0;
        ERR_clear_error();
        const int result = SSL_read_ex(m_session.get(), into, length, &count);
        return result == 1 ? static_cast<ssize_t>(count) : failed(result);
    }

    ssize_t send(const void* bytes, std::size_t length) override {
        if (SSL_is_init_finished(m_session.get()) == 0) {
            errno = EAGAIN; // the client's bytes drive the handshake
            return -1;
        }
        const NoBrokenPipe guard;
        std::size_t count = 0;
        ERR_clear_error();
        const int result = SSL_write_ex(m_session.get(), bytes, length, &count);
        return result == 1 ? static_cast<ssize_t>(count) : failed(result);
    }

    void end() override {
        const NoBrokenPipe guard;
        if (!m_hasFailed && SSL_is_init_finished(m_session.get()) == 1)
            static_cast<void>(SSL_shutdown(m_session.get()));
        ERR_clear_error();
    }

private:
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

    Session m_session;
    bool m_hasFailed = false;
};

class OpenSslServer final : public TlsServer {
public:
    explicit OpenSslServer(Context context) : m_context(std::move(context)) {}

    std::unique_ptr<TlsSession> accept(int fd) override {
        Session session(SSL_new(m_context.get()));
        if (session == nullptr || SSL_set_fd(session.get(), fd) != 1)
            throw std::bad_alloc();
        SSL_set_accept_state(session.get());
        return std::make_unique<OpenSslSession>(std::move(session));
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
