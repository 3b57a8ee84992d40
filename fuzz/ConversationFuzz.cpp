// Arbitrary bytes as the answers of a hub: whatever they are, the client ends ready, waiting or out of use,
// and the process lives.
#include "FuzzCheck.h"
#include "hub/FakeHubSession.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include <tp/eprintf.h>

#include "config/ConnectionConfigImpl.h"
#include "config/HandleAccess.h"
#include "config/HostConfigImpl.h"
#include "config/HostTable.h"
#include "hub/HubEventReactor.h"
#include "receive/Queue.h"

using namespace tivra_internal;

namespace {

struct QuietUser : tivra::UserEventHandler {
    void onUserEvent(const tivra::UserEvent&) override {}
};

/// The hub's side: one listener for all runs, one connection per run.
class Hub {
public:
    Hub() {
        tp::eprintf_ctrl(EPF_ENABLE, EPF_MUTE);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof(address);
        if (::bind(m_listener, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
            ::listen(m_listener, 16) != 0 ||
            ::getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length) != 0)
            std::abort();
        m_port = ntohs(address.sin_port);
    }
    [[nodiscard]] uint16_t port() const { return m_port; }

    void accept() { m_fd = ::accept(m_listener, nullptr, nullptr); }
    /// A reset, which leaves no waiting port behind.
    void drop() {
        const linger hard{1, 0};
        ::setsockopt(m_fd, SOL_SOCKET, SO_LINGER, &hard, sizeof(hard));
        ::close(m_fd);
    }
    void send(std::string_view bytes) const {
        if (!bytes.empty() && ::send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT) < 0)
            return;
        char requests[4096];
        while (::recv(m_fd, requests, sizeof(requests), MSG_DONTWAIT) > 0) {
        }
    }

private:
    int m_listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int m_fd = -1;
    uint16_t m_port = 0;
};

/// Lines as bodies in their frames, so that mutations of a text reach the handlers and not the framer alone.
/// "PORT" in a line stands for the port of this hub, which a member of a group must name.
std::string framesOf(std::string_view text, uint16_t port) {
    static constexpr std::string_view kPort = "PORT";
    std::string named(text);
    for (size_t at = named.find(kPort); at != std::string::npos; at = named.find(kPort, at))
        named.replace(at, kPort.size(), std::to_string(port));
    std::string_view lines = named;
    std::string frames;
    while (!lines.empty()) {
        const std::string_view body = lines.substr(0, lines.find('\n'));
        lines.remove_prefix(std::min(lines.size(), body.size() + 1));
        frames += std::string("\x04\x20", 2);
        for (const unsigned shift : {24U, 16U, 8U, 0U})
            frames += static_cast<char>(body.size() >> shift & 0xFF);
        frames.append(body) += '\x03';
    }
    return frames;
}

void takeAll(HubClient& client) {
    int waiting = 0;
    while (client.getFd() >= 0 && ::ioctl(client.getFd(), FIONREAD, &waiting) == 0 && waiting > 0) {
        const int before = waiting;
        client.readableEvent(0.0);
        if (client.getFd() >= 0 && ::ioctl(client.getFd(), FIONREAD, &waiting) == 0 && waiting == before)
            break;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Hub hub;
    static QuietUser quiet;
    static HostTable table;
    static auto connections =
        HandleAccess::make<tivra::ConnectionConfig>(std::make_unique<ConnectionConfigImpl>(table));
    static HostConfigImpl& host = HandleAccess::impl(connections->getHostConfig("hub:1"));
    static const auto user = HandleAccess::makeUserInfo("jane", "pa55word", quiet);

    fuzz::Input input(data, size);
    const unsigned flags = input.byte();
    const unsigned seed = input.byte();
    FakeHubSession session;
    session.everyHubIsFirst = (flags & 1) == 0;
    session.enumLoaded = (flags & 2) != 0;
    session.established = (flags & 4) != 0;
    const bool compression = (flags & 16) != 0;
    static HubEventReactor reactor(0, 100);
    HubClient client(HandleAccess::impl(*user), session, "hub", "127.0.0.1", hub.port(), 5, 2, 5, compression,
                     0, &host, 1, 200, (flags & 8) != 0);
    client.attachReactor(&reactor, 0);
    for (double tick = 1.0; client.connectHost(tick) >= 0 && client.inProgress(); tick += 1.0) {
    }
    if (client.getFd() < 0)
        return 0;
    hub.accept();
    client.login();

    const std::string stream =
        (flags & 32) != 0 ? std::string(input.rest()) : framesOf(input.rest(), hub.port());
    for (const std::string_view piece : fuzz::piecesOf(stream, seed)) {
        hub.send(piece);
        takeAll(client);
        client.twentyFiveMsTick(0.0);
        reactor.handle_hub_requests(10);
        if (client.waitsForBoxPerms())
            client.requestContinueEntitlements();
        if (client.getFd() < 0)
            break;
    }
    if (client.isSuspended() && (client.getFd() >= 0 || client.isReady()))
        std::abort();
    if (client.isReady() && !client.isLoggedIn())
        std::abort();
    hub.drop();
    return 0;
}
