// What a peer may send in place of a TLS handshake: the stream is never taken for a secure one, and says why
// not.
#include "FuzzCheck.h"
#include "tls/TlsClient.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace {

using tivra_internal::TlsClient;
using tivra_internal::TlsSettings;
using tivra_internal::TlsStream;

/// Both ends of a connection, without blocking.
class Pair {
public:
    Pair() {
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, m_fds) != 0)
            fuzz::expectEqual("a pair of sockets", "none", "one");
    }
    ~Pair() {
        ::close(m_fds[0]);
        ::close(m_fds[1]);
    }
    Pair(const Pair&) = delete;
    Pair& operator=(const Pair&) = delete;

    [[nodiscard]] int ours() const { return m_fds[0]; }
    void send(std::string_view bytes) const {
        static_cast<void>(::send(m_fds[1], bytes.data(), bytes.size(), 0));
    }
    void end() const { ::shutdown(m_fds[1], SHUT_WR); }

private:
    int m_fds[2] = {-1, -1};
};

/// Kept, since each reads the system's issuers once.
TlsClient& clientOf(bool isNewest) {
    static const auto make = [](const char* minVersion) {
        TlsSettings settings;
        settings.isOn = true;
        settings.minVersion = minVersion;
        return TlsClient::make(settings);
    };
    static const std::unique_ptr<TlsClient> clients[] = {make("1.2"), make("1.3")};
    return *clients[isNewest ? 1 : 0];
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const unsigned seed = input.byte();
    const Pair pair;
    std::string fault;
    const std::unique_ptr<TlsStream> stream = clientOf(seed % 2 != 0).open(pair.ours(), "127.0.0.1", fault);
    if (stream == nullptr)
        fuzz::expectEqual("a stream", fault, "one");
    TlsStream::Step step = stream->handshake();
    for (const std::string_view piece : fuzz::piecesOf(input.rest().substr(0, 32'768), seed)) {
        pair.send(piece);
        if (step != TlsStream::Step::Failed)
            step = stream->handshake();
    }
    pair.end();
    // Each step takes bytes or ends the handshake.
    for (std::size_t i = 0; i <= size && step != TlsStream::Step::Failed; ++i)
        step = stream->handshake();
    if (step != TlsStream::Step::Failed || stream->fault().empty())
        fuzz::expectEqual("a handshake with nobody", stream->fault(), "a failure that says why");
    char bytes[64];
    if (stream->read(bytes, sizeof bytes) > 0)
        fuzz::expectEqual("a read after it", "bytes", "none");
    return 0;
}
