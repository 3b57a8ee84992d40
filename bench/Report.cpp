#include "Report.h"

#include "Interleave.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include <nlohmann/json.hpp>

namespace tivra_bench {
namespace {

constexpr std::size_t kStretches = 10;

/// "name: value unit (noise n%)".
void printLine(const std::string& name, double value, double share, const std::string& unit) {
    std::printf("  %-58s %11.4f %-12s noise %5.1f%%\n", name.c_str(), value, unit.c_str(), share * 100.0);
    std::fflush(stdout);
}

/// The noise of a quantile, from stretches that are long enough to have one.
double quantileNoise(const std::vector<double>& values, double share) {
    const auto least = static_cast<std::size_t>(2.0 / (1.0 - share));
    const std::size_t length = std::max(values.size() / kStretches, least);
    std::vector<double> stretches;
    for (std::size_t at = 0; at + length <= values.size(); at += length) {
        const auto begin = values.begin() + static_cast<std::ptrdiff_t>(at);
        stretches.push_back(quantile({begin, begin + static_cast<std::ptrdiff_t>(length)}, share));
    }
    return stretches.size() < 2 ? 0.0 : noise(stretches);
}

} // namespace

Options::Options(int argc, char** argv, int roundsByDefault) : rounds(roundsByDefault) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--quick") == 0) {
            isQuick = true;
        } else if (std::strcmp(argv[i], "--json") == 0 && i + 1 < argc) {
            Report::get().writeTo(argv[++i]);
        } else if (std::atoi(argv[i]) > 0) {
            rounds = std::atoi(argv[i]);
        } else {
            std::fprintf(stderr, "usage: %s [ROUNDS] [--quick] [--json FILE]\n", argv[0]);
            std::exit(2);
        }
    }
}

Report& Report::get() {
    static Report report;
    return report;
}

void Report::writeTo(std::string file) {
    m_file = std::move(file);
}

void Report::insert(Row row) {
    if (!m_section.empty())
        row.name = m_section + ": " + row.name;
    m_rows.push_back(std::move(row));
}

void Report::add(const std::string& name, const std::vector<double>& values, const std::string& unit,
                 Better better) {
    if (values.empty())
        throw std::runtime_error(name + ": no value");
    insert({name, unit, better, median(values), noise(values), values.size()});
}

void Report::addQuantile(const std::string& name, const std::vector<double>& values, double share,
                         const std::string& unit) {
    if (values.empty())
        throw std::runtime_error(name + ": no value");
    insert({name, unit, Better::LOWER, quantile(values, share), quantileNoise(values, share), values.size()});
}

void Report::print(const std::string& name, const std::vector<double>& values, const std::string& unit,
                   Better better) {
    add(name, values, unit, better);
    printLine(name, m_rows.back().value, m_rows.back().noise, unit);
}

void Report::printQuantiles(const std::string& name, const std::vector<double>& values,
                            const std::string& unit) {
    for (const auto& [share, label] : {std::pair{0.5, ", median"}, std::pair{0.99, ", p99"}}) {
        addQuantile(name + label, values, share, unit);
        printLine(name + label + " of " + std::to_string(values.size()), m_rows.back().value,
                  m_rows.back().noise, unit);
    }
}

void Report::finish() const {
    if (m_file.empty())
        return;
    nlohmann::json rows = nlohmann::json::array();
    for (const Row& row : m_rows) {
        rows.push_back({{"name", row.name},
                        {"unit", row.unit},
                        {"better", row.better == Better::LOWER ? "lower" : "higher"},
                        {"value", row.value},
                        {"noise", row.noise},
                        {"count", row.count}});
    }
    std::ofstream file(m_file);
    file << nlohmann::json{{"rows", rows}}.dump(1) << '\n';
    if (!file.flush())
        throw std::runtime_error(m_file + " can't be written");
}

} // namespace tivra_bench
