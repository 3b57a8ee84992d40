// Arbitrary bytes as the answers of a hub: whatever they are, the client ends ready, waiting or out of use,
// and the process lives.
#include "FuzzCheck.h"
#include "hub/FakeHubSession.h"
#include "hub/HubAnswers.h"
#include "hub/HubPeer.h"

#include <sys/ioctl.h>

#include <algorithm>
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

/// Lines as bodies in their frames, so that mutations of a text reach the handlers and not the framer alone.
/// "PORT" in a line stands for the port of this hub, which a member of a group must name.
std::string framesOf(std::string_view text, uint16_t port) {
    static constexpr std::string_view kPort = "PORT";
    std::string named(text);
    for (std::size_t at = named.find(kPort); at != std::string::npos; at = named.find(kPort, at))
        named.replace(at, kPort.size(), std::to_string(port));
    std::string_view lines = named;
    std::string frames;
    while (!lines.empty()) {
        const std::string_view body = lines.substr(0, lines.find('\n'));
        lines.remove_prefix(std::min(lines.size(), body.size() + 1));
        frames += frameOf(body);
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

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    tp::eprintf_ctrl(EPF_ENABLE, EPF_MUTE);
    static HubPeer hub;
    GTEST_FLAG_SET(throw_on_failure, true); // which its checks are worth here
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
    HubClient client(HandleAccess::impl(*user), session,
                     HubClientOptions{.label = "hub",
                                      .address = "127.0.0.1",
                                      .port = hub.port(),
                                      .host = &host,
                                      .connectionTimeout = 5,
                                      .connectionRetryLimit = 2,
                                      .readTimeout = 5,
                                      .queueSize = 1,
                                      .compression = compression,
                                      .watchlistInUse = (flags & 8) != 0});
    client.attachReactor(&reactor, 0);
    for (double tick = 1.0; client.connectHost(tick) == HubClient::Dial::UnderWay; tick += 1.0) {
    }
    if (client.getFd() < 0)
        return 0;
    hub.accept();
    client.login();

    const std::string stream =
        (flags & 32) != 0 ? std::string(input.rest()) : framesOf(input.rest(), hub.port());
    for (const std::string_view piece : fuzz::piecesOf(stream, seed)) {
        hub.sendRaw(piece);
        while (hub.hasRequest())
            static_cast<void>(hub.readRequest());
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
    hub.reset(); // which leaves no waiting port
    return 0;
}
