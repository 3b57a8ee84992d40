#ifndef TIVRA_CAT_TARGETS_H
#define TIVRA_CAT_TARGETS_H

#include <string>
#include <vector>

namespace tivra_cat {

/// What one request asks for: a symbol of a source, a whole source, or a symbol wherever the hub finds it.
struct Target {
    int source = -1; ///< -1 for none
    std::string symbol;

    /// "100:IBM", "100", "IBM".
    [[nodiscard]] std::string name() const;
};

/// Symbols as the user writes them, SYMBOL or SOURCE:SYMBOL. A symbol without a source of its own is asked
/// for on each of `sources`; without any symbol each source is asked for as a whole. Throws Failure for a
/// symbol that no request can carry.
[[nodiscard]] std::vector<Target> makeTargets(const std::vector<int>& sources,
                                              const std::vector<std::string>& symbols);

/// The symbols of a file: one per line, empty lines and lines that begin with # are left out.
[[nodiscard]] std::vector<std::string> readSymbols(const std::string& path);

} // namespace tivra_cat

#endif
