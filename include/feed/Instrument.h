#pragma once

#include <string>
#include <utility>

namespace tivra {

/// What is asked for: a symbol at a source.
struct Instrument {
    /// None: no request takes it.
    Instrument() = default;
    /// A symbol at a source; nothing is checked before it is asked for.
    Instrument(int sourceNumber, std::string symbolText)
        : source(sourceNumber), symbol(std::move(symbolText)) {}

    int source = 0;     ///< the number of the source, from 1
    std::string symbol; ///< 1 to 32 characters, none of them "|", "=" or a control character

    /// Whether source and symbol are the same, with upper and lower case apart.
    friend bool operator==(const Instrument& a, const Instrument& b) {
        return a.source == b.source && a.symbol == b.symbol;
    }
    /// By source, then by the bytes of the symbol.
    friend bool operator<(const Instrument& a, const Instrument& b) {
        return a.source != b.source ? a.source < b.source : a.symbol < b.symbol;
    }
};

} // namespace tivra
