// Many hubs' answers to one tag become one answer for the application.
#include "session/SessionImpl.h"

#include <optional>

#include <tp/eprintf.h>

#include "dictionary/MetaTokenMap.h"
#include "hub/HubClient.h"
#include "kvnparse/Message.h"
#include "request/RequestInternal.h"

namespace tivra_internal {
namespace {

/// The series goes on with other hubs: the application must not take this message for its end.
void removeStatus(KVNAPI::Message& msg, const KVNAPI::Token* statusTok) {
    const int position = msg.findPosition(statusTok);
    if (position >= 0)
        msg.removePair(position);
    msg.isRetCodePresent = 0;
}

} // namespace

bool SessionImpl::suppressResponse(int64_t tag, KVNAPI::Message& msg, KVNAPI::Token* statusTok,
                                   KVNAPI::TVPair* rcPair, MetaTokenMap* dictionary, HubClient* from) {
    const auto printableTag = static_cast<long long>(tag);
    const int64_t status = rcPair->i;
    const std::optional<CountedAnswer> answer = m_responses.answer(tag, from, status, msg.pairCount());
    if (!answer) {
        if (tag == LOGIN || !watchlistInUse())
            eprintf(EPF_WARN, "Internal Error: Request with tag=%lld not found", printableTag);
        else
            eprintf(EPF_DBUG, "Request with tag=%lld not found", printableTag);
        return false;
    }
    if (!answer->isAwaited)
        return true;
    const MergeDecision& decision = answer->decision;
    const int source = answer->src;
    if (decision.writeLowestStatus)
        rcPair->i = decision.lowestStatus;
    if (decision.removeStatus)
        removeStatus(msg, statusTok);
    if (answer->isLast)
        m_reqTagLst.erase(tag);
    if (source != 0 && status != 0)
        eprintf(EPF_WARN, "GetPort failed with rc=%lld; dynamic add entitlement for src %d has failed",
                static_cast<long long>(status), source);
    if (decision.finishEntitlement)
        finishAddNewEntitlement(source, msg, *dictionary);
    eprintf(EPF_DBUG, "suppressResponse(EXIT): suppress=%d for tag=%lld; command=%d",
            decision.suppress ? 1 : 0, printableTag, static_cast<int>(answer->command));
    return decision.suppress;
}

} // namespace tivra_internal
