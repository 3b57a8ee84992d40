// Many hubs' answers to one tag become one answer for the application.
#include "session/SessionImpl.h"

#include <tp/eprintf.h>

#include "dictionary/MetaTokenMap.h"
#include "hub/HubClient.h"
#include "kvnparse/Message.h"
#include "request/RequestInternal.h"
#include "session/MergeDecision.h"

namespace tivra_internal {
namespace {

MergeQuestion questionFor(const reqResp& entry, const KVNAPI::Message& msg, int64_t status, bool last) {
    MergeQuestion question;
    question.command = entry.command;
    question.isEntitlementPort = entry.src != 0;
    question.isNews = entry.isNews;
    question.responseSent = entry.responseSent;
    question.last = last;
    question.lowestStatus = entry.rc;
    question.status = status;
    question.pairCount = msg.pairCount();
    return question;
}

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
    MergeDecision decision;
    tivra::Commands command = tivra::SUBSCRIBE;
    int source = 0;
    bool finished = false;
    {
        tp::MutexLock lock(m_responses.m_reqRespMap_mutex);
        const auto found = m_responses.reqRespMap.find(tag);
        if (found == m_responses.reqRespMap.end()) {
            if (tag == LOGIN || !watchlistInUse())
                eprintf(EPF_WARN, "Internal Error: Request with tag=%lld not found", printableTag);
            else
                eprintf(EPF_DBUG, "Request with tag=%lld not found", printableTag);
            return false;
        }
        reqResp& entry = found->second;
        command = entry.command;
        source = entry.src;
        if (!entry.isWaitingFor(from))
            return true; // a hub that has answered already, or was not asked
        entry.stopWaitingFor(from);
        finished = entry.outstandingResponses <= 1;
        if (!finished)
            --entry.outstandingResponses;
        decision = decideMerge(questionFor(entry, msg, status, finished));
        entry.responseSent = decision.responseSent;
        entry.rc = decision.lowestStatus;
        if (decision.writeLowestStatus)
            rcPair->i = decision.lowestStatus;
        // After a lost share was dropped, the last answer is not the end; there is no other either.
        if (finished || entry.waitingFor.empty())
            m_responses.reqRespMap.erase(found);
    }
    if (decision.removeStatus)
        removeStatus(msg, statusTok);
    if (finished) {
        tp::MutexLock lock(m_reqTagLst_mutex);
        m_reqTagLst.erase(tag);
    }
    if (source != 0 && status != 0)
        eprintf(EPF_WARN, "GetPort failed with rc=%lld; dynamic add entitlement for src %d has failed",
                static_cast<long long>(status), source);
    if (decision.finishEntitlement)
        finishAddNewEntitlement(source, msg, *dictionary);
    eprintf(EPF_DBUG, "suppressResponse(EXIT): suppress=%d for tag=%lld; command=%d",
            decision.suppress ? 1 : 0, printableTag, static_cast<int>(command));
    return decision.suppress;
}

} // namespace tivra_internal
