#include "run/BridgeMetrics.h"

#include "run/StateNames.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <iterator>

namespace tivra_bus {

namespace {

constexpr double kOldestLease = 3.0;

void addCounter(std::string& out, const char* name, const char* help, std::uint64_t value) {
    fmt::format_to(std::back_inserter(out),
                   "# TYPE tivra_bridge_{0} counter\n# HELP tivra_bridge_{0} {1}\n"
                   "tivra_bridge_{0}_total {2}\n",
                   name, help, value);
}

void addGauge(std::string& out, const char* name, const char* help, double value) {
    fmt::format_to(std::back_inserter(out),
                   "# TYPE tivra_bridge_{0} gauge\n# HELP tivra_bridge_{0} {1}\n"
                   "tivra_bridge_{0} {2}\n",
                   name, help, value);
}

} // namespace

bool isHealthy(const BridgeStatus& status) {
    return status.isConnected && status.feed == tivra::FeedState::Established &&
           status.leaseAge < kOldestLease && status.troubled == 0;
}

std::string bridgeMetrics(const Bridge& bridge) {
    const WriterCounters& counters = bridge.counters();
    const BridgeStatus status = bridge.status();
    std::string out;
    addCounter(out, "updates", "Updates taken from the hubs.", counters.updates);
    addCounter(out, "records", "Records that the engine has acknowledged.", counters.records);
    addCounter(out, "batches", "Batches that the engine has acknowledged.", counters.batches);
    addCounter(out, "bytes", "Bytes of those batches.", counters.bytes);
    addCounter(out, "resent", "Batches that were sent again.", counters.resent);
    addCounter(out, "conflicts", "Batches that met another end of their stream.", counters.conflicts);
    addCounter(out, "dropped", "Updates for which there was no room.", counters.dropped);
    addCounter(out, "gaps", "Gaps that stand in the streams.", counters.gaps);
    addCounter(out, "last_values", "Last values that the engine has acknowledged.", counters.lastValues);
    addCounter(out, "last_refused", "Last values that failed or were overtaken.", counters.lastRefused);
    addCounter(out, "live_dropped", "Single records for which there was no room.", counters.liveDropped);
    addCounter(out, "takeovers", "Partitions that were taken.", counters.takeovers);
    addCounter(out, "fenced", "Partitions given up, since their stream was not as it had been left.",
               counters.fenced);
    addGauge(out, "waiting_bytes", "Bytes of records that aren't acknowledged.",
             static_cast<double>(counters.waitingBytes));
    addGauge(out, "partitions", "Partitions whose leases are held.",
             static_cast<double>(status.partitions.size()));
    addGauge(out, "members", "Bridges that are alive.", static_cast<double>(status.members));
    addGauge(out, "connected", "1 while there is a connection to the engine.", status.isConnected ? 1 : 0);
    addGauge(out, "troubled", "Partitions that the engine does not take or does not answer for.",
             static_cast<double>(status.troubled));
    addGauge(out, "lease_age_seconds", "Time since the leases were renewed.", status.leaseAge);
    out += "# TYPE tivra_bridge_lease gauge\n# HELP tivra_bridge_lease 1 for each partition that is held.\n";
    for (const unsigned partition : status.partitions)
        fmt::format_to(std::back_inserter(out), "tivra_bridge_lease{{partition=\"{}\"}} 1\n", partition);
    return out;
}

std::string bridgeHealth(const Bridge& bridge) {
    const BridgeStatus status = bridge.status();
    return fmt::format(
        R"({{"healthy":{},"engine":"{}","hubs":"{}","members":{},"partitions":[{}],"troubled":{},"lease_age":{:.3f}}})"
        "\n",
        isHealthy(status), status.isConnected ? "connected" : "lost", statusOf(status.feed), status.members,
        fmt::join(status.partitions, ","), status.troubled, status.leaseAge);
}

} // namespace tivra_bus
