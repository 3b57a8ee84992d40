#include "Interleave.h"

#include "Report.h"

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

double quantile(std::vector<double> values, double share) {
    const auto at = static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), values.begin() + at, values.end());
    return values[static_cast<std::size_t>(at)];
}

double median(std::vector<double> values) {
    return quantile(std::move(values), 0.5);
}

double noise(const std::vector<double>& values) {
    const double middle = quantile(values, 0.5);
    return middle == 0.0 ? 0.0 : (quantile(values, 0.75) - quantile(values, 0.25)) / 2 / middle;
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
    Report::get().setSection(title.substr(0, title.find_first_of(":,")));
    for (std::size_t i = 0; i < contestants.size(); ++i) {
        const std::vector<double> ratio = ratios(times[i], times[0]);
        std::printf("  %-34s %9.1f ns/%-8s ratio %6.3f  noise %4.1f%%\n", contestants[i].name.c_str(),
                    median(times[i]) * 1e9 / static_cast<double>(items), item, median(ratio),
                    noise(ratio) * 100);
        std::vector<double> each = times[i];
        for (double& time : each)
            time *= 1e9 / static_cast<double>(items);
        Report::get().add(contestants[i].name, each, std::string("ns/").append(item));
    }
}

namespace {

void printRatio(const std::string& text, const std::vector<double>& ratio, const std::string& aim,
                Better better) {
    std::printf("  %-58s %6.3f  (noise %.1f%%; aim %s)\n", text.c_str(), median(ratio), noise(ratio) * 100,
                aim.c_str());
    Report::get().add(text, ratio, "ratio", better);
}

} // namespace

void printAim(const std::string& text, const std::vector<double>& ratio, const std::string& aim) {
    printRatio(text, ratio, aim, Better::LOWER);
}

void printGain(const std::string& text, const std::vector<double>& ratio, const std::string& aim) {
    printRatio(text, ratio, aim, Better::HIGHER);
}

} // namespace tivra_bench
