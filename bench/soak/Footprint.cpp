#include "soak/Footprint.h"

#include <fstream>

#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

namespace tivra_soak {
namespace {

std::size_t entriesOf(const char* folder) {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder))
        ++count;
    return count;
}

double secondsOf(const timeval& time) {
    return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
}

} // namespace

double Footprint::resident() {
    std::ifstream file("/proc/self/statm");
    double pages = 0.0;
    file >> pages >> pages;
    return pages * static_cast<double>(sysconf(_SC_PAGESIZE));
}

double Footprint::residentInUse() {
    malloc_trim(0);
    return resident();
}

Footprint Footprint::now(const std::filesystem::path& logs) {
    Footprint now;
    now.residentBytes = resident();
    const struct mallinfo2 heap = mallinfo2();
    now.heapBytes = static_cast<double>(heap.uordblks + heap.hblkhd);
    now.descriptors = entriesOf("/proc/self/fd") - 1; // not the one that looks
    now.threads = entriesOf("/proc/self/task");
    for (const auto& entry : std::filesystem::directory_iterator(logs))
        now.logBytes += entry.file_size();
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    now.cpuSeconds = secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime);
    return now;
}

} // namespace tivra_soak
