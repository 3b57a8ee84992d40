// The whole road from the socket to the callback, against what the same bytes cost without the library.
// usage: tivra_road_bench [ROUNDS] [--quick] [--json FILE]
#include "Interleave.h"
#include "Report.h"
#include "Road.h"
#include "RoadHub.h"

#include <algorithm>
#include <cstdio>
#include <deque>
#include <exception>
#include <string>
#include <vector>

using namespace tivra_bench;

namespace {

constexpr std::size_t kEvents = 40000;
constexpr std::size_t kPasses = 3;
constexpr unsigned kRepeat = 15;
/// A NATS server drops a subscriber that lags by more than 64 MB.
constexpr unsigned kNatsRepeat = 8;
constexpr std::size_t kPaced = 30000;
constexpr std::size_t kShapedBytes = std::size_t{48} << 20;

using Runner = RoadRun (*)(const RoadTask& task);

/// A reader and what it is fed with, and its figures, one for each round.
struct Road {
    enum Trait { PLAIN = 0, COMPRESSED = 1, PACED = 2, INLINE = 4, FINDS = 8 };

    Road(std::string itsName, Runner itsRunner, int itsTraits)
        : name(std::move(itsName)), run(itsRunner), traits(itsTraits) {}

    std::string name;
    Runner run;
    int traits;
    RoadLoad load;
    std::size_t messages = 0; ///< of a pass of `load`
    std::vector<double> cpu;  ///< nanoseconds a message
    std::vector<double> rate;
    std::vector<double> p50; ///< microseconds
    std::vector<double> p99;
};

double microseconds(const std::vector<std::int64_t>& latencies, double share) {
    return quantile({latencies.begin(), latencies.end()}, share) / 1000.0;
}

RoadTask taskOf(const Road& road, RoadHub& hub) {
    RoadTask task{hub};
    task.compressed = (road.traits & Road::COMPRESSED) != 0;
    task.isInline = (road.traits & Road::INLINE) != 0;
    task.findsSymbol = (road.traits & Road::FINDS) != 0;
    return task;
}

void runFullSpeed(Road& road) {
    RoadHub hub(road.load);
    RoadTask task = taskOf(road, hub);
    task.messages = road.messages;
    task.passes = kPasses;
    const RoadRun run = road.run(task);
    const auto messages = static_cast<double>(road.messages);
    road.cpu.push_back(run.cpuSeconds * 1e9 / messages);
    road.rate.push_back(messages / run.wallSeconds);
}

void runPaced(Road& road) {
    RoadLoad load;
    load.paced = kPaced;
    load.through = road.load.through;
    RoadHub hub(load);
    RoadTask task = taskOf(road, hub);
    task.messages = kPaced;
    task.paced = true;
    const RoadRun run = road.run(task);
    road.p50.push_back(microseconds(run.latencies, 0.50));
    road.p99.push_back(microseconds(run.latencies, 0.99));
}

std::vector<double> sums(const std::vector<double>& one, const std::vector<double>& other) {
    std::vector<double> result;
    for (std::size_t i = 0; i < one.size(); ++i)
        result.push_back(one[i] + other[i]);
    return result;
}

/// The roads of a run, in the order of their turns.
class Roads {
public:
    Road& add(const std::string& name, Runner runner, int traits, RoadLoad::Through through = RoadLoad::HUB) {
        Road& road = m_roads.emplace_back(name, runner, traits);
        road.load.events = kEvents;
        road.load.repeat = through == RoadLoad::NATS ? kNatsRepeat : kRepeat;
        road.load.through = through;
        road.messages = kEvents * road.load.repeat;
        return road;
    }
    Road& add(const std::string& name, Runner runner, const Shape& shape) {
        Road& road = m_roads.emplace_back(name, runner, Road::PLAIN);
        road.load.shape = shape;
        road.load.shapedBytes = kShapedBytes;
        road.messages = shapedMessages(road.load);
        return road;
    }

    void run(int rounds) {
        for (int round = 0; round < rounds; ++round) {
            for (Road& road : m_roads)
                runFullSpeed(road);
            for (Road& road : m_roads)
                if ((road.traits & Road::PACED) != 0)
                    runPaced(road);
        }
    }

