#include "WaitHubs.h"

#include "Clock.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <optional>
#include <stdexcept>

#include <sys/mman.h>
#include <unistd.h>

#include <tivra_sim/Hub.h>

namespace tivra_bench {
namespace {

constexpr auto kPatience = std::chrono::seconds(60);

WaitHubs::Seen* sharedPage() {
    void* const page =
        mmap(nullptr, sizeof(WaitHubs::Seen), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED)
        throw std::runtime_error("no memory to share with the hubs");
    return new (page) WaitHubs::Seen;
}

tivra_sim::HubConfig hubOf(int source) {
    tivra_sim::HubConfig config = tivra_sim::HubConfig::realistic();
    config.boxPermissions = config.users[0].permissions = {source, tivra_sim::SYSTEM_SOURCE};
    config.symbols.clear();
    config.symbols.push_back(
        {source, WaitHubs::kSymbol, {{tivra_sim::token::BID, "184.17"}, {tivra_sim::token::ASK, "184.21"}}});
    return config;
}

void noteRequest(WaitHubs::Seen& seen, const tivra_sim::Request& request) {
    if (request.command == "LoginUser") {
        seen.login = nowNanoseconds();
    } else if (request.command == "QuerySnap") {
        const std::size_t at = seen.snapshots++;
        if (at < seen.times.size())
            seen.times[at] = nowNanoseconds();
    }
}

} // namespace

void WaitHubs::Unmap::operator()(Seen* seen) const {
    munmap(seen, sizeof *seen);
}

void WaitHubs::serve(Seen& seen, std::size_t count, const ChildProcess::Ends& parent) {
    std::vector<std::unique_ptr<tivra_sim::Hub>> hubs;
    std::vector<std::uint16_t> ports;
    for (std::size_t i = 0; i < count; ++i) {
        hubs.push_back(std::make_unique<tivra_sim::Hub>(hubOf(kSource + static_cast<int>(i))));
        hubs.back()->start();
        ports.push_back(hubs.back()->port());
    }
    tivra_sim::Hub& first = *hubs.front();
    first.script([&seen](const tivra_sim::Request& request) -> std::optional<tivra_sim::Hub::Frames> {
        noteRequest(seen, request);
        return std::nullopt;
    });
    const auto tellDone = [&parent] { return writeAll(parent.tell, "", 1); };
    if (!writeAll(parent.tell, ports.data(), ports.size() * sizeof ports[0]))
        return;
    char what = 0;
    while (read(parent.control, &what, 1) > 0) {
        if (what == DROP) {
            const std::size_t before = first.statistics().accepted;
            seen.dropped = nowNanoseconds();
            for (const auto& hub : hubs)
                hub->dropConnections();
            if (!tellDone())
                return;
            static_cast<void>(first.waitFor(
                [before](const tivra_sim::HubStatistics& now) { return now.accepted > before; }, kPatience));
            seen.dialled = nowNanoseconds();
        } else if (what == REFUSE) {
            first.refuseLogin(tivra_sim::status::DENY_LOGIN);
        } else {
            first.clearRefusals();
        }
        if (!tellDone())
            return;
    }
}

WaitHubs::WaitHubs(std::size_t hubs)
    : m_seen(sharedPage())
    , m_process([this, hubs](const ChildProcess::Ends& parent) { serve(*m_seen, hubs, parent); })
    , m_ports(hubs) {
    if (!m_process.read(m_ports.data(), m_ports.size() * sizeof m_ports[0]))
        throw std::runtime_error("the hubs' process did not start");
}

std::vector<std::string> WaitHubs::hosts() const {
    std::vector<std::string> hosts;
    for (const std::uint16_t port : m_ports)
        hosts.push_back("127.0.0.1:" + std::to_string(port));
    return hosts;
}

void WaitHubs::order(Order what) {
    m_process.write(what);
    waitForDone();
}

void WaitHubs::waitForDone() const {
    char done = 0;
    if (!m_process.read(&done, 1))
        throw std::runtime_error("the hubs' process has gone");
}

std::int64_t WaitHubs::drop() {
    order(DROP);
    return m_seen->dropped;
}

std::int64_t WaitHubs::waitForDial() {
    waitForDone();
    return m_seen->dialled;
}

void WaitHubs::refuseLogins(bool areRefused) {
    order(areRefused ? REFUSE : TAKE);
}

std::vector<std::int64_t> WaitHubs::snapshotTimes() const {
    const std::size_t count = std::min(m_seen->snapshots.load(), m_seen->times.size());
    return {m_seen->times.begin(), m_seen->times.begin() + static_cast<std::ptrdiff_t>(count)};
}

} // namespace tivra_bench
