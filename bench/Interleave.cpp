#include "Interleave.h"

#include <algorithm>
#include <cstdio>

#include <time.h>

namespace tivra_bench {

namespace {

double processorTime() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double quantile(std::vector<double>& values, double part) {
    const auto at = static_cast<std::ptrdiff_t>(part * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), values.begin() + at, values.end());
    return values[static_cast<std::size_t>(at)];
}

} // namespace

Times interleave(const std::vector<Contestant>& contestants, int rounds) {
    Times times(contestants.size());
    for (int round = -1; round < rounds; ++round) {
        for (std::size_t i = 0; i < contestants.size(); ++i) {
            const double start = processorTime();
            contestants[i].run();
            if (round >= 0)
                times[i].push_back(processorTime() - start);
        }
    }
    return times;
}

double median(std::vector<double> values) {
    return quantile(values, 0.5);
}

double noise(std::vector<double> values) {
    return (quantile(values, 0.75) - quantile(values, 0.25)) / 2 / quantile(values, 0.5);
}

std::vector<double> ratios(const std::vector<double>& of, const std::vector<double>& to) {
    std::vector<double> result;
    for (std::size_t i = 0; i < of.size(); ++i)
        result.push_back(of[i] / to[i]);
    return result;
}

void printTable(const std::string& title, const std::vector<Contestant>& contestants, const Times& times,
                std::size_t items, const char* item) {
    std::printf("\n%s\n", title.c_str());
    for (std::size_t i = 0; i < contestants.size(); ++i) {
        const std::vector<double> ratio = ratios(times[i], times[0]);
        std::printf("  %-34s %9.1f ns/%-8s ratio %6.3f  noise %4.1f%%\n", contestants[i].name.c_str(),
                    median(times[i]) * 1e9 / static_cast<double>(items), item, median(ratio),
                    noise(ratio) * 100);
    }
}

void printAim(const std::string& text, const std::vector<double>& ratio, const std::string& aim) {
    std::printf("  %-58s %6.3f  (noise %.1f%%; aim %s)\n", text.c_str(), median(ratio), noise(ratio) * 100,
                aim.c_str());
}

} // namespace tivra_bench
