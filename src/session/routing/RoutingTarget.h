#pragma once

#include <cstddef>
#include <string_view>

#include <request/Commands.h>

#include "request/SourceNumbers.h"

namespace tivra_internal {

/// Hubs older than this major version serve news sources by a route like any other.
inline constexpr int kFirstNewsHubVersion = 7;

/// Everything that decides where a request goes, as plain values.
struct RouteQuestion {
    int source = -1;
    bool isCmdSet = false;
    tivra::Commands command = tivra::SUBSCRIBE;
    std::string_view symbol;
    bool sourceIsSplit = false;
    int firstHubMajorVersion = 0;
    bool isCMconnection = false;
    bool initialXrefConnection = false;
    bool xrefHubsDone = false;
};

/// Which of the session's ways of sending a request takes.
enum class RoutingTarget {
    EachHubOfSplitSource, ///< a copy to every hub that carries part of the source
    HubOfSplitSymbol,     ///< the hub whose pattern or letter takes the symbol
    HubOfSource,          ///< the one hub of the source
    AllHubsNews,          ///< a copy to every hub, the first useful answer counts
    AllHubs,              ///< a copy to every hub
    DefaultHub,           ///< the first hub, as for any request that only needs one
    DefaultHubNewsXref,   ///< the first hub, since the hubs that would know are not connected
    DefaultHubXref,
};

[[nodiscard]] RoutingTarget decideRoutingTarget(const RouteQuestion& question);

} // namespace tivra_internal
