#include "tls/OpenSslStream.h"

#include <cerrno>
#include <utility>

#include <openssl/err.h>

#include <tp/isTransient.h>

#include "tls/SocketBio.h"
#include "tls/TlsFault.h"

namespace tivra_internal {
namespace {

/// A read looks again at a socket that has filled the buffer of several records, but not for ever. Whatever
/// is left then wakes the thread again, and other hubs have their turn before.
constexpr int kReadsOfARead = 4;
/// A handshake takes two looks for a record.
constexpr int kReadsOfAHandshake = 64;
/// The most messages of the encryption itself, such as new keys, that may come without data between them.
constexpr int kMaxMessagesWithoutData = 32;

// A failure that isn't the system's leaves what `errno` was before.
int asLoss(int systemError) {
    return systemError == 0 || tp::isTransient(systemError) ? ECONNRESET : systemError;
}

} // namespace

OpenSslStream::OpenSslStream(SslHandle ssl, std::string expectedName, const PinnedKeys& pins)
    : m_ssl(std::move(ssl)), m_expectedName(std::move(expectedName)), m_pins(pins) {}

TlsStream::Step OpenSslStream::handshake() {
    if (m_state == State::Open)
        return Step::Done;
    if (m_state == State::Ended)
        return Step::Failed;
    ERR_clear_error();
    allowReads(SSL_get_rbio(m_ssl.get()), kReadsOfAHandshake);
    const int result = SSL_connect(m_ssl.get());
    const int systemError = errno;
    if (result == 1)
        return checkKey();
    switch (SSL_get_error(m_ssl.get(), result)) {
    case SSL_ERROR_WANT_READ:
        return Step::AwaitsBytes;
    case SSL_ERROR_WANT_WRITE:
        return Step::AwaitsRoom;
    case SSL_ERROR_SYSCALL:
        m_readError = asLoss(systemError);
        return fail(closedInHandshake());
    default:
        break;
    }
    if (const long verified = SSL_get_verify_result(m_ssl.get()); verified != X509_V_OK)
        return fail(certificateFault(verified, m_expectedName));
    return fail(handshakeFault());
}

TlsStream::Step OpenSslStream::checkKey() {
    if (std::string found; !m_pins.accept(SSL_get0_peer_certificate(m_ssl.get()), found))
        return fail(pinMismatch(found));
    // Not before: what the handshake had read beyond its end would lie in memory and wake nobody.
    SSL_set_read_ahead(m_ssl.get(), 1);
    SSL_set_msg_callback(m_ssl.get(), noteMessage);
    SSL_set_msg_callback_arg(m_ssl.get(), this);
    m_state = State::Open;
    return Step::Done;
}

void OpenSslStream::noteMessage(int isSent, int, int type, const void*, std::size_t, SSL*, void* stream) {
    if (isSent == 0 && type == SSL3_RT_HANDSHAKE)
        ++static_cast<OpenSslStream*>(stream)->m_messagesWithoutData;
}

TlsStream::Step OpenSslStream::fail(std::string fault) {
    ERR_clear_error();
    m_state = State::Ended;
    m_fault = std::move(fault);
    return Step::Failed;
}

std::string OpenSslStream::description() const {
    std::string text = SSL_get_version(m_ssl.get());
    text += std::string(", ") + SSL_get_cipher_name(m_ssl.get());
    if (SSL_session_reused(m_ssl.get()) == 1)
        text += ", resumed";
    return text;
}

void OpenSslStream::end() {
    if (m_state != State::Open || m_isWriting)
        return;
    ERR_clear_error();
    (void)SSL_shutdown(m_ssl.get());
    ERR_clear_error();
    m_state = State::Ended;
    m_hasUnread = false;
}

// Record after record, as long as there is room: what stays behind in here wakes nobody.
ssize_t OpenSslStream::read(void* into, std::size_t length) {
    if (m_state != State::Open)
        return endOfReading();
    m_readAwaitsRoom = false;
    m_hasUnread = false;
    allowReads(SSL_get_rbio(m_ssl.get()), kReadsOfARead);
    std::size_t filled = 0;
    while (filled < length) {
        std::size_t got = 0;
        ERR_clear_error();
        const int result = SSL_read_ex(m_ssl.get(), static_cast<char*>(into) + filled, length - filled, &got);
        const int systemError = errno;
        if (m_messagesWithoutData > kMaxMessagesWithoutData) {
            const ssize_t end = endFlood();
            m_hasUnread = filled > 0; // the end itself
            return filled > 0 ? static_cast<ssize_t>(filled) : end;
        }
        if (result == 1) {
            m_messagesWithoutData = 0;
            filled += got;
            // A look at a socket that had no more would cost a system call.
            if (SSL_has_pending(m_ssl.get()) == 0 && !mayRead(SSL_get_rbio(m_ssl.get())))
                return static_cast<ssize_t>(filled);
            continue;
        }
        const int reason = SSL_get_error(m_ssl.get(), result);
        if (reason == SSL_ERROR_WANT_READ || reason == SSL_ERROR_WANT_WRITE) {
            m_readAwaitsRoom = reason == SSL_ERROR_WANT_WRITE;
            errno = EAGAIN;
            return filled > 0 ? static_cast<ssize_t>(filled) : -1;
        }
        const ssize_t end = closeReading(reason, systemError);
        m_hasUnread = filled > 0; // the end itself
        return filled > 0 ? static_cast<ssize_t>(filled) : end;
    }
    m_hasUnread = SSL_has_pending(m_ssl.get()) != 0;
    return static_cast<ssize_t>(filled);
}

ssize_t OpenSslStream::closeReading(int reason, int systemError) {
    m_state = State::Ended;
    if (reason == SSL_ERROR_SYSCALL) {
        m_readError = asLoss(systemError);
        ERR_clear_error();
    } else if (reason != SSL_ERROR_ZERO_RETURN) {
        m_readError = EPROTO;
        const unsigned long error = ERR_peek_error();
        const bool isCut =
            ERR_GET_LIB(error) == ERR_LIB_SSL && ERR_GET_REASON(error) == SSL_R_UNEXPECTED_EOF_WHILE_READING;
        // A hub may judge this client's certificate once the handshake is over here.
        m_fault = alertFault();
        if (isCut)
            m_fault =
                "the connection has ended without the end that TLS demands: the hub has gone, or somebody "
                "has cut it";
        else if (m_fault.empty())
            m_fault = "what has come over TLS is damaged or forged: " + queuedError();
        ERR_clear_error();
    }
    return endOfReading();
}

ssize_t OpenSslStream::endFlood() {
    m_state = State::Ended;
    m_readError = EPROTO;
    m_fault = "the hub sends messages of TLS itself without end and no data: it is hostile or broken";
    ERR_clear_error();
    return endOfReading();
}

ssize_t OpenSslStream::endOfReading() {
    m_hasUnread = false;
    if (m_readError == 0 && m_fault.empty())
        return 0;
    errno = m_readError != 0 ? m_readError : EPROTO;
    return -1;
}

ssize_t OpenSslStream::write(const void* bytes, std::size_t length) {
    if (m_state != State::Open) {
        errno = EPIPE;
        return -1;
    }
    std::size_t sent = 0;
    ERR_clear_error();
    const int result = SSL_write_ex(m_ssl.get(), bytes, length, &sent);
    const int systemError = errno;
    m_isWriting = false;
    if (result == 1)
        return static_cast<ssize_t>(sent);
    const int reason = SSL_get_error(m_ssl.get(), result);
    ERR_clear_error();
    m_isWriting = reason == SSL_ERROR_WANT_WRITE;
    errno = m_isWriting ? EAGAIN : reason == SSL_ERROR_SYSCALL ? asLoss(systemError) : EPROTO;
    return -1;
}

} // namespace tivra_internal
