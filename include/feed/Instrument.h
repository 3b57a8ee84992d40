#pragma once

#include <string>
#include <utility>

namespace tivra {

/// What is asked for: a symbol at a source.
struct Instrument {
    Instrument() = default;
    Instrument(int sourceNumber, std::string symbolText)
        : source(sourceNumber), symbol(std::move(symbolText)) {}

    int source = 0;     ///< the number of the source, from 1
    std::string symbol; ///< 1 to 32 characters, none of them "|", "=" or a control character

    friend bool operator==(const Instrument& a, const Instrument& b) {
        return a.source == b.source && a.symbol == b.symbol;
    }
    friend bool operator<(const Instrument& a, const Instrument& b) {
        return a.source != b.source ? a.source < b.source : a.symbol < b.symbol;
    }
};

} // namespace tivra
