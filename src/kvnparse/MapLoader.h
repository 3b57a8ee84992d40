#pragma once

#include <string_view>

namespace KVNAPI {

class DataMap;

/// Fills a map from a text of load commands, so that a dictionary can be had without a hub. Every line is one
/// command of name=value pairs with "|" between them:
///
///     cmd=AddToken|name=BID|token=10|storage=double|normalize=1
///     cmd=AddShortName|name=BID|shortname=b
///
/// Other commands are skipped. Returns 0, or -1 with a text in te_geterror; a command that is refused is also
/// reported on standard error. The map then keeps what the lines before it added. It must not be in use
/// elsewhere meanwhile.
[[nodiscard]] int loadMap(DataMap* map, const char* data, int len);

/// Where a load ended.
struct MapLoad {
    int result = 0;         ///< as of loadMap
    int line = 0;           ///< number of the line that failed, the first is 1
    bool isRefused = false; ///< whether that line is well formed and its command was refused
};

/// loadMap without a report, for callers that have a place of their own for it.
[[nodiscard]] MapLoad loadMapText(DataMap* map, std::string_view text);

} // namespace KVNAPI
