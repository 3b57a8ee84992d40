#include "hub/SplitPattern.h"

#include <tp/eprintf.h>

namespace tivra_internal {

std::string splitPatternOf(std::string_view symbol) {
    if (symbol.size() < 3) {
        eprintf(EPF_WARN, "HubClient::processSplitSym: invalid symlen (%zu) so regex ignored", symbol.size());
        return {};
    }
    symbol = symbol.substr(1, symbol.size() - 2);
    std::string pattern;
    pattern.reserve(symbol.size());
    for (size_t i = 0; i < symbol.size(); ++i) {
        if (symbol[i] == '\\' && i + 1 < symbol.size()) {
            pattern += symbol[i++];
            pattern += symbol[i];
        } else {
            pattern += symbol[i] == '~' ? '|' : symbol[i];
        }
    }
    return pattern;
}

} // namespace tivra_internal
