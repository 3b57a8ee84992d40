#include "program/SymbolsFile.h"

#include "common/UsageError.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <optional>
#include <set>

namespace tivra_bus {

namespace {

constexpr std::size_t kLongestSymbol = 32;
constexpr std::size_t kMostSymbols = 2'000'000;

bool isSymbol(const std::string& text) {
    return !text.empty() && text.size() <= kLongestSymbol &&
           std::all_of(text.begin(), text.end(),
                       [](char c) { return c > 0x20 && c < 0x7f && c != '|' && c != '='; });
}

/// Takes "100:" off a line.
std::optional<int> takeSource(std::string& line) {
    const std::size_t colon = line.find(':');
    int source = 0;
    if (colon == std::string::npos ||
        std::from_chars(line.data(), line.data() + colon, source).ptr != line.data() + colon || source < 1)
        return std::nullopt;
    line.erase(0, colon + 1);
    return source;
}

} // namespace

std::vector<tivra::Instrument> readSymbols(const std::string& path, const std::vector<int>& sources) {
    std::ifstream file(path);
    if (!file)
        throw tivra_tools::UsageError(fmt::format("--symbols-file {}: it can't be read", path));
    std::set<tivra::Instrument> instruments;
    std::string line;
    for (std::size_t number = 1; std::getline(file, line); ++number) {
        line.erase(line.find_last_not_of(" \t\r") + 1);
        if (line.empty() || line.front() == '#')
            continue;
        const std::optional<int> own = takeSource(line);
        if (!isSymbol(line))
            throw tivra_tools::UsageError(
                fmt::format("--symbols-file {}, line {}: 1 to {} printable characters "
                            "without blank, \"|\" and \"=\" were wanted",
                            path, number, kLongestSymbol));
        if (!own && sources.empty())
            throw tivra_tools::UsageError(fmt::format(
                "--symbols-file {}, line {}: write SOURCE:SYMBOL, or name a --source", path, number));
        for (const int source : own ? std::vector<int>{*own} : sources)
            instruments.emplace(source, line);
        if (instruments.size() > kMostSymbols)
            throw tivra_tools::UsageError(
                fmt::format("--symbols-file {}: more than {} symbols", path, kMostSymbols));
    }
    if (file.bad())
        throw tivra_tools::UsageError(fmt::format("--symbols-file {}: it can't be read to its end", path));
    if (instruments.empty())
        throw tivra_tools::UsageError(fmt::format("--symbols-file {} has no symbol", path));
    return {instruments.begin(), instruments.end()};
}

} // namespace tivra_bus
