#include "session/routing/RequestRouter.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include <tp/eprintf.h>

#include "hub/HubClient.h"
#include "hub/HubEventReactor.h"
#include "request/CommandClasses.h"
#include "request/HubWatchlist.h"
#include "request/PrintableTag.h"
#include "request/RequestInternal.h"
#include "request/Watchlist.h"
#include "session/routing/AlternateIndexScan.h"
#include "session/routing/HasSymbol.h"
#include "session/routing/LostRequests.h"
#include "session/routing/RequestQueue.h"
#include "session/routing/ResponseBook.h"
#include "session/routing/RouterSession.h"
#include "session/routing/RoutingTarget.h"
#include "session/routing/SplitTables.h"
#include "session/sources/SourceRoutes.h"

namespace tivra_internal {
namespace {

/// It ends with its answer and leaves nothing at the hub.
bool isQuestion(const RequestInternal& request) {
    return request.isCommandSet() && isSnapCommand(request.getCommand());
}

} // namespace

bool RequestRouter::routeRequestToHub(std::unique_ptr<RequestInternal>& request) {
    request->setHUB(nullptr);
    request->resubHB = false;
    request->resubHubStatus = false;
    if (!request->isCommandSet())
        return sendToTarget(request);

    switch (request->getCommand()) {
    case tivra::SETCONFLATIONINTERVAL:
        if (m_session.watchlistInUse())
            storeConflationInterval(*request);
        break;
    case tivra::GETSOURCEPORTDETAILS:
        m_session.enterPortDetailsRequest(request);
        return true;
    case tivra::ADDALTERNATEINDEX:
        enterAddedAlternateIndexes(*request);
        break;
    case tivra::SUBSCRIBE:
    case tivra::UNSUBSCRIBE:
    case tivra::QUERYSNAP:
    case tivra::QUERYSNAPANDSUBSCRIBE:
    case tivra::UNSUBSCRIBEWILDCARD:
        applySymbolRules(*request);
        break;
    default:
        break;
    }
    m_session.connectXrefHubsFor(*request);
    return sendToTarget(request);
}

void RequestRouter::storeConflationInterval(const RequestInternal& request) {
    std::string text = "|";
    text += request.getKVNCommand();
    const std::size_t found = text.find("|2029=");
    if (found == std::string::npos) {
        eprintf(EPF_WARN, "CONFLATION.INTERVAL not set in SETCONFLATIONINTERVAL request");
        return;
    }
    m_session.storeConflationInterval(std::strtol(text.c_str() + found + std::strlen("|2029="), nullptr, 10));
}

void RequestRouter::enterAddedAlternateIndexes(RequestInternal& request) {
    const long long tag = printable(request.getTag());
    eprintf(EPF_DBUG, "ADDALTERNATEINDEX request tag=%lld", tag);
    request.altIndex.clear();
    for (const int32_t token : request.getKVNTokenNums()) {
        AltIndexInfo entry;
        entry.kvnid = token;
        entry.srcid = request.getSrcid();
        entry.command = tivra::ADDALTERNATEINDEX;
        request.altIndex.push_back(entry);
        eprintf(EPF_DBUG, "Adding altid=%d for src=%d for tag=%lld", token, request.getSrcid(), tag);
    }
}

void RequestRouter::applySymbolRules(RequestInternal& request) {
    if (!hasSymbol(request) && scanAlternateIndexes(request))
        return;
    m_own.apply(request);
}

bool RequestRouter::sendToTarget(std::unique_ptr<RequestInternal>& request) {
    const long long tag = printable(request->getTag());
    const int source = request->getSrcid();
    RouteQuestion question;
    question.source = source;
    question.isCmdSet = request->isCommandSet();
    question.command = request->getCommand();
    question.symbol = request->getSymbol();
    question.sourceIsSplit = m_tables.split.isSplitSymbol(source);
    const XrefStanding xref = m_session.xrefStanding();
    question.isCMconnection = xref.isCMconnection;
    question.initialXrefConnection = xref.isNeeded;
    question.xrefHubsDone = xref.isDone;
    if (source >= kFirstNewsSource) {
        const HubClient* const first = m_session.firstHub();
        question.firstHubMajorVersion = first == nullptr ? 0 : first->getHubMajorVersion();
    }
    eprintf(EPF_DBUG, "Sending request with tag=(%lld); src=%d, sym=%s; command=%d\n", tag, source,
            request->getSymbol(), static_cast<int>(question.command));
    switch (decideRoutingTarget(question)) {
    case RoutingTarget::EachHubOfSplitSource:
        eprintf(EPF_DBUG, "Request goes to all hubs with exchange (%d) \n", source);
        return sendToEach(request, source);
    case RoutingTarget::HubOfSplitSymbol:
        return sendToSplitSymbol(request);
    case RoutingTarget::HubOfSource:
        return sendToExchange(request, source);
    case RoutingTarget::AllHubsNews:
        if (question.isCMconnection && question.initialXrefConnection)
            eprintf(EPF_DBUG, " Route request with exch >= 4096 to all hubs \n");
        return sendCopies(request, m_session.hubsForAll(), true);
    case RoutingTarget::AllHubs:
        return sendCopies(request, m_session.hubsForAll(), false);
    case RoutingTarget::DefaultHub:
        return sendToFirstHub(request);
    case RoutingTarget::DefaultHubNewsXref:
        if (m_session.waitsForXrefHubs(request))
            return true;
        eprintf(EPF_WARN,
                " Error:Not all xref hubs are connected,  sending request with exch >= 4096, to default "
                "HUB to get response \n");
        return sendToDefaultHub(request);
    case RoutingTarget::DefaultHubXref:
        if (m_session.waitsForXrefHubs(request))
            return true;
        eprintf(
            EPF_WARN,
            " Error:Not all xref hubs are connected ; sending queryxref to default HUB to get response \n");
        return sendToDefaultHub(request);
    }
    return sendToFirstHub(request);
}

bool RequestRouter::sendToSplitSymbol(std::unique_ptr<RequestInternal>& request) {
    HubClient* const hub = hubForSplitSymbol(*request);
    if (hub == nullptr || !isServed(hub))
        return sendToFirstHub(request);
    return sendCopy(request, hub);
}

/// The hub by pattern, else by the deciding letter; null, with a warning, when neither places the symbol.
HubClient* RequestRouter::hubForSplitSymbol(const RequestInternal& request) {
    const int source = request.getSrcid();
    const char* const symbol = request.getSymbol();
    if (HubClient* const hub = m_tables.split.getHubForSplitSymbol(source, symbol))
        return hub;
    const std::size_t position = m_tables.split.skipSplitLetters(source);
    const long long tag = printable(request.getTag());
    if (std::strlen(symbol) <= position) {
        eprintf(EPF_WARN,
                "Lookup failed: request with tag=(%lld); src=%d, sym=%s will be sent to arbitrary HUB\n", tag,
                source, symbol);
        return nullptr;
    }
    HubClient* const hub = m_tables.split.getHubForSplitSymbol(source, symbol[position]);
    if (hub == nullptr)
        eprintf(EPF_WARN,
                "  character lookup failed for (%c) for exch (%d); request with tag=(%lld); src=%d, sym=%s "
                "will be "
                "sent to arbitrary HUB\n",
                symbol[position], source, tag, source, symbol);
    return hub;
}

/// Queues the request for one hub, unless others for that hub are still held: those go first.
bool RequestRouter::sendCopy(std::unique_ptr<RequestInternal>& request, HubClient* hub) {
    if (m_tables.queue.isHolding(hub)) {
        request->setHUB(hub);
        return false;
    }
    return sendToHub(request, hub, false, 0);
}

bool RequestRouter::sendToHub(std::unique_ptr<RequestInternal>& request, HubClient* hub, bool force,
                              int src) {
    if (hub == nullptr) {
        eprintf(EPF_CRIT, "Internal error: null HUB; aborting");
        return false;
    }
    request->setHUB(hub);
    HubEventReactor* const reactor = m_session.reactorOf(hub);
    if (reactor == nullptr) {
        if (m_session.isShuttingDown())
            eprintf(EPF_WARN, "Shutdown in progress: discarding request");
        else
            eprintf(EPF_CRIT, "Internal error: no EventReactor registered for this HUB (%s)",
                    hub->getHubAddr().c_str());
        return false;
    }
    const int64_t tag = request->getTag();
    const bool isNew = m_tables.responses.expectNew(*request, hub, src);
    if (isNew && m_session.watchlistInUse())
        m_tables.watchlist.setExpectedResponses(tag, 1);
    eprintf(EPF_DBUG, "Pushing request with tag=%lld for HUB %s", printable(tag), hub->getHubAddr().c_str());
    if (reactor->pushRequest(request, force))
        return true;
    // Another hub may serve the source by the time of the next attempt.
    if (isNew)
        m_tables.responses.forget(tag);
    return false;
}

bool RequestRouter::sendToExchange(std::unique_ptr<RequestInternal>& request, int exch) {
    HubClient* const hub = m_tables.routes.find(exch);
    if (hub != nullptr && isServed(hub))
        return sendCopy(request, hub);
    eprintf(EPF_WARN, "Request with tag=%lld: exchange (%d) not found; not entitled at HUB for user %s",
            printable(request->getTag()), exch, m_session.userName().c_str());
    return sendToFirstHub(request);
}

/// The default hub's answer is what the application receives.
bool RequestRouter::sendToFirstHub(std::unique_ptr<RequestInternal>& request) {
    HubClient* const hub = m_session.firstHub();
    if (hub == nullptr)
        return false;
    if (sendCopy(request, hub))
        return true;
    if (isServed(hub))
        return false;
    request.reset(); // nobody serves this hub, and waiting would hold up all others
    return true;
}

bool RequestRouter::sendToDefaultHub(std::unique_ptr<RequestInternal>& request) {
    const int64_t tag = request->getTag();
    m_session.noteSentWithoutXrefHubs(tag);
    eprintf(EPF_WARN, " Send to default HUB to get response ;Request with tag=%lld", printable(tag));
    return sendToFirstHub(request);
}

bool RequestRouter::sendToEach(std::unique_ptr<RequestInternal>& request, int exch) {
    const std::vector<HubClient*> hubs = m_tables.split.hubsOf(exch);
    if (hubs.empty() && !m_tables.split.isSplitSymbol(exch))
        return sendToExchange(request, exch);
    return sendCopies(request, hubs, false);
}

/// A copy to each hub. True when at least one was fed or will be. A question that a full queue has refused is
/// answered by the other hubs; what changes what stands at a hub waits until there is room.
bool RequestRouter::sendCopies(std::unique_ptr<RequestInternal>& request, const std::vector<HubClient*>& hubs,
                               bool isNews) {
    if (std::none_of(hubs.begin(), hubs.end(), [this](HubClient* hub) { return isServed(hub); }))
        return false;
    const int64_t tag = request->getTag();
    // The number stands before the first push: an answer may come while the others are still being fed.
    m_tables.responses.expect(*request, hubs, isNews);
    if (m_session.watchlistInUse())
        m_tables.watchlist.setExpectedResponses(tag, hubs.size());
    std::vector<std::unique_ptr<RequestInternal>> refused;
    const void* lastCopy = nullptr; // for the log
    for (HubClient* hub : hubs) {
        std::unique_ptr<RequestInternal> copy = request->copyWithAltIndex();
        if (hubs.size() > 1)
            copy->reach = RequestInternal::Reach::CopyOfSeveral;
        lastCopy = copy.get();
        if (!sendCopy(copy, hub))
            refused.push_back(std::move(copy));
    }
    if (!refused.empty())
        eprintf(EPF_DBUG, "reqFail=%d, reqGood=%d, inRequestInternal=%p, outReq=%p, in tag=%ld; out tag=%ld",
                static_cast<int>(refused.size()), static_cast<int>(hubs.size() - refused.size()),
                static_cast<const void*>(request.get()), lastCopy, static_cast<long>(tag),
                static_cast<long>(tag));
    const bool isAnswered = refused.size() < hubs.size() && isQuestion(*request);
    for (std::unique_ptr<RequestInternal>& copy : refused) {
        HubClient* const hub = copy->getHUB();
        if (isAnswered || !isServed(hub))
            lowerExpectedResponses(tag, hub);
        else
            m_tables.queue.hold(std::move(copy));
    }
    request.reset();
    return true;
}

void RequestRouter::lowerExpectedResponses(int64_t tag, HubClient* hub) {
    endIfNobodyAnswers(tag, hub);
    if (m_session.watchlistInUse())
        m_tables.watchlist.lowerExpectedResponses(tag);
}

/// The hub counts as having answered.
void RequestRouter::endIfNobodyAnswers(int64_t tag, HubClient* hub) {
    if (m_tables.responses.countAsAnswered(tag, hub))
        m_tables.lost.add(nullptr, {tag});
}

void RequestRouter::takeBackRequest(std::unique_ptr<RequestInternal> request, HubClient* client) {
    const int64_t tag = request->getTag();
    const bool isCopy = request->reach == RequestInternal::Reach::CopyOfSeveral;
    const bool isRetry = std::exchange(request->isWLRetry, false);
    if (client->isWatchlistInUse() && request->isCommandSet()) {
        HubWatchlist& list = *client->getWatchlist();
        if (!isRetry && (isCopy || isUnsubscribeCommand(request->getCommand())))
            list.add(tag, request->copyWithAltIndex());
        if (isCopy)
            list.noteAnswer(tag);
    }
    if (isCopy) {
        endIfNobodyAnswers(tag, client);
        return;
    }
    if (const int32_t grantedSource = m_tables.responses.takeBack(tag)) {
        // The library's own question takes no part in routing: its answer must not reach the application.
        m_session.sendPortQuestion(request, grantedSource);
        return;
    }
    m_tables.queue.append(std::move(request));
}

bool RequestRouter::isServed(HubClient* hub) const {
    return m_session.reactorOf(hub) != nullptr;
}

} // namespace tivra_internal
