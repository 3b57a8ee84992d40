// The plain road once, for two programs that differ in whether the library in them can encrypt.
// usage: PROGRAM
#include "Road.h"
#include "RoadHub.h"

#include <cstdio>
#include <exception>

using namespace tivra_bench;

int main() {
    constexpr std::size_t kEvents = 40000;
    try {
        RoadLoad load;
        load.events = kEvents;
        load.repeat = 15;
        RoadHub hub(load);
        RoadTask task{hub};
        task.messages = kEvents * load.repeat;
        task.passes = 3;
        std::printf("%.3f\n", runLibrary(task).cpuSeconds * 1e9 / static_cast<double>(task.messages));
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "road: %s\n", error.what());
        return 1;
    }
}
