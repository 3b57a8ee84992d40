#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace tivra_bench {

/// One thing to be timed: `run` does its whole work once.
struct Contestant {
    std::string name;
    std::function<void()> run;
};

/// Processor times of each contestant, in the order of the rounds.
using Times = std::vector<std::vector<double>>;

/// Runs all contestants once as a warm-up and then in turn for `rounds` rounds, so that whatever else the
/// machine does meets them alike.
[[nodiscard]] Times interleave(const std::vector<Contestant>& contestants, int rounds);

/// The value that this share of all values doesn't exceed.
[[nodiscard]] double quantile(std::vector<double> values, double share);
[[nodiscard]] double median(std::vector<double> values);

/// Half the distance between the quartiles, as a share of the median.
[[nodiscard]] double noise(const std::vector<double>& values);

/// The ratio of two contestants' times, round by round.
[[nodiscard]] std::vector<double> ratios(const std::vector<double>& of, const std::vector<double>& to);

/// Prints a contestant's time for each of `items`, and its ratio to the first contestant of the run. Both go
/// into the report, under the title's words before its first ":".
void printTable(const std::string& title, const std::vector<Contestant>& contestants, const Times& times,
                std::size_t items, const char* item);

/// Prints the median ratio of two contestants, with what it should be, and enters it into the report.
void printAim(const std::string& text, const std::vector<double>& ratio, const std::string& aim);
/// The same for a ratio that is better the higher it is.
void printGain(const std::string& text, const std::vector<double>& ratio, const std::string& aim);

} // namespace tivra_bench
