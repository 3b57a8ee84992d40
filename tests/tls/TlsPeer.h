#pragma once

#include <memory>
#include <string>
#include <vector>

#include <openssl/ssl.h>

#include "tls/Certificates.h"
#include "tls/TlsClient.h"

/// A hub's end of a connection in memory: it moves when it is told to, and what it sends can be spoilt.
class TlsPeer {
public:
    /// @param chain  what it sends behind its own certificate
    TlsPeer(const Certificate& own, const std::vector<const Certificate*>& chain = {});
    ~TlsPeer();
    TlsPeer(const TlsPeer&) = delete;
    TlsPeer& operator=(const TlsPeer&) = delete;

    /// The peer as the client meets it next; what is set here before holds for all connections.
    void connect();
    /// The same with a socket that a client has connected; takes it over.
    void accept(int fd);
    /// The client's end.
    [[nodiscard]] int fd() const { return m_clientEnd; }
    [[nodiscard]] SSL_CTX* context() const { return m_context.get(); }
    [[nodiscard]] SSL* ssl() const { return m_ssl.get(); }

    /// Takes what has come and sends what there is to send.
    void move();
    void send(const std::string& text);
    /// Past the encryption.
    void sayPlainly(const std::string& text) const;
    void close(bool withNotice);
    [[nodiscard]] const std::string& received() const { return m_received; }
    /// How many bytes have gone to the client.
    [[nodiscard]] std::size_t sent() const { return m_sent; }

    static constexpr std::size_t kNever = static_cast<std::size_t>(-1);
    std::size_t spoilAt = kNever; ///< this byte to the client is another
    std::size_t cutAt = kNever;   ///< the connection ends before it

private:
    template<auto function>
    struct Free {
        template<class T>
        void operator()(T* object) const noexcept {
            function(object);
        }
    };

    void closeEnds();
    void start();

    std::unique_ptr<SSL_CTX, Free<&SSL_CTX_free>> m_context;
    std::unique_ptr<SSL, Free<&SSL_free>> m_ssl;
    int m_clientEnd = -1;
    int m_ownEnd = -1;
    std::string m_received;
    std::size_t m_sent = 0;
};

/// Goes on with the handshake of both until it is done or has failed.
tivra_internal::TlsStream::Step greet(tivra_internal::TlsStream& stream, TlsPeer& peer);
/// Reads all that is there; `error` gets 0 for an end in order, EAGAIN for none, else the errno.
std::string readAll(tivra_internal::TlsStream& stream, const TlsPeer& peer, int& error);
