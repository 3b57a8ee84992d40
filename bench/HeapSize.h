#pragma once

#include <cstdio>
#include <stdexcept>

#include <malloc.h>
#include <unistd.h>

namespace tivra_bench {

/// What the process has allocated now.
inline double heapBytes() {
    const struct mallinfo2 info = mallinfo2();
    return static_cast<double>(info.uordblks) + static_cast<double>(info.hblkhd);
}

/// What the process occupies now.
inline double residentBytes() {
    long total = 0;
    long resident = 0;
    std::FILE* const file = std::fopen("/proc/self/statm", "r");
    if (file == nullptr || std::fscanf(file, "%ld %ld", &total, &resident) != 2)
        throw std::runtime_error("no /proc/self/statm");
    std::fclose(file);
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE));
}

} // namespace tivra_bench
