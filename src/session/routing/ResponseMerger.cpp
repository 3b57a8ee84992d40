#include "session/routing/ResponseMerger.h"

#include <optional>
#include <vector>

#include <tp/eprintf.h>

#include "hub/HubClient.h"
#include "kvnparse/Message.h"
#include "receive/LibraryTags.h"
#include "receive/ReadHandlerSession.h"
#include "request/CommandClasses.h"
#include "request/HubWatchlist.h"
#include "request/Watchlist.h"
#include "session/routing/LostRequests.h"
#include "session/routing/MergerSession.h"
#include "session/routing/ResponseBook.h"

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

bool ResponseMerger::isQueryCommand(int64_t tag, const HubClient* hub, tivra::Commands& command) {
    if (const std::optional<tivra::Commands> known = m_tables.responses.commandOf(tag)) {
        command = *known;
        return tivra_internal::isQueryCommand(command);
    }
    command = tivra::SUBSCRIBE;
    const auto printableTag = static_cast<long long>(tag);
    if (tag == LOGIN || !m_session.watchlistInUse()) {
        eprintf(EPF_WARN, "Internal Error: Request with tag=%lld not found", printableTag);
        return false;
    }
    eprintf(EPF_DBUG, "Request with tag=%lld not found; get command from watchlist", printableTag);
    if (!hub->getWatchlist()->getCommand(tag, command)) {
        eprintf(EPF_WARN, "Request with tag=%lld not found in watchlist", printableTag);
        return false;
    }
    return tivra_internal::isQueryCommand(command);
}

bool ResponseMerger::suppressResponse(int64_t tag, KVNAPI::Message& msg, const KVNAPI::Token* statusTok,
                                      KVNAPI::TVPair* rcPair, MetaTokenMap& dictionary, HubClient* from) {
    const auto printableTag = static_cast<long long>(tag);
    const int64_t status = rcPair->i;
    const std::optional<CountedAnswer> answer = m_tables.responses.answer(tag, from, status, msg.pairCount());
    if (!answer) {
        if (tag == LOGIN || !m_session.watchlistInUse())
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
        m_session.finishAddNewEntitlement(source, msg, dictionary);
    eprintf(EPF_DBUG, "suppressResponse(EXIT): suppress=%d for tag=%lld; command=%d",
            decision.suppress ? 1 : 0, printableTag, static_cast<int>(answer->command));
    return decision.suppress;
}

bool ResponseMerger::isReplayed(int64_t tag, const HubClient& client) {
    tivra::Commands command = tivra::SUBSCRIBE;
    if (!client.isWatchlistInUse() || !client.getWatchlist()->getCommand(tag, command))
        return false;
    if (m_session.repeatsQuestions() || !isSnapCommand(command))
        return true;
    client.getWatchlist()->forget(tag);
    return false;
}

void ResponseMerger::endOutstanding(HubClient* client) {
    // A hub that leaves for good has no replay, and no read handler either.
    const bool isLeaving = client->getInitialHubDisconnected() || client->life().hasLeft();
    HubClient* const owner = isLeaving ? nullptr : client;
    std::vector<int64_t> lost;
    for (const int64_t tag : m_tables.responses.writtenTo(client))
        if ((isLeaving || !isReplayed(tag, *client)) && m_tables.responses.lose(tag, client, owner))
            lost.push_back(tag);
    if (lost.empty())
        return;
    eprintf(EPF_WARN, "%s: connection lost before the answers to %zu requests", client->getHubAddr().c_str(),
            lost.size());
    m_tables.lost.add(owner, lost);
}

void ResponseMerger::loseRequest(int64_t tag, HubClient* client) {
    if (m_tables.responses.lose(tag, client, client))
        m_tables.lost.add(client, {tag});
}

bool ResponseMerger::takeLostRequest(HubClient* hub, bool queueIsEmpty, LostRequest& lost) {
    const bool report = m_session.isEndingLostRequests();
    while (const auto tag = m_tables.lost.next(hub, queueIsEmpty)) {
        lost.tag = *tag;
        if (m_tables.responses.settleLost(*tag, hub, report, lost))
            return true;
        m_reqTagLst.erase(*tag);
    }
    return false;
}

void ResponseMerger::abandonResponses(bool isStop) {
    m_reqTagLst.clear();
    m_tables.lost.clear();
    if (isStop || !m_session.isEndingLostRequests()) {
        m_tables.responses.clear();
        return;
    }
    std::vector<int64_t> lost;
    for (const int64_t tag : m_tables.responses.tags()) {
        if (m_tables.watchlist.contains(tag))
            m_tables.responses.forget(tag);
        else if (m_tables.responses.loseAll(tag))
            lost.push_back(tag);
    }
    m_tables.lost.add(nullptr, lost);
}

} // namespace tivra_internal
