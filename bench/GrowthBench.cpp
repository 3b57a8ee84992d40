// Whether a message costs the same however much of everything there is: symbols, hubs, bytes in a frame.
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

/// One point of a curve.
struct Point {
    std::string name;
    RoadLoad load;
    bool hasRaw = false; ///< two threads with the parser alone are measured too
    std::size_t messages = 0;
    std::vector<double> library{}; ///< nanoseconds a message, one value for each round
    std::vector<double> raw{};
    std::vector<double> overhead{}; ///< library to raw
};

struct Curve {
    std::string name;
    std::vector<Point> points;
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
    point.library.push_back(nanoseconds(point, &runLibrary));
    if (!point.hasRaw)
        return;
    point.raw.push_back(nanoseconds(point, &runTwoThreads));
    point.overhead.push_back(point.library.back() / point.raw.back());
}

std::vector<Curve> curves(bool isQuick) {
    std::vector<Curve> made(3);
    made[0].name = "symbols";
    for (const unsigned symbols : {4U, 100U, 10000U, 100000U})
        made[0].points.push_back({std::to_string(symbols), load({Shape::NUMBERS, 129, 0, 1, symbols})});
    made[1].name = "hubs";
    for (const std::size_t hubs : {1U, 8U, isQuick ? 16U : 64U})
        made[1].points.push_back({std::to_string(hubs), load({Shape::NUMBERS, 129, 0, 1, 4}, hubs)});
    made[2].name = "bytes of a frame";
    for (const std::size_t length : {32U, 129U, 515U, 2048U, 16384U})
        made[2].points.push_back({std::to_string(length), load({Shape::NUMBERS, length, 0, 1, 4}), true});
    return made;
}

void print(const Curve& curve) {
    Report& report = Report::get();
    report.setSection("Growth, " + curve.name);
    std::printf("\n%s\n", curve.name.c_str());
    for (const Point& point : curve.points) {
        report.print(point.name, point.library, "ns/message");
        if (point.hasRaw)
            report.print(point.name + ", library to two threads", point.overhead, "ratio");
    }
    const Point& first = curve.points.front();
    const Point& last = curve.points.back();
    // Longer frames hold more to decode: flat is what the library adds to that.
    printAim(last.name + " to " + first.name,
             first.hasRaw ? ratios(last.overhead, first.overhead) : ratios(last.library, first.library),
             "at most 1.10");
}

} // namespace

int main(int argc, char** argv) {
    try {
        const Options options(argc, argv, 3);
        std::vector<Curve> all = curves(options.isQuick);
        for (int round = 0; round < options.rounds; ++round)
            for (Curve& curve : all)
                for (Point& point : curve.points)
                    measure(point);
        std::printf("Processor time of a message from the socket to the callback, as the feed grows\n");
        for (const Curve& curve : all)
            print(curve);
        Report::get().finish();
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "growth: %s\n", error.what());
        return 1;
    }
}
