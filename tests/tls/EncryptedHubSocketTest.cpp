// The socket of a hub client with an encryption over it, which holds what the socket doesn't show any more.
#include <poll.h>
#include <sys/socket.h>

#include <gtest/gtest.h>

#include "hub/FakeHubSession.h"
#include "hub/HubAddress.h"
#include "hub/HubClientOptions.h"
#include "hub/HubSocket.h"
#include "support/Ports.h"
#include "tls/TlsPeer.h"

namespace {

using namespace tivra_internal;

class Listener : public ClosedPort {
public:
    Listener() { listen(1); }
    /// The socket of the one that connects within ten seconds.
    [[nodiscard]] int accept() const {
        pollfd watched{m_socket, POLLIN, 0};
        EXPECT_EQ(::poll(&watched, 1, 10'000), 1);
        return ::accept4(m_socket, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    }
};

bool awaitBytes(int fd) {
    pollfd watched{fd, POLLIN, 0};
    return ::poll(&watched, 1, 10'000) == 1;
}

TEST(EncryptedHubSocket, IsValidAfterTheEndUntilWhatCameBeforeIsRead) {
    CertificateText rootText;
    rootText.name = "issuer";
    rootText.isIssuer = true;
    rootText.keyUsage = "critical,keyCertSign,cRLSign";
    const Certificate root(rootText, nullptr);
    const Certificate own(CertificateText(), &root);
    CertificateFiles files;
    TlsPeer peer(own);

    const Listener listener;
    HubClientOptions options;
    options.label = "127.0.0.1:" + std::to_string(listener.port());
    options.address = "127.0.0.1";
    options.port = listener.port();
    options.connectionTimeout = 10;
    options.tls.isOn = true;
    options.tls.caFile = files.write("ca.pem", root.pem());
    const HubAddress address(options);
    const FakeHubSession session;
    HubSocket socket(address, session, options, [] { return 0.0; });

    HubSocket::Progress progress = socket.begin();
    peer.accept(listener.accept());
    for (int i = 0; i < 1000 && progress == HubSocket::Progress::UnderWay; ++i) {
        progress = socket.proceed();
        peer.move();
        if (progress == HubSocket::Progress::UnderWay && socket.dialAwaitsBytes()) {
            ASSERT_TRUE(awaitBytes(socket.fd()));
        }
    }
    ASSERT_EQ(progress, HubSocket::Progress::Connected) << socket.connectFault();
    const std::string text(5000, 'x');
    peer.move();
    peer.send(text);
    peer.close(true);

    std::string heard;
    char room[100];
    while (heard.size() < text.size()) {
        ASSERT_TRUE(socket.stream().hasUnread() || awaitBytes(socket.fd()));
        ASSERT_TRUE(socket.isValid(false)) << heard.size();
        ASSERT_TRUE(socket.isValid(true)) << heard.size();
        if (const ssize_t got = socket.stream().read(room, sizeof room); got > 0)
            heard.append(room, static_cast<std::size_t>(got));
    }
    EXPECT_EQ(heard, text);
    while (socket.stream().read(room, sizeof room) != 0)
        ASSERT_TRUE(errno == EAGAIN && awaitBytes(socket.fd()));
    EXPECT_FALSE(socket.isValid(false));
}

} // namespace
