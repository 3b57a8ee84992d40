#include "RoadHub.h"

#ifdef TIVRA_HAVE_ZMQ
#    include "RoadZmq.h"
#endif

#include <iterator>
#include <stdexcept>
#include <thread>

#include <time.h>
#include <unistd.h>

#include <tivra_sim/Hub.h>

namespace tivra_bench {
namespace {

/// The hub's process: tells its port, then serves until the parent closes its end.
void serve(const RoadLoad& load, const ChildProcess::Ends& parent) {
    tivra_sim::HubConfig config = tivra_sim::HubConfig::realistic();
    if (load.events > 0) {
        config.playback.file = TIVRA_SAMPLE_DAY;
        config.playback.maxEvents = load.events;
        config.playback.repeat = load.repeat;
        config.playback.startWhenSubscriptions = std::size(kSymbols);
    }
    tivra_sim::Hub hub(config);
    hub.start();
    const std::uint16_t port = hub.port();
    if (!writeAll(parent.tell, &port, sizeof port))
        return;
    if (load.paced > 0 && hub.waitForSubscriptions(1, std::chrono::milliseconds(30000)))
        sendPaced(load, [&hub] {
            tivra_sim::Record record(kSource, kPacedSymbol);
            record.add(101, "184.17").add(102, 300).add(103, "184.21").add(104, 200).add(105, "P");
            record.add(kStampToken, static_cast<long long>(nowNanoseconds()));
            hub.pushRecord(record);
        });
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

void sendPaced(const RoadLoad& load, const std::function<void()>& send) {
    const std::int64_t step = 1'000'000'000 / static_cast<std::int64_t>(load.perSecond);
    std::int64_t due = nowNanoseconds();
    for (std::size_t i = 0; i < load.paced; ++i, due += step) {
        while (nowNanoseconds() < due)
            std::this_thread::yield();
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
