// What a lost connection leaves unanswered: what is listed comes back with a replay, the rest ends.
#include "session/SessionImpl.h"

#include <tp/eprintf.h>

#include "config/SessionConfigImpl.h"
#include "hub/HubClient.h"
#include "request/HubWatchlist.h"
#include "request/RequestInternal.h"

namespace tivra_internal {

void SessionImpl::endOutstanding(HubClient* client) {
    // A hub that leaves for good has no replay, and no read handler either.
    const bool isLeaving = client->getInitialHubDisconnected() || client->m_retired;
    HubClient* const owner = isLeaving ? nullptr : client;
    std::vector<int64_t> lost;
    for (const int64_t tag : m_responses.writtenTo(client)) {
        const bool isReplayed =
            !isLeaving && client->isWatchlistInUse() && client->getWatchlist()->contains(tag);
        if (!isReplayed && m_responses.lose(tag, client, owner))
            lost.push_back(tag);
    }
    if (lost.empty())
        return;
    eprintf(EPF_WARN, "%s: connection lost before the answers to %zu requests", client->getHubAddr().c_str(),
            lost.size());
    m_lost.add(owner, lost);
}

void SessionImpl::loseRequest(int64_t tag, HubClient* client) {
    if (m_responses.lose(tag, client, client))
        m_lost.add(client, {tag});
}

bool SessionImpl::takeLostRequest(HubClient* hub, bool queueIsEmpty, LostRequest& lost) {
    const bool report = settings().isEndingLostRequests();
    while (const auto tag = m_lost.next(hub, queueIsEmpty)) {
        lost.tag = *tag;
        if (m_responses.settleLost(*tag, hub, report, lost))
            return true;
        m_reqTagLst.erase(*tag);
    }
    return false;
}

/// All hubs go. What isn't queued again ends on the side that comes next; a stop ends everything without a
/// word.
void SessionImpl::abandonResponses(bool isStop) {
    m_lost.clear();
    if (isStop || !settings().isEndingLostRequests()) {
        m_responses.clear();
        return;
    }
    std::vector<int64_t> lost;
    for (const int64_t tag : m_responses.tags()) {
        if (watchlist.contains(tag))
            m_responses.forget(tag);
        else if (m_responses.loseAll(tag))
            lost.push_back(tag);
    }
    m_lost.add(nullptr, lost);
}

} // namespace tivra_internal
