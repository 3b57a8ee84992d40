#include "RoadHub.h"

#ifdef TIVRA_HAVE_ZMQ
#    include "RoadZmq.h"
#endif

#include <iterator>
#include <stdexcept>
#include <string>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <tivra_sim/Hub.h>
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

std::int64_t nowNanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

std::string stampedFrame() {
    std::string body = "3=100|4=" + std::to_string(kSource) + "|5=" + kPacedSymbol;
    body += "|101=184.17|102=300|103=184.21|104=200|105=P|";
    return tivra_sim::encodeFrame(body + std::to_string(kStampToken) + "=" +
                                  std::to_string(nowNanoseconds()));
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
        if (load.zmq)
            return servePush(load, parent);
#endif
        serve(load, parent);
    }) {
    if (!m_process.read(&m_port, sizeof m_port))
        throw std::runtime_error("the hub's process did not start");
}

void RoadHub::playAgain() {
    m_process.write(1);
}

} // namespace tivra_bench