    void print() const {
        Report& report = Report::get();
        std::printf("\nThe whole road at full speed, processor time of the reading process\n");
        report.setSection("Road");
        for (const Road& road : m_roads) {
            report.print(road.name, road.cpu, "ns/message");
            report.add(road.name + ", speed", road.rate, "messages/s", Better::HIGHER);
        }
        std::printf("\nThe age of a message at 10,000 a second from a sender that sleeps in between\n");
        report.setSection("Road, paced");
        for (const Road& road : m_roads) {
            if ((road.traits & Road::PACED) == 0)
                continue;
            report.print(road.name + ", p50", road.p50, "us");
            report.print(road.name + ", p99", road.p99, "us");
        }
    }

private:
    std::deque<Road> m_roads;
};

/// The same messages through the library and through two threads with its parser.
struct ShapedPair {
    std::string name;
    Road* library;
    Road* twoThreads;
};

std::vector<ShapedPair> addShapes(Roads& roads) {
    const std::pair<const char*, Shape> shapes[] = {
        {"text at the end", {Shape::TEXT_END, 0, 0, 1, 4}},
        {"one layout", {Shape::NUMBERS, 0, 0, 1, 4}},
        {"1,024 layouts mixed", {Shape::NUMBERS, 0, 0, 1024, 4}},
        {"64 pairs", {Shape::NUMBERS, 0, 64, 1, 4}},
        {"three texts of 1,000 bytes", {Shape::LONG_TEXTS, 1000, 0, 1, 4}},
    };
    std::vector<ShapedPair> pairs;
    for (const auto& [name, shape] : shapes) {
        const std::string text(name);
        pairs.push_back({text, &roads.add("library, " + text, &runLibrary, shape),
                         &roads.add("two threads, " + text, &runTwoThreads, shape)});
    }
    return pairs;
}

void printShapes(const std::vector<ShapedPair>& pairs) {
    std::printf("\nMessages of other shapes, processor time\n");
    Report::get().setSection("Road");
    for (const ShapedPair& pair : pairs)
        printAim("library to two threads, " + pair.name, ratios(pair.library->cpu, pair.twoThreads->cpu),
                 "at most 1.20");
    printAim("1,024 layouts to one, library", ratios(pairs[2].library->cpu, pairs[1].library->cpu),
             "at most 1.6");
}

int run(const Options& options) {
    Roads roads;
    Road& library = roads.add("library, socket to callback", &runLibrary, Road::PACED);
    Road& compressed = roads.add("library, compressed", &runLibrary, Road::COMPRESSED);
    Road& inflate = roads.add("zlib's inflate alone", &runInflate, Road::COMPRESSED);
    Road& twoThreads = roads.add("two threads and the parser", &runTwoThreads, Road::PACED);
    Road& bare = roads.add("blocking read on one thread", &runBareLoop, Road::PACED);
    Road& statistics = roads.add("the library's counting alone", &runStatistics, Road::PLAIN);
    Road* onHubThread = nullptr;
    if (libraryHasInlineCallbacks())
        onHubThread = &roads.add("library, inline", &runLibrary, Road::PACED | Road::INLINE);
    Road* feed = libraryHasFeeds() ? &roads.add("feed, socket to callback", &runFeed, Road::PLAIN) : nullptr;
    Road& finding = roads.add("library, callback finds its symbol", &runLibrary, Road::FINDS);
    // On one thread each, what a hand-over to the other happens to cost is out of the picture.
    Road* feedOnHubThread = libraryHasFeeds() ? &roads.add("feed, inline", &runFeed, Road::INLINE) : nullptr;
#ifdef TIVRA_HAVE_ZMQ
    Road& zmq = roads.add("ZeroMQ PUSH/PULL, not decoded", &runZmq, Road::PACED, RoadLoad::ZMQ_PUSH);
#else
    std::printf("ZeroMQ was not there when this was built and is left out.\n");
#endif
#ifdef TIVRA_HAVE_NATS
    Road& nats = roads.add("NATS, not decoded", &runNats, Road::PLAIN, RoadLoad::NATS);
#else
    std::printf("NATS was not there when this was built and is left out.\n");
#endif
    const std::vector<ShapedPair> shapes = addShapes(roads);
    roads.run(options.isQuick ? std::min(options.rounds, 3) : options.rounds);
    roads.print();
    printShapes(shapes);
    std::printf("\nRatios, round by round\n");
    printAim("processor time, library to two threads", ratios(library.cpu, twoThreads.cpu), "at most 1.20");
    printAim("processor time, library to the bare loop", ratios(library.cpu, bare.cpu), "none");
    printAim("processor time, compressed to inflate and plain",
             ratios(compressed.cpu, sums(inflate.cpu, library.cpu)), "at most 1.08");
    printAim("processor time, counting to library", ratios(statistics.cpu, library.cpu), "below 0.01");
#ifdef TIVRA_HAVE_ZMQ
    printGain("messages a processor second, library to ZeroMQ", ratios(zmq.cpu, library.cpu), "at least 3");
#endif
#ifdef TIVRA_HAVE_NATS
    printGain("messages a processor second, library to NATS", ratios(nats.cpu, library.cpu), "at least 6");
#endif
    if (feed != nullptr)
        printAim("processor time, feed to library", ratios(feed->cpu, library.cpu), "at most 1.03");
    if (feed != nullptr)
        printAim("processor time, feed to a callback that finds its symbol", ratios(feed->cpu, finding.cpu),
                 "at most 1.03");
    if (onHubThread != nullptr)
        printAim("processor time, inline to the library's two threads", ratios(onHubThread->cpu, library.cpu),
                 "at most 0.75");
    if (onHubThread != nullptr && feedOnHubThread != nullptr)
        printAim("processor time, feed to library, both inline",
                 ratios(feedOnHubThread->cpu, onHubThread->cpu), "at most 1.03");
    Report::get().setSection("Road, paced");
    printAim("p50, library to two threads", ratios(library.p50, twoThreads.p50), "at most 1.2");
    printAim("p99, library to two threads", ratios(library.p99, twoThreads.p99), "at most 1.3");
    if (onHubThread != nullptr)
        printAim("p50, inline to a blocking read", ratios(onHubThread->p50, bare.p50), "at most 1.25");
#ifdef TIVRA_HAVE_ZMQ
    printAim("p50, library to ZeroMQ", ratios(library.p50, zmq.p50), "at most 0.6");
    printAim("p99, library to ZeroMQ", ratios(library.p99, zmq.p99), "at most 0.9");
#endif
    Report::get().finish();
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return run(Options(argc, argv, 5));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "road: %s\n", error.what());
        return 1;
    }
}
