#pragma once

#include <tivra.h>

#include <string>
#include <vector>

namespace tivra_cat {

/// What one request asks for: a symbol of a source, a whole source, or a symbol wherever the hub finds it.
struct Target {
    int source = -1; ///< -1 for none
    std::string symbol;
    /// What `symbol` is: the symbol itself, or an identifier such as a CUSIP number in its place.
    tivra::RequestParameters kind = tivra::SYMBOL_TICKER;

    /// "100:IBM", "100", "IBM".
    [[nodiscard]] std::string name() const;
};

/// Appends symbols (or other identifiers) as the user writes them, SYMBOL or SOURCE:SYMBOL. One without a
/// source of its own is asked for on each of `sources`. Throws Failure for what no request can carry.
void addTargets(std::vector<Target>& targets, const std::vector<int>& sources,
                const std::vector<std::string>& symbols,
                tivra::RequestParameters kind = tivra::SYMBOL_TICKER);

/// The symbols of a file: one per line, empty lines and lines that begin with # are left out.
[[nodiscard]] std::vector<std::string> readSymbols(const std::string& path);

} // namespace tivra_cat
