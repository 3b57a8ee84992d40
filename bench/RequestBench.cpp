// Standing requests over a group of hubs: how long they take to be answered, what they occupy, what a replay
// of them all costs, and how that grows with their number.
// usage: tivra_request_bench [ROUNDS] [--quick] [--json FILE]
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "FeedLoad.h"
#include "GroupProcess.h"
#include "Interleave.h"
#include "Report.h"
#include "RequestLoad.h"

using namespace tivra_bench;

namespace {

constexpr std::size_t kMost = 100000;
/// Once, at the end: it takes a gigabyte on either side.
constexpr std::size_t kMillion = 1000000;
/// Requests that a hub thread writes in a second at most: 500 in each of its ticks of 50 ms.
constexpr double kLimitPerThread = 10000.0;
/// Enough of them for two seconds at the limit.
constexpr std::size_t kPathRequests = 20000;

/// The runs of one number of requests, and what each of these took.
struct Load {
    std::size_t requests;
    std::vector<double> answered;   ///< seconds
    std::vector<double> replayed;   ///< seconds
    std::vector<double> sendEach;   ///< seconds of the application's thread
    std::vector<double> cpuEach;    ///< seconds of the process, from `send` to the answer
    std::vector<double> replayCpu;  ///< seconds of the process, with the hubs' return
    std::vector<double> replayEach; ///< without that, and without idle turns meanwhile
    std::vector<double> heapEach;
    std::vector<double> residentEach;
    std::vector<double> idle;      ///< share of a core while all of them stand
    std::vector<double> sendCpu{}; ///< seconds of processor time of the application's thread
};

/// `reconnect` is the return of the hubs without any requests.
void addRun(Load& load, const RequestRun& run, const RequestRun& reconnect) {
    const auto requests = static_cast<double>(load.requests);
    load.answered.push_back(run.answeredSeconds);
    load.replayed.push_back(run.replaySeconds);
    load.sendEach.push_back(run.sendSeconds / requests);
    load.cpuEach.push_back(run.answeredCpu / requests);
    load.replayCpu.push_back(run.replayCpu);
    // The longer the replay takes, the more the idle turns of the threads add to it.
    const double idle = run.idleCpu * (run.replaySeconds - reconnect.replaySeconds);
    load.replayEach.push_back((run.replayCpu - reconnect.replayCpu - idle) / requests);
    load.heapEach.push_back(run.heapBytes / requests);
    load.residentEach.push_back(run.residentBytes / requests);
    load.idle.push_back(run.idleCpu);
    load.sendCpu.push_back(run.sendCpu / requests);
}

std::vector<double> times(std::vector<double> values, double factor) {
    for (double& value : values)
        value *= factor;
    return values;
}

void reportLoad(const Load& load) {
    Report& report = Report::get();
    report.setSection("Requests, " + std::to_string(load.requests));
    report.add("send", times(load.sendEach, 1e6), "us each");
    report.add("send, processor time", times(load.sendCpu, 1e6), "us each");
    report.add("answered", load.answered, "s");
    report.add("processor time until answered", times(load.cpuEach, 1e6), "us each");
    report.add("replayed after a loss", load.replayed, "s");
    report.add("heap", load.heapEach, "bytes each");
    report.add("idle with all of them, processor", times(load.idle, 100.0), "% of a core");
}

void printLoads(const std::vector<Load>& loads, const std::vector<double>& reconnectCpu) {
    for (const Load& load : loads) {
        std::printf(
            "  %6zu: all answered in %6.3f s (noise %4.1f%%), %4.1f us of processor time each; `send` "
            "takes %4.1f us\n",
            load.requests, median(load.answered), noise(load.answered) * 100.0, median(load.cpuEach) * 1e6,
            median(load.sendEach) * 1e6);
        std::printf("          hubs back and all replayed in %6.3f s and %4.0f ms of processor time; with "
                    "nothing to replay %4.0f ms\n",
                    median(load.replayed), median(load.replayCpu) * 1e3, median(reconnectCpu) * 1e3);
        std::printf("          %5.0f bytes of the heap each, %5.0f of resident memory\n",
                    median(load.heapEach), median(load.residentEach));
    }
}

void printGrowth(const char* what, const Load& small, const Load& large,
                 const std::vector<double> Load::*each) {
    printAim(std::string(what) + " for each, " + std::to_string(large.requests) + " to " +
                 std::to_string(small.requests),
             ratios(large.*each, small.*each), "1.0, linear");
}

/// Requests in a second from `send` to the answer, as a share of what the hub threads may write.
double pathShare(const RequestRun& run, std::size_t requests, std::size_t hubThreads) {
    return static_cast<double>(requests) / run.answeredSeconds /
           (kLimitPerThread * static_cast<double>(hubThreads));
}

/// The figures of a run of the program.
struct Figures {
    std::vector<Load> loads;
    std::vector<double> reconnectCpu;
    std::vector<double> oneThread;
    std::vector<double> allThreads;
    std::vector<FeedRun> groups; ///< of kMost subscriptions, and of a million if that was run
};

void measure(Figures& figures, const Options& options) {
    for (const std::size_t requests : {kMost / 100, kMost / 10, kMost})
        figures.loads.push_back({requests, {}, {}, {}, {}, {}, {}, {}, {}, {}});
    {
        const GroupProcess group(kMost + kGroupHubs);
        for (int round = 0; round < options.rounds; ++round) {
            const RequestRun reconnect = runRequests(group, {0, true});
            figures.reconnectCpu.push_back(reconnect.replayCpu);
            for (Load& load : figures.loads) {
                const RequestRun run = runRequests(group, {load.requests, true});
                addRun(load, run, reconnect);
                if (load.requests == kMost)
                    figures.allThreads.push_back(pathShare(run, kMost, kGroupHubs));
            }
            figures.oneThread.push_back(
                pathShare(runRequests(group, {kPathRequests, false}), kPathRequests, 1));
        }
        figures.groups.push_back(runSubscriptions(group, kMost));
    }
    if (options.isQuick)
        return;
    const GroupProcess group(kMillion + kGroupHubs);
    figures.loads.push_back({kMillion, {}, {}, {}, {}, {}, {}, {}, {}, {}});
    addRun(figures.loads.back(), runRequests(group, {kMillion, true}), runRequests(group, {0, true}));
    figures.groups.push_back(runSubscriptions(group, kMillion));
}

/// The groups of a feed.
void printGroups(const std::vector<FeedRun>& groups) {
    std::size_t subscriptions = kMost;
    for (const FeedRun& run : groups) {
        const auto each = [&](double value) { return value / static_cast<double>(subscriptions); };
        std::printf("\nA group of %zu subscriptions of a feed: all live in %.3f s and %.1f us of processor "
                    "time each, "
                    "`add` takes %.1f us\n          %.0f bytes of the heap each, %.0f of resident memory\n",
                    subscriptions, run.liveSeconds, each(run.liveCpu) * 1e6, each(run.addCpu) * 1e6,
                    each(run.heapBytes), each(run.residentBytes));
        subscriptions *= kMillion / kMost;
    }
    const FeedRun& last = groups.back();
    const double share = static_cast<double>(groups.size() == 1 ? kMost : kMillion);
    printAim("memory of a feed's subscription, to 1 KiB", {last.heapBytes / share / 1024.0}, "below 1.0");
    if (groups.size() == 1)
        return;
    const double factor = static_cast<double>(kMillion) / static_cast<double>(kMost);
    printAim("processor time, a feed's subscription until live, 1000000 to 100000",
             {last.liveCpu / groups.front().liveCpu / factor}, "1.0, linear");
}

void print(const Figures& figures, int rounds) {
    const std::vector<Load>& loads = figures.loads;
    std::printf(
        "\nSubscriptions over a group of %zu hubs with the watchlist on, a thread for each hub, %d rounds\n",
        kGroupHubs, rounds);
    printLoads(loads, figures.reconnectCpu);
    for (const Load& load : loads)
        reportLoad(load);
    Report::get().setSection("Requests");
    printAim("memory of a standing request, to 1 KiB", times(loads.back().heapEach, 1.0 / 1024.0),
             "below 1.0");
    const Load& last = loads.back();
    const Load& before = loads[loads.size() - 2];
    printGrowth("memory", loads.front(), last, &Load::heapEach);
    printGrowth("processor time, send", loads.front(), last, &Load::sendCpu);
    printGrowth("processor time, answer", loads.front(), last, &Load::cpuEach);
    // A replay of the fewest drowns in the hubs' return.
    printGrowth("processor time, replay", before, last, &Load::replayEach);
    printGroups(figures.groups);
    std::printf("\nThe path of a request, from `send` to the wire; a hub thread may write %.0f a second\n",
                kLimitPerThread);
    printGain("one hub thread, to its limit", figures.oneThread, "at least 0.95");
    printGain("a thread for each hub, to their limit", figures.allThreads, "none");
    Report::get().print("requests, one hub thread", times(figures.oneThread, kLimitPerThread), "1/s",
                        Better::HIGHER);
    Report::get().print("requests, 8 hub threads",
                        times(figures.allThreads, kLimitPerThread * static_cast<double>(kGroupHubs)), "1/s",
                        Better::HIGHER);
}

} // namespace

int main(int argc, char** argv) {
    try {
        const Options options(argc, argv, 3);
        Figures figures;
        measure(figures, options);
        print(figures, options.rounds);
        Report::get().finish();
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "requests: %s\n", error.what());
        return 1;
    }
}
