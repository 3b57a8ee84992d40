// The whole road from the socket to the callback, against what the same bytes cost without the library.
// usage: tivra_road_bench [ROUNDS]
#include "Interleave.h"
#include "Road.h"
#include "RoadHub.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <vector>

using namespace tivra_bench;

namespace {

constexpr std::size_t kEvents = 40000;
constexpr unsigned kRepeat = 15;
constexpr std::size_t kPerPass = kEvents * kRepeat;
constexpr std::size_t kPasses = 3;
constexpr std::size_t kPaced = 30000;

using Runner = RoadRun (*)(const RoadTask& task);

struct Road {
    const char* name;
    Runner run;
    std::vector<double> cpu;
    std::vector<double> rate;
    std::vector<double> p50;
    std::vector<double> p99;
};

double percentile(std::vector<std::int64_t> values, double share) {
    if (values.empty())
        return 0.0;
    std::sort(values.begin(), values.end());
    const auto index = static_cast<std::size_t>(share * static_cast<double>(values.size() - 1));
    return static_cast<double>(values[index]) / 1000.0;
}

void runFullSpeed(Road& road) {
    RoadLoad load;
    load.events = kEvents;
    load.repeat = kRepeat;
    RoadHub hub(load);
    const RoadRun run = road.run({hub, kPerPass, kPasses, false});
    const auto messages = static_cast<double>(kPerPass);
    road.cpu.push_back(run.cpuSeconds * 1e9 / messages);
    road.rate.push_back(messages / run.wallSeconds);
}

void runPaced(Road& road) {
    RoadLoad load;
    load.paced = kPaced;
    RoadHub hub(load);
    const RoadRun run = road.run({hub, kPaced, 1, true});
    road.p50.push_back(percentile(run.latencies, 0.50));
    road.p99.push_back(percentile(run.latencies, 0.99));
}

} // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 5;
    Road library{"library, socket to callback", &runLibrary, {}, {}, {}, {}};
    Road twoThreads{"(c) two threads and the parser", &runTwoThreads, {}, {}, {}, {}};
    Road bare{"bare loop that cuts frames", &runBareLoop, {}, {}, {}, {}};
    try {
        for (int round = 0; round < rounds; ++round) {
            for (Road* road : {&library, &twoThreads, &bare})
                runFullSpeed(*road);
            for (Road* road : {&library, &twoThreads})
                runPaced(*road);
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "road: %s\n", error.what());
        return 1;
    }
    std::printf("\nThe whole road, %zu messages a run at full speed, %d rounds in turn\n", kPerPass, rounds);
    for (const Road* road : {&library, &twoThreads, &bare})
        std::printf("  %-32s %7.1f ns of processor time a message (noise %4.1f%%), %10.0f messages/s\n",
                    road->name, median(road->cpu), noise(road->cpu) * 100.0, median(road->rate));
    printAim("processor time, library to (c)", ratios(library.cpu, twoThreads.cpu), "at most 1.30");
    printAim("processor time, library to the bare loop", ratios(library.cpu, bare.cpu), "for information");
    std::printf("\nAt 10,000 messages a second, %zu messages a run\n", kPaced);
    for (const Road* road : {&library, &twoThreads})
        std::printf("  %-32s p50 %8.1f us, p99 %8.1f us (noise %4.1f%%, %4.1f%%)\n", road->name,
                    median(road->p50), median(road->p99), noise(road->p50) * 100.0, noise(road->p99) * 100.0);
    printAim("p50, library to (c)", ratios(library.p50, twoThreads.p50), "at most 1.2");
    printAim("p99, library to (c)", ratios(library.p99, twoThreads.p99), "at most 1.3");
    return 0;
}
