#include "session/routing/MergeDecision.h"

#include "receive/LibraryTags.h"
#include "request/CommandClasses.h"

namespace tivra_internal {
namespace {

// Clients and exchanges come as one message per hub; a message without data has at most tag and status.
constexpr int kPairsOfDataMessage = 3;

bool isMergedQuery(tivra::Commands command) {
    return isQueryCommand(command) || command == tivra::SUBSCRIBEWILDCARD;
}

bool isPerHubSeries(tivra::Commands command) {
    return command == tivra::GETACTIVECLIENTSINFO || command == tivra::LISTEXTENDEDEXCHANGEINFO;
}

/// A query's end is told once, with the last hub's answer, and carries the worst status. A hub that does not
/// carry a news item stays silent unless no hub knew it.
void mergeQuery(const MergeQuestion& question, MergeDecision& decision) {
    const bool hubLacksNews = question.isNews && question.status == kStatusNotCarried;
    if (!hubLacksNews) {
        if (question.status < decision.lowestStatus)
            decision.lowestStatus = question.status;
    } else if (question.last && decision.lowestStatus == kNoStatusYet) {
        decision.lowestStatus = kStatusNotCarried;
    }
    if (question.last) {
        decision.suppress = false;
        decision.writeLowestStatus = true;
    }
}

void mergeSeries(const MergeQuestion& question, MergeDecision& decision) {
    if (question.pairCount < kPairsOfDataMessage) {
        decision.suppress = !question.last;
        return;
    }
    decision.suppress = false;
    decision.removeStatus = !question.last;
}

/// Without a data series one answer is enough: the first that the hub gave, and on news the first that is not
/// "not carried".
void mergeSingleAnswer(const MergeQuestion& question, MergeDecision& decision) {
    const bool isNoAnswer =
        question.status == kStatusConnectionLost || (question.isNews && question.status == kStatusNotCarried);
    if ((question.last || !isNoAnswer) && !question.responseSent) {
        decision.suppress = false;
        decision.responseSent = true;
    }
}

} // namespace

MergeDecision decideMerge(const MergeQuestion& question) {
    MergeDecision decision;
    decision.responseSent = question.responseSent;
    decision.lowestStatus = question.lowestStatus;
    if (question.isEntitlementPort)
        decision.finishEntitlement = question.status == 0;
    else if (isMergedQuery(question.command))
        mergeQuery(question, decision);
    else if (isPerHubSeries(question.command))
        mergeSeries(question, decision);
    else
        mergeSingleAnswer(question, decision);
    return decision;
}

} // namespace tivra_internal
