#include "session/routing/RoutingTarget.h"

namespace tivra_internal {
namespace {

bool namesTheWholeSource(const RouteQuestion& question) {
    if (question.symbol.empty() || question.symbol.front() == '{')
        return true;
    if (!question.isCmdSet)
        return false;
    switch (question.command) {
    case tivra::QUERYWILDCARD:
    case tivra::SUBSCRIBEWILDCARD:
    case tivra::QUERYSNAPANDSUBSCRIBEWILDCARD:
    case tivra::UNSUBSCRIBEWILDCARD:
        return true;
    default:
        return false;
    }
}

RoutingTarget decideNewsTarget(const RouteQuestion& question) {
    if (question.firstHubMajorVersion < kFirstNewsHubVersion)
        return RoutingTarget::HubOfSource;
    const bool everyHubKnown =
        !question.isCMconnection || !question.initialXrefConnection || question.xrefHubsDone;
    return everyHubKnown ? RoutingTarget::AllHubsNews : RoutingTarget::DefaultHubNewsXref;
}

RoutingTarget decideTargetWithoutSource(const RouteQuestion& question) {
    if (question.isCmdSet) {
        switch (question.command) {
        case tivra::LISTENUMERATION:
        case tivra::LISTAVAILABLETOKENS:
        case tivra::LISTADMINISTRATIONINFO:
        case tivra::LISTUSERPERMISSION:
            return RoutingTarget::DefaultHub;
        default:
            break;
        }
    }
    const bool isXrefQuery = question.isCmdSet && question.command == tivra::QUERYXREF;
    if (!question.isCMconnection || !isXrefQuery || !question.initialXrefConnection || question.xrefHubsDone)
        return RoutingTarget::AllHubs;
    return RoutingTarget::DefaultHubXref;
}

} // namespace

RoutingTarget decideRoutingTarget(const RouteQuestion& question) {
    if (question.sourceIsSplit)
        return namesTheWholeSource(question) ? RoutingTarget::EachHubOfSplitSource
                                             : RoutingTarget::HubOfSplitSymbol;
    if (question.source == -1)
        return decideTargetWithoutSource(question);
    if (question.source < kFirstNewsSource)
        return RoutingTarget::HubOfSource;
    return decideNewsTarget(question);
}

} // namespace tivra_internal
