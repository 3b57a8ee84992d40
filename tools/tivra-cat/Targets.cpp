#include "Targets.h"

#include "ExitCode.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <string_view>

namespace tivra_cat {

namespace {

constexpr std::size_t kMaxSymbol = 32;

std::string_view trimmed(std::string_view text) {
    const char* const space = " \t\r\n";
    const std::size_t first = text.find_first_not_of(space);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(space) - first + 1);
}

void checkSymbol(std::string_view symbol) {
    if (symbol.size() > kMaxSymbol)
        throw Failure(ExitCode::Usage,
                      fmt::format("the symbol \"{}\" is longer than {} characters", symbol, kMaxSymbol));
    const auto isForbidden = [](char c) { return c == '|' || static_cast<unsigned char>(c) < 0x20; };
    if (symbol.empty() || std::any_of(symbol.begin(), symbol.end(), isForbidden))
        throw Failure(
            ExitCode::Usage,
            fmt::format("\"{}\" is no symbol: it is empty or holds \"|\" or a control character", symbol));
}

/// Takes "100:" off the front of "100:IBM". A colon behind anything but digits belongs to the symbol.
int takeSource(std::string_view& text) {
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos || colon == 0)
        return -1;
    int source = -1;
    const char* const end = text.data() + colon;
    const auto [next, error] = std::from_chars(text.data(), end, source);
    if (next != end || error != std::errc{})
        return -1;
    text.remove_prefix(colon + 1);
    return source;
}

} // namespace

std::string Target::name() const {
    const char* const prefix = kind == tivra::CUSIP   ? "CUSIP "
                               : kind == tivra::SEDOL ? "SEDOL "
                               : kind == tivra::ISIN  ? "ISIN "
                                                      : "";
    if (source == -1)
        return symbol.empty() ? std::string("everything") : prefix + symbol;
    return symbol.empty() ? fmt::format("source {}", source) : fmt::format("{}{}:{}", prefix, source, symbol);
}

void addTargets(std::vector<Target>& targets, const std::vector<int>& sources,
                const std::vector<std::string>& symbols, tivra::RequestParameters kind) {
    for (const std::string& text : symbols) {
        std::string_view symbol = trimmed(text);
        const int own = takeSource(symbol);
        checkSymbol(symbol);
        if (own != -1 || sources.empty())
            targets.push_back({own, std::string(symbol), kind});
        else
            for (const int source : sources)
                targets.push_back({source, std::string(symbol), kind});
    }
}

std::vector<std::string> readSymbols(const std::string& path) {
    std::ifstream file(path);
    if (!file)
        throw Failure(ExitCode::Usage, fmt::format("cannot read symbols from \"{}\"", path));
    std::vector<std::string> symbols;
    std::string line;
    while (std::getline(file, line)) {
        const std::string_view symbol = trimmed(line);
        if (!symbol.empty() && symbol.front() != '#')
            symbols.emplace_back(symbol);
    }
    if (file.bad())
        throw Failure(ExitCode::Usage, fmt::format("cannot read all of the symbols from \"{}\"", path));
    return symbols;
}

} // namespace tivra_cat
