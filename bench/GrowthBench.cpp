// Whether a message costs the same however much of everything there is: symbols, hubs, feeds, bytes in a
// frame, messages a second.
// usage: tivra_growth_bench [ROUNDS] [--quick] [--json FILE]
#include "Interleave.h"
#include "Report.h"
#include "Road.h"
#include "RoadHub.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

using namespace tivra_bench;

namespace {

/// Of all hubs in a pass.
constexpr std::size_t kBytes = std::size_t{48} << 20;
constexpr std::size_t kPasses = 3;
/// Of each point of the curve of messages a second.
constexpr std::size_t kPacedSeconds = 2;

/// One point of a curve.
struct Point {
    std::string name;
    RoadLoad load;
    bool hasRaw = false; ///< two threads with the parser alone are measured too
    RoadRun (*reader)(const RoadTask&) = &runLibrary;
    std::size_t messages = 0;
    std::vector<double> library{}; ///< nanoseconds a message, one value for each round
    std::vector<double> raw{};
    std::vector<double> overhead{}; ///< library to raw
};

struct Curve {
    std::string name;
    std::vector<Point> points{};
    bool isOverhead = false; ///< flat is to be what the library adds to the two threads
};

RoadLoad load(const Shape& shape, std::size_t hubs = 1) {
    RoadLoad made;
    made.shape = shape;
    made.shapedBytes = kBytes / hubs;
    made.hubs = hubs;
    return made;
}

double nanoseconds(const Point& point, RoadRun (*reader)(const RoadTask&)) {
    RoadHub hub(point.load);
    RoadTask task{hub};
    task.messages = point.messages;
    task.passes = kPasses;
    return reader(task).cpuSeconds * 1e9 / static_cast<double>(point.messages);
}

void measure(Point& point) {
    if (point.messages == 0)
        point.messages = shapedMessages(point.load) * point.load.hubs;
    point.library.push_back(nanoseconds(point, point.reader));
    if (!point.hasRaw)
        return;
    point.raw.push_back(nanoseconds(point, &runTwoThreads));
    point.overhead.push_back(point.library.back() / point.raw.back());
}

std::vector<Curve> curves(bool isQuick) {
    Curve symbols{"symbols"};
    for (const unsigned count : {4U, 100U, 10000U, 100000U})
        symbols.points.push_back(
            {std::to_string(count), load({Shape::NUMBERS, 129, 0, 1, count}), true, &runLibrary});
    Curve hubs{"hubs"};
    for (const std::size_t count : {1U, 8U, isQuick ? 16U : 64U})
        hubs.points.push_back({std::to_string(count), load({Shape::NUMBERS, 129, 0, 1, 4}, count)});
    Curve feeds{"feeds"};
    for (const std::size_t count : {1U, 4U, isQuick ? 8U : 32U})
        feeds.points.push_back(
            {std::to_string(count), load({Shape::NUMBERS, 129, 0, 1, 4}, count), false, &runFeeds});
    // Longer frames hold more to decode.
    Curve bytes{"bytes of a frame", {}, true};
    for (const std::size_t length : {32U, 129U, 515U, 2048U, 16384U})
        bytes.points.push_back({std::to_string(length), load({Shape::NUMBERS, length, 0, 1, 4}), true});
    return {symbols, hubs, feeds, bytes};
}

void print(const Curve& curve) {
    Report& report = Report::get();
    report.setSection("Growth, " + curve.name);
    std::printf("\n%s\n", curve.name.c_str());
    for (const Point& point : curve.points) {
        report.print(point.name, point.library, "ns/message");
        if (!point.hasRaw)
            continue;
        report.print(point.name + ", two threads", point.raw, "ns/message");
        report.print(point.name + ", library to two threads", point.overhead, "ratio");
    }
    const Point& first = curve.points.front();
    const Point& last = curve.points.back();
    printAim(last.name + " to " + first.name,
             curve.isOverhead ? ratios(last.overhead, first.overhead) : ratios(last.library, first.library),
             "at most 1.10");
}

/// The age of messages that come at a pace.
struct Pace {
    std::string name;
    RoadRun (*reader)(const RoadTask&);
    RoadLoad load;
    std::vector<double> p50{}; ///< microseconds
    std::vector<double> p99{};
};

void measure(Pace& pace) {
    RoadHub hub(pace.load);
    RoadTask task{hub};
    task.messages = pace.load.paced;
    task.paced = true;
    const RoadRun run = pace.reader(task);
    const std::vector<double> ages(run.latencies.begin(), run.latencies.end());
    pace.p50.push_back(quantile(ages, 0.50) / 1000.0);
    pace.p99.push_back(quantile(ages, 0.99) / 1000.0);
}

std::vector<Pace> paces(bool isQuick) {
    std::vector<Pace> made;
    for (const std::size_t perSecond : {1000U, 10000U, isQuick ? 20000U : 50000U, 100000U}) {
        RoadLoad load;
        load.perSecond = perSecond;
        load.paced = perSecond * kPacedSeconds;
        const std::string name = std::to_string(perSecond);
        made.push_back({name + ", library", &runLibrary, load});
        made.push_back({name + ", two threads", &runTwoThreads, load});
#ifdef TIVRA_HAVE_ZMQ
        load.through = RoadLoad::ZMQ_PUSH;
        made.push_back({name + ", ZeroMQ", &runZmq, load});
#endif
    }
    return made;
}

void print(const std::vector<Pace>& all) {
    Report& report = Report::get();
    report.setSection("Growth, messages a second");
    std::printf("\nThe age of a message as there are more a second, from a sender that sleeps in between\n");
    for (const Pace& pace : all) {
        report.print(pace.name + ", p50", pace.p50, "us");
        report.print(pace.name + ", p99", pace.p99, "us");
    }
}

} // namespace

int main(int argc, char** argv) {
    try {
        const Options options(argc, argv, 3);
        std::vector<Curve> all = curves(options.isQuick);
        std::vector<Pace> paced = paces(options.isQuick);
        for (int round = 0; round < options.rounds; ++round) {
            for (Curve& curve : all)
                for (Point& point : curve.points)
                    measure(point);
            for (Pace& pace : paced)
                measure(pace);
        }
        std::printf("Processor time of a message from the socket to the callback, as the feed grows\n");
        for (const Curve& curve : all)
            print(curve);
        print(paced);
        Report::get().finish();
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "growth: %s\n", error.what());
        return 1;
    }
}
