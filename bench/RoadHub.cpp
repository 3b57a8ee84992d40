#include "RoadHub.h"

#ifdef TIVRA_HAVE_ZMQ
#    include "RoadZmq.h"
#endif
#ifdef TIVRA_HAVE_NATS
#    include "RoadNats.h"
#endif

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <tivra_sim/Hub.h>
#include <tivra_sim/TradingDay.h>
#include <tivra_sim/Wire.h>

namespace tivra_bench {
namespace {

/// The hub's side of its one connection.
int connectionOf(std::uint16_t port) {
    for (int fd = 3; fd < 1024; ++fd) {
        sockaddr_in address{};
        socklen_t size = sizeof address;
        if (getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0 ||
            address.sin_port != htons(port))
            continue;
        size = sizeof address;
        if (getpeername(fd, reinterpret_cast<sockaddr*>(&address), &size) == 0)
            return fd;
    }
    throw std::runtime_error("the hub has no connection");
}

/// Sends from this thread, without the way through the hub's own: what is measured is the reader. The hub has
/// nothing else to send.
void sendPaced(const tivra_sim::Hub& hub, const RoadLoad& load) {
    const int fd = connectionOf(hub.port());
    sendPaced(load, [fd] {
        const std::string frame = stampedFrame();
        if (send(fd, frame.data(), frame.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(frame.size()))
            throw std::runtime_error("the reader does not keep up with a paced run");
    });
}

/// A hub with one source, and four symbols on it.
tivra_sim::HubConfig shapedHub(int source) {
    tivra_sim::HubConfig config = tivra_sim::HubConfig::quiet();
    config.boxPermissions = config.users[0].permissions = {source, tivra_sim::SYSTEM_SOURCE};
    config.symbols.clear();
    for (const char* symbol : kSymbols)
        config.symbols.push_back({source, symbol, {{tivra_sim::token::BID, "1"}}});
    return config;
}

/// The hubs of shaped messages, whose connections are written from here.
class ShapedHubs {
public:
    explicit ShapedHubs(const RoadLoad& load) {
        for (std::size_t i = 0; i < load.hubs; ++i) {
            const int source = kSource + static_cast<int>(i);
            m_blocks.push_back(ShapedFrames(load.shape, source, load.shapedBytes / kShapedCopies).bytes);
            m_hubs.push_back(std::make_unique<tivra_sim::Hub>(shapedHub(source)));
            m_hubs.back()->start();
        }
    }

    [[nodiscard]] std::vector<std::uint16_t> ports() const {
        std::vector<std::uint16_t> ports;
        for (const auto& hub : m_hubs)
            ports.push_back(hub->port());
        return ports;
    }

    void waitForReader() {
        for (const auto& hub : m_hubs) {
            // A session of many hosts may make its connections one after the other.
            if (!hub->waitForSubscriptions(std::size(kSymbols), std::chrono::minutes(5)))
                throw std::runtime_error("the subscriptions did not arrive");
            // A turn of the hub's thread: its answers are with the socket, and nothing follows them.
            hub->setDeaf(false);
            m_sockets.push_back(connectionOf(hub->port()));
        }
    }

    /// As fast as each of the readers takes it.
    void play() {
        std::vector<std::size_t> sent(m_sockets.size(), 0);
        std::vector<pollfd> waiting;
        for (const int socket : m_sockets)
            waiting.push_back({socket, POLLOUT, 0});
        for (std::size_t open = m_sockets.size(); open > 0;) {
            poll(waiting.data(), waiting.size(), 1000);
            for (std::size_t i = 0; i < waiting.size(); ++i) {
                if (waiting[i].fd < 0 || waiting[i].revents == 0 || !sendMore(i, sent[i]))
                    continue;
                waiting[i].fd = -1;
                --open;
            }
        }
    }

private:
    /// True when this hub has sent all.
    bool sendMore(std::size_t hub, std::size_t& sent) {
        const std::string& block = m_blocks[hub];
        const std::size_t all = block.size() * kShapedCopies;
        const std::size_t at = sent % block.size();
        const ssize_t took =
            send(m_sockets[hub], block.data() + at, block.size() - at, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (took < 0 && errno != EAGAIN && errno != EINTR)
            throw std::runtime_error("the reader has gone");
        sent += static_cast<std::size_t>(std::max<ssize_t>(took, 0));
        return sent >= all;
    }

    std::vector<std::string> m_blocks;
    std::vector<std::unique_ptr<tivra_sim::Hub>> m_hubs;
    std::vector<int> m_sockets;
};

void serveShaped(const RoadLoad& load, const ChildProcess::Ends& parent) {
    ShapedHubs hubs(load);
    const std::vector<std::uint16_t> ports = hubs.ports();
    if (!writeAll(parent.tell, ports.data(), ports.size() * sizeof ports[0]))
        return;
    hubs.waitForReader();
    char byte = 0;
    do
        hubs.play();
    while (read(parent.control, &byte, 1) > 0);
}

/// The hub's process: tells its port, then serves until the parent closes its end.
void serve(const RoadLoad& load, const ChildProcess::Ends& parent) {
    tivra_sim::HubConfig config = tivra_sim::HubConfig::realistic();
    if (load.events > 0) {
        config.playback.file = TIVRA_SAMPLE_DAY;
        config.playback.maxEvents = load.events;
        config.playback.repeat = load.repeat;
        config.playback.startWhenSubscriptions = std::size(kSymbols);
    }
    config.heartbeat.enabled = config.hubStatus.enabled = load.paced == 0;
    config.tls.certificateFile = load.certificate;
    tivra_sim::Hub hub(config);
    hub.start();
    const std::uint16_t port = hub.port();
    if (!writeAll(parent.tell, &port, sizeof port))
        return;
    if (load.paced > 0 && hub.waitForSubscriptions(1, std::chrono::milliseconds(30000)))
        sendPaced(hub, load);
    char byte = 0;
    while (read(parent.control, &byte, 1) > 0)
        hub.startPlayback();
    hub.stop();
}

} // namespace

std::size_t shapedMessages(const RoadLoad& load) {
    return ShapedFrames(load.shape, kSource, load.shapedBytes / kShapedCopies).count * kShapedCopies;
}

std::string stampedFrame() {
    std::string body = "3=100|4=" + std::to_string(kSource) + "|5=" + kPacedSymbol;
    body += "|101=184.17|102=300|103=184.21|104=200|105=P|";
    return tivra_sim::encodeFrame(body + std::to_string(kStampToken) + "=" +
                                  std::to_string(nowNanoseconds()));
}

std::int64_t stampOf(const char* frame, std::size_t length) {
    const char* const end = frame + length - 1;
    const char* from = end;
    while (from[-1] != '=')
        --from;
    std::int64_t stamp = 0;
    std::from_chars(from, end, stamp);
    return stamp;
}

std::vector<std::string> framesOfDay(std::size_t events) {
    std::vector<std::string> frames;
    if (events == 0)
        return frames;
    const std::int64_t midnight = tivra_sim::Playback().midnight;
    tivra_sim::readTradingDay(TIVRA_SAMPLE_DAY, [&](const tivra_sim::MarketEvent& event) {
        frames.push_back(
            tivra_sim::encodeFrame(tivra_sim::eventBody(event, kSource, midnight, frames.size() + 1)));
        return frames.size() < events;
    });
    return frames;
}

void sendPaced(const RoadLoad& load, const std::function<void()>& send) {
    // Asleep in between: a sender that spins would take a processor from those who are measured.
    prctl(PR_SET_TIMERSLACK, 1UL);
    const std::int64_t step = 1'000'000'000 / static_cast<std::int64_t>(load.perSecond);
    std::int64_t due = nowNanoseconds();
    for (std::size_t i = 0; i < load.paced; ++i, due += step) {
        const timespec until{due / 1'000'000'000, due % 1'000'000'000};
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
        send();
    }
}

RoadHub::RoadHub(const RoadLoad& load)
    : m_process([&load](const ChildProcess::Ends& parent) {
#ifdef TIVRA_HAVE_ZMQ
        if (load.through == RoadLoad::ZMQ_PUSH)
            return servePush(load, parent);
#endif
#ifdef TIVRA_HAVE_NATS
        if (load.through == RoadLoad::NATS)
            return servePublisher(load, parent);
#endif
        load.shapedBytes > 0 ? serveShaped(load, parent) : serve(load, parent);
    })
    , m_ports(load.hubs) {
    if (!m_process.read(m_ports.data(), m_ports.size() * sizeof m_ports[0]))
        throw std::runtime_error("the hub's process did not start");
}

void RoadHub::playAgain() {
    m_process.write(1);
}

} // namespace tivra_bench
