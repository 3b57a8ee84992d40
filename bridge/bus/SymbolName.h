#pragma once

#include <string>
#include <string_view>

namespace tivra_bus {

/// A symbol of a source, and how records name it, written once.
struct SymbolName {
    SymbolName(int ofSource, std::string_view ofSymbol);

    int source;
    std::string symbol;
    std::string text; ///< `,"source":100,"symbol":"IBM"`
};

} // namespace tivra_bus
