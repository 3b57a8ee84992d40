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
    enum Feed { PLAIN, COMPRESSED, ZMQ } feed;
    bool isPaced;
    std::vector<double> cpu{};
    std::vector<double> rate{};
    std::vector<double> p50{};
    std::vector<double> p99{};
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
    load.zmq = road.feed == Road::ZMQ;
    RoadHub hub(load);
    const RoadRun run = road.run({hub, kPerPass, kPasses, false, road.feed == Road::COMPRESSED});
    const auto messages = static_cast<double>(kPerPass);
    road.cpu.push_back(run.cpuSeconds * 1e9 / messages);
    road.rate.push_back(messages / run.wallSeconds);
}

void runPaced(Road& road) {
    RoadLoad load;
    load.paced = kPaced;
    load.zmq = road.feed == Road::ZMQ;
    RoadHub hub(load);
    const RoadRun run = road.run({hub, kPaced, 1, true, false});
    road.p50.push_back(percentile(run.latencies, 0.50));
    road.p99.push_back(percentile(run.latencies, 0.99));
}

void printSpeeds(const std::vector<Road*>& roads, int rounds) {
    std::printf("\nThe whole road, %zu messages a run at full speed, %d rounds in turn\n", kPerPass, rounds);
    for (const Road* road : roads)
        std::printf("  %-32s %7.1f ns of processor time a message (noise %4.1f%%), %10.0f messages/s\n",
                    road->name, median(road->cpu), noise(road->cpu) * 100.0, median(road->rate));
}

void printLatencies(const std::vector<Road*>& roads) {
    std::printf("\nAt 10,000 messages a second, %zu messages a run\n", kPaced);
    for (const Road* road : roads)
        if (road->isPaced)
            std::printf("  %-32s p50 %8.1f us, p99 %8.1f us (noise %4.1f%%, %4.1f%%)\n", road->name,
                        median(road->p50), median(road->p99), noise(road->p50) * 100.0,
                        noise(road->p99) * 100.0);
}

std::vector<double> sums(const std::vector<double>& one, const std::vector<double>& other) {
    std::vector<double> result;
    for (std::size_t i = 0; i < one.size(); ++i)
        result.push_back(one[i] + other[i]);
    return result;
}

} // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 5;
    Road library{"library, socket to callback", &runLibrary, Road::PLAIN, true};
    Road compressed{"library, compressed", &runLibrary, Road::COMPRESSED, false};
    Road inflate{"zlib's inflate alone", &runInflate, Road::COMPRESSED, false};
    Road twoThreads{"(c) two threads and the parser", &runTwoThreads, Road::PLAIN, true};
    Road bare{"bare loop that cuts frames", &runBareLoop, Road::PLAIN, false};
    Road statistics{"the library's counting alone", &runStatistics, Road::PLAIN, false};
    std::vector<Road*> roads{&library, &compressed, &inflate, &twoThreads, &bare, &statistics};
#ifdef TIVRA_HAVE_ZMQ
    Road zmq{"ZeroMQ PUSH/PULL, not decoded", &runZmq, Road::ZMQ, true};
    roads.push_back(&zmq);
#else
    std::printf("ZeroMQ was not there when this was built and is left out.\n");
#endif
    try {
        for (int round = 0; round < rounds; ++round) {
            for (Road* road : roads)
                runFullSpeed(*road);
            for (Road* road : roads)
                if (road->isPaced)
                    runPaced(*road);
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "road: %s\n", error.what());
        return 1;
    }
    printSpeeds(roads, rounds);
    printAim("processor time, library to (c)", ratios(library.cpu, twoThreads.cpu), "at most 1.30");
    printAim("processor time, library to the bare loop", ratios(library.cpu, bare.cpu), "for information");
    printAim("processor time, compressed to inflate and plain",
             ratios(compressed.cpu, sums(inflate.cpu, library.cpu)), "at most 1.08");
    printAim("processor time, counting to library", ratios(statistics.cpu, library.cpu), "below 0.01");
#ifdef TIVRA_HAVE_ZMQ
    printAim("messages a processor second, library to ZeroMQ", ratios(zmq.cpu, library.cpu), "at least 2");
#endif
    printLatencies(roads);
    printAim("p50, library to (c)", ratios(library.p50, twoThreads.p50), "at most 1.2");
    printAim("p99, library to (c)", ratios(library.p99, twoThreads.p99), "at most 1.3");
#ifdef TIVRA_HAVE_ZMQ
    printAim("p50, library to ZeroMQ", ratios(library.p50, zmq.p50), "at most 0.6");
    printAim("p99, library to ZeroMQ", ratios(library.p99, zmq.p99), "at most 0.9");
#endif
    return 0;
}
