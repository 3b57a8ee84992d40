#include "tls/TlsPeer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <vector>

using tivra_internal::TlsStream;

TlsPeer::TlsPeer(const Certificate& own, const std::vector<const Certificate*>& chain)
    : m_context(SSL_CTX_new(TLS_server_method())) {
    SSL_CTX* const made = m_context.get();
    SSL_CTX_set_security_level(made, 0);
    bool isGood =
        SSL_CTX_use_certificate(made, own.get()) == 1 && SSL_CTX_use_PrivateKey(made, own.key()) == 1;
    for (const Certificate* link : chain)
        isGood = isGood && SSL_CTX_add1_chain_cert(made, link->get()) == 1;
    if (!isGood)
        throw std::runtime_error("the peer takes no such certificate");
    SSL_CTX_set_session_id_context(made, reinterpret_cast<const unsigned char*>("test"), 4);
}

TlsPeer::~TlsPeer() {
    closeEnds();
}

void TlsPeer::closeEnds() {
    for (int* end : {&m_clientEnd, &m_ownEnd}) {
        if (*end >= 0)
            ::close(*end);
        *end = -1;
    }
}

void TlsPeer::connect() {
    closeEnds();
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends.data()) != 0)
        throw std::runtime_error("no socket pair");
    m_clientEnd = ends[0];
    m_ownEnd = ends[1];
    const int room = 200'000; // which the system doubles: more than a client takes at once
    static_cast<void>(::setsockopt(m_ownEnd, SOL_SOCKET, SO_SNDBUF, &room, sizeof room));
    start();
}

void TlsPeer::accept(int fd) {
    closeEnds();
    m_ownEnd = fd;
    start();
}

void TlsPeer::start() {
    m_received.clear();
    m_sent = 0;
    m_ssl.reset(SSL_new(m_context.get()));
    SSL_set_bio(m_ssl.get(), BIO_new(BIO_s_mem()), BIO_new(BIO_s_mem()));
    SSL_set_accept_state(m_ssl.get());
}

void TlsPeer::move() {
    std::array<char, 16384> bytes{};
    ssize_t got = 0;
    while (m_ownEnd >= 0 && (got = ::read(m_ownEnd, bytes.data(), bytes.size())) > 0)
        BIO_write(SSL_get_rbio(m_ssl.get()), bytes.data(), static_cast<int>(got));
    int taken = 0;
    while ((taken = SSL_read(m_ssl.get(), bytes.data(), static_cast<int>(bytes.size()))) > 0)
        m_received.append(bytes.data(), static_cast<std::size_t>(taken));
    while (m_ownEnd >= 0 &&
           (taken = BIO_read(SSL_get_wbio(m_ssl.get()), bytes.data(), static_cast<int>(bytes.size()))) > 0) {
        auto count = static_cast<std::size_t>(taken);
        if (spoilAt - m_sent < count && spoilAt >= m_sent)
            bytes[spoilAt - m_sent] = static_cast<char>(bytes[spoilAt - m_sent] ^ 0x55);
        const bool isCut = cutAt >= m_sent && cutAt - m_sent < count;
        if (isCut)
            count = cutAt - m_sent;
        if (::send(m_ownEnd, bytes.data(), count, MSG_NOSIGNAL) != static_cast<ssize_t>(count))
            throw std::runtime_error("the test's socket is full");
        m_sent += count;
        if (isCut)
            close(false);
    }
}

void TlsPeer::send(const std::string& text) {
    if (SSL_write(m_ssl.get(), text.data(), static_cast<int>(text.size())) != static_cast<int>(text.size()))
        throw std::runtime_error("the peer can't send");
    move();
}

void TlsPeer::sayPlainly(const std::string& text) const {
    if (::send(m_ownEnd, text.data(), text.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(text.size()))
        throw std::runtime_error("the test's socket is full");
}

void TlsPeer::close(bool withNotice) {
    if (m_ownEnd < 0)
        return;
    if (withNotice) {
        SSL_shutdown(m_ssl.get());
        move();
    }
    ::close(m_ownEnd);
    m_ownEnd = -1;
}

TlsStream::Step greet(TlsStream& stream, TlsPeer& peer) {
    constexpr int kMostFlights = 20;
    TlsStream::Step step = TlsStream::Step::AwaitsBytes;
    for (int i = 0; i < kMostFlights && step == TlsStream::Step::AwaitsBytes; ++i) {
        step = stream.handshake();
        peer.move();
    }
    return step;
}

std::string readAll(TlsStream& stream, const TlsPeer& peer, int& error) {
    std::string all;
    std::vector<char> room(65536);
    for (;;) {
        const ssize_t got = stream.read(room.data(), room.size());
        error = got < 0 ? errno : 0;
        pollfd watched{peer.fd(), POLLIN, 0};
        // One read takes no more than one look brings.
        if (got == 0 || (got < 0 && (error != EAGAIN || ::poll(&watched, 1, 0) == 0)))
            return all;
        if (got > 0)
            all.append(room.data(), static_cast<std::size_t>(got));
    }
}
