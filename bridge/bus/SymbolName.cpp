#include "bus/SymbolName.h"

#include "bus/JsonText.h"

#include <cstdint>

namespace tivra_bus {

SymbolName::SymbolName(int ofSource, std::string_view ofSymbol) : source(ofSource), symbol(ofSymbol) {
    text = R"(,"source":)";
    appendNumber(text, static_cast<std::uint64_t>(source));
    text += R"(,"symbol":)";
    appendQuoted(text, symbol);
}

} // namespace tivra_bus
