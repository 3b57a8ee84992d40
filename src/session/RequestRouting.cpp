// From the application's `send` to the hub or hubs that get the request.
#include "session/SessionImpl.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <utility>

#include <tp/Clock.h>
#include <tp/eprintf.h>

#include "config/ConnectionConfigImpl.h"
#include "config/SessionConfigImpl.h"
#include "config/UserInfoImpl.h"
#include "hub/HubClient.h"
#include "hub/HubEventReactor.h"
#include "hub/RequestFrame.h"
#include "receive/QueueReadHandler.h"
#include "receive/SystemSource.h"
#include "request/CommandClasses.h"
#include "request/HubWatchlist.h"
#include "request/RequestInternal.h"
#include "request/RequestLength.h"
#include "session/AlternateIndexScan.h"

namespace tivra_internal {
namespace {

constexpr int kSymbolToken = 5;
constexpr double kSecondsOfBackOff = 1.0;

long long printable(int64_t tag) {
    return static_cast<long long>(tag);
}

bool hasSymbol(const RequestInternal& request) {
    return request.getSymbol()[0] != '\0';
}

/// It ends with its answer and leaves nothing at the hub.
bool isQuestion(const RequestInternal& request) {
    return request.isCommandSet() && isSnapCommand(request.getCommand());
}

/// Symbols of the system source that the library subscribes for itself.
struct OwnSymbols {
    bool heartbeat;
    bool hubStatus;
};

OwnSymbols ownSymbolsIn(const RequestInternal& request) {
    const std::string_view symbol = request.getSymbol();
    return {symbol.empty() || symbol == QueueReadHandler::HEARTBEAT_SYM,
            symbol.empty() || symbol == QueueReadHandler::HUB_STATUS_SYM};
}

} // namespace

bool SessionImpl::watchlistInUse() {
    return settings().isWatchlistOn();
}

/// How many requests may wait in one queue.
std::size_t SessionImpl::requestLimit() {
    return static_cast<std::size_t>(settings().getMaxRequestQueueSize());
}

int64_t SessionImpl::send(RequestImpl& builder) {
    if (!isValid) {
        eprintf(EPF_WARN, "Multiple Sessions are not supported; ignoring start request");
        return 0;
    }
    if (builder.isIncomplete()) {
        eprintf(EPF_WARN, "send() failed: a value of the request was refused");
        return 0;
    }
    auto request = std::make_unique<RequestInternal>(&builder);
    if (!request->isCommandSet()) {
        eprintf(EPF_WARN, "Invalid Request: no command set");
        request->setNullCmd();
    }
    SessionConfigImpl& config = settings();
    const bool listed = config.isWatchlistOn();
    const auto maxQueue = static_cast<std::size_t>(config.getMaxRequestQueueSize());
    const auto maxList = static_cast<std::size_t>(config.getMaxWatchlistSize());

    tp::MutexLock lock(m_request_mutex);
    const bool listFull = listed && watchlist.size() >= maxList;
    // An application must always be able to unsubscribe its way out of a full list.
    const bool isUnsubscribe = request->isCommandSet() && isUnsubscribeCommand(request->getCommand());
    const bool refusedByList = listFull && !isUnsubscribe;
    if (refusedByList || isRequestQueueFull(request->getSrcid(), maxQueue)) {
        const int64_t tag = builder.hasGeneratedTag() ? builder.getGeneratedTag() : 0;
        eprintf(EPF_WARN, "send() failed for tag %lld: %s is full", printable(tag),
                listFull ? "watchlist" : "requestQueue");
        return 0;
    }
    const bool hadTag = builder.hasGeneratedTag();
    const int64_t tag = hadTag ? builder.getGeneratedTag() : getNextTag();
    request->setTag(tag);
    // The list writes an unsubscribe anew, from the subscription: only that text has to fit.
    if (listed && isUnsubscribe)
        watchlist.add(tag, *request);
    if (longestText(*request) > kMaxRequestText) {
        eprintf(EPF_WARN, "send() failed for tag %lld: request is too long", printable(tag));
        return 0;
    }
    builder.consumeGeneratedTag();
    eprintf(EPF_DBUG, "send: request with tag=%lld queued", printable(tag));
    if (listed && request->isCommandSet() && !isUnsubscribe)
        watchlist.add(tag, *request);
    requestQueue.push_back(std::move(request));
    return tag;
}

void SessionImpl::handle_hub_requests(unsigned numReqs) {
    releaseHeldRequests(numReqs);
    const double now = tp::Clock::monotonic();
    if (isHubQueueFull && now >= lastQFullCheckTime && now - lastQFullCheckTime < kSecondsOfBackOff)
        return;
    lastQFullCheckTime = now;
    tp::MutexLock lock(m_request_mutex);
    for (; numReqs > 0 && !requestQueue.empty(); --numReqs) {
        // Routed outside the lock, so that a slow decision does not hold up the application's `send`.
        std::unique_ptr<RequestInternal> head = std::move(requestQueue.front());
        requestQueue.pop_front();
        lock.unlock();
        const bool isTaken = routeRequestToHub(head);
        HubClient* const refusing = isTaken ? nullptr : head->getHUB();
        isHubQueueFull = !isTaken && refusing == nullptr;
        lock.lock();
        if (isHubQueueFull) {
            requestQueue.push_front(std::move(head));
            return;
        }
        if (refusing != nullptr)
            m_held.hold(refusing, std::move(head), now);
    }
}

/// True: the request has been disposed of. False: it must wait, for room at the hub that it names by then, or
/// for any hub at all.
bool SessionImpl::routeRequestToHub(std::unique_ptr<RequestInternal>& request) {
    request->setHUB(nullptr);
    request->resubHB = false;
    request->resubHubStatus = false;
    if (!request->isCommandSet())
        return sendToTarget(request);

    switch (request->getCommand()) {
    case tivra::SETCONFLATIONINTERVAL:
        if (watchlistInUse())
            storeConflationInterval(*request);
        break;
    case tivra::GETSOURCEPORTDETAILS:
        enterPortDetailsRequest(request);
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
    connectXrefHubsFor(*request);
    return sendToTarget(request);
}

/// A later reconnect negotiates the interval that the application has set last.
void SessionImpl::storeConflationInterval(const RequestInternal& request) {
    std::string text = "|";
    text += request.getKVNCommand();
    const std::size_t found = text.find("|2029=");
    if (found == std::string::npos) {
        eprintf(EPF_WARN, "CONFLATION.INTERVAL not set in SETCONFLATIONINTERVAL request");
        return;
    }
    const long interval = std::strtol(text.c_str() + found + std::strlen("|2029="), nullptr, 10);
    HandleAccess::impl(getConnectionConfig()).set(tivra::HostConfig::CONFLATION_INTERVAL_LONG, interval);
}

void SessionImpl::enterAddedAlternateIndexes(RequestInternal& request) {
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

void SessionImpl::applySymbolRules(RequestInternal& request) {
    if (!hasSymbol(request) && scanAlternateIndexes(request))
        return;
    const tivra::Commands command = request.getCommand();
    if (command == tivra::SUBSCRIBE || command == tivra::QUERYSNAPANDSUBSCRIBE)
        applySubscribeRule(request);
    else if (command == tivra::UNSUBSCRIBE)
        applyUnsubscribeRule(request);
}

void SessionImpl::applySubscribeRule(RequestInternal& request) {
    if (request.getSrcid() == SYSTEM_SOURCE) {
        const OwnSymbols own = ownSymbolsIn(request);
        if (own.heartbeat)
            m_HBSubscribed = true;
        if (own.hubStatus)
            m_HubStatusSubscribed = true;
    } else if (request.getSrcid() == -1 && request.getCommand() == tivra::SUBSCRIBE && !hasSymbol(request)) {
        eprintf(EPF_WARN, "Full subscribe not supported by API: tag=(%lld)\n", printable(request.getTag()));
        request.add(kSymbolToken, std::string(kFullSubscribeRefused));
    }
}

/// The library keeps two subscriptions for itself, so an unsubscribe of one is followed by a fresh subscribe.
void SessionImpl::applyUnsubscribeRule(RequestInternal& request) {
    const long long tag = printable(request.getTag());
    if (request.getSrcid() == SYSTEM_SOURCE) {
        const OwnSymbols own = ownSymbolsIn(request);
        if (own.heartbeat) {
            m_HBSubscribed = false;
            request.resubHB = true;
            eprintf(EPF_DBUG,
                    "Must resubscribe to heartbeats after sending unsubscribe request with tag=(%lld); "
                    "src=%d, sym=%s\n",
                    tag, request.getSrcid(), request.getSymbol());
        }
        if (own.hubStatus) {
            m_HubStatusSubscribed = false;
            request.resubHubStatus = true;
            eprintf(
                EPF_DBUG,
                "Must resubscribe to %s after sending unsubscribe request with tag=(%lld); src=%d, sym=%s\n",
                QueueReadHandler::HUB_STATUS_SYM, tag, request.getSrcid(), request.getSymbol());
        }
    } else if (request.getSrcid() == -1 && !hasSymbol(request)) {
        eprintf(EPF_WARN, "Full unsubscribe not supported by API: tag=(%lld)\n", tag);
        request.add(kSymbolToken, std::string(kFullUnsubscribeRefused));
    }
}

bool SessionImpl::sendToTarget(std::unique_ptr<RequestInternal>& request) {
    const long long tag = printable(request->getTag());
    const int source = request->getSrcid();
    RouteQuestion question;
    question.source = source;
    question.isCmdSet = request->isCommandSet();
    question.command = request->getCommand();
    question.symbol = request->getSymbol();
    question.sourceIsSplit = m_split.isSplitSymbol(source);
    question.isCMconnection = m_managers.m_isCMconnection;
    question.initialXrefConnection = m_xref.isNeeded();
    question.xrefHubsDone = m_xref.isDone();
    if (source >= kFirstNewsSource) {
        const HubClient* const first = m_hubs.getFirstHub();
        question.firstHubMajorVersion = first == nullptr ? 0 : first->getHubMajorVersion();
    }
    eprintf(EPF_DBUG, "Sending request with tag=(%lld); src=%d, sym=%s; command=%d\n", tag, source,
            request->getSymbol(), static_cast<int>(question.command));
    switch (decideRoutingTarget(question)) {
    case RoutingTarget::EachHubOfSplitSource:
        eprintf(EPF_DBUG, "Request goes to all hubs with exchange (%d) \n", source);
        return sendToEach(request, source);
    case RoutingTarget::HubOfSplitSymbol: {
        HubClient* const hub = hubForSplitSymbol(*request);
        if (hub == nullptr || m_reactors.reactorOf(hub) == nullptr)
            return sendToFirstHub(request);
        return sendInOrder(request, hub);
    }
    case RoutingTarget::HubOfSource:
        return sendToExchange(request, source);
    case RoutingTarget::AllHubsNews:
        if (question.isCMconnection && question.initialXrefConnection)
            eprintf(EPF_DBUG, " Route request with exch >= 4096 to all hubs \n");
        return sendToAll(request, true);
    case RoutingTarget::AllHubs:
        return sendToAll(request, false);
    case RoutingTarget::DefaultHub:
        return sendToFirstHub(request);
    case RoutingTarget::DefaultHubNewsXref:
        if (m_xref.waitsForHubs(request, requestLimit()))
            return true;
        eprintf(EPF_WARN,
                " Error:Not all xref hubs are connected,  sending request with exch >= 4096, to default "
                "HUB to get response \n");
        return sendToDefaultHub(request);
    case RoutingTarget::DefaultHubXref:
        if (m_xref.waitsForHubs(request, requestLimit()))
            return true;
        eprintf(
            EPF_WARN,
            " Error:Not all xref hubs are connected ; sending queryxref to default HUB to get response \n");
        return sendToDefaultHub(request);
    }
    return sendToFirstHub(request);
}

/// The hub by pattern, else by the deciding letter; null, with a warning, when neither places the symbol.
HubClient* SessionImpl::hubForSplitSymbol(const RequestInternal& request) {
    const int source = request.getSrcid();
    const char* const symbol = request.getSymbol();
    if (HubClient* const hub = m_split.getHubForSplitSymbol(source, symbol))
        return hub;
    const std::size_t position = m_split.skipSplitLetters(source);
    const long long tag = printable(request.getTag());
    if (std::strlen(symbol) <= position) {
        eprintf(EPF_WARN,
                "Lookup failed: request with tag=(%lld); src=%d, sym=%s will be sent to arbitrary HUB\n", tag,
                source, symbol);
        return nullptr;
    }
    HubClient* const hub = m_split.getHubForSplitSymbol(source, symbol[position]);
    if (hub == nullptr)
        eprintf(EPF_WARN,
                "  character lookup failed for (%c) for exch (%d); request with tag=(%lld); src=%d, sym=%s "
                "will be "
                "sent to arbitrary HUB\n",
                symbol[position], source, tag, source, symbol);
    return hub;
}

/// Queues the request for one hub. False always means that the caller still owns it.
bool SessionImpl::sendToHub(std::unique_ptr<RequestInternal>& request, HubClient* hub, bool force, int src) {
    if (hub == nullptr) {
        eprintf(EPF_CRIT, "Internal error: null HUB; aborting");
        return false;
    }
    request->setHUB(hub);
    HubEventReactor* const reactor = m_reactors.reactorOf(hub);
    if (reactor == nullptr) {
        if (shutdownInProgress)
            eprintf(EPF_WARN, "Shutdown in progress: discarding request");
        else
            eprintf(EPF_CRIT, "Internal error: no EventReactor registered for this HUB (%s)",
                    hub->getHubAddr().c_str());
        return false;
    }
    const int64_t tag = request->getTag();
    const bool isNew = m_responses.expectNew(*request, hub, src);
    if (isNew && watchlistInUse())
        watchlist.setExpectedResponses(tag, 1);
    eprintf(EPF_DBUG, "Pushing request with tag=%lld for HUB %s", printable(tag), hub->getHubAddr().c_str());
    if (reactor->pushRequest(request, force))
        return true;
    // Another hub may serve the source by the time of the next attempt.
    if (isNew)
        m_responses.forget(tag);
    return false;
}

bool SessionImpl::sendToExchange(std::unique_ptr<RequestInternal>& request, int exch) {
    HubClient* const hub = m_routes.find(exch);
    if (hub != nullptr && m_reactors.reactorOf(hub) != nullptr)
        return sendInOrder(request, hub);
    eprintf(EPF_WARN, "Request with tag=%lld: exchange (%d) not found; not entitled at HUB for user %s",
            printable(request->getTag()), exch, m_user.getUserName().c_str());
    return sendToFirstHub(request);
}

/// The default hub's answer is what the application receives.
bool SessionImpl::sendToFirstHub(std::unique_ptr<RequestInternal>& request) {
    HubClient* const hub = m_hubs.getFirstHub();
    if (hub == nullptr)
        return false;
    if (sendInOrder(request, hub))
        return true;
    if (m_reactors.reactorOf(hub) != nullptr)
        return false;
    request.reset(); // nobody serves this hub, and waiting would hold up all others
    return true;
}

bool SessionImpl::sendToDefaultHub(std::unique_ptr<RequestInternal>& request) {
    const int64_t tag = request->getTag();
    {
        tp::MutexLock lock(m_reqTagLst_mutex);
        m_reqTagLst.insert(tag);
    }
    eprintf(EPF_WARN, " Send to default HUB to get response ;Request with tag=%lld", printable(tag));
    return sendToFirstHub(request);
}

bool SessionImpl::sendToAll(std::unique_ptr<RequestInternal>& request, bool isNews) {
    std::vector<HubClient*> hubs = m_hubs.copy();
    if (m_managers.m_isCMconnection)
        hubs.erase(
            std::remove_if(hubs.begin(), hubs.end(),
                           [](const HubClient* client) { return client->getInitialHubDisconnected(); }),
            hubs.end());
    return sendCopies(request, hubs, isNews);
}

bool SessionImpl::sendToEach(std::unique_ptr<RequestInternal>& request, int exch) {
    const std::vector<HubClient*> hubs = m_split.hubsOf(exch);
    if (hubs.empty() && !m_split.isSplitSymbol(exch))
        return sendToExchange(request, exch);
    return sendCopies(request, hubs, false);
}

/// A copy to each hub. True when at least one was fed or will be. A question that a full queue has refused is
/// answered by the other hubs; what changes what stands at a hub waits until there is room.
bool SessionImpl::sendCopies(std::unique_ptr<RequestInternal>& request, const std::vector<HubClient*>& hubs,
                             bool isNews) {
    const auto isServed = [this](HubClient* hub) { return m_reactors.reactorOf(hub) != nullptr; };
    if (std::none_of(hubs.begin(), hubs.end(), isServed))
        return false;
    const int64_t tag = request->getTag();
    // The number stands before the first push: an answer may come while the others are still being fed.
    m_responses.expect(*request, hubs, isNews);
    if (watchlistInUse())
        watchlist.setExpectedResponses(tag, hubs.size());
    std::vector<std::unique_ptr<RequestInternal>> refused;
    const void* lastCopy = nullptr; // for the log
    for (HubClient* hub : hubs) {
        std::unique_ptr<RequestInternal> copy = request->copyWithAltIndex();
        if (hubs.size() > 1)
            copy->reach = RequestInternal::Reach::CopyOfSeveral;
        lastCopy = copy.get();
        if (!sendInOrder(copy, hub))
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
            holdRequest(std::move(copy));
    }
    request.reset();
    return true;
}

void SessionImpl::lowerExpectedResponses(int64_t tag, HubClient* hub) {
    if (m_responses.countAsAnswered(tag, hub))
        m_lost.add(nullptr, {tag});
    if (watchlistInUse())
        watchlist.lowerExpectedResponses(tag);
}

/// A request whose hub leaves for good. What was for that hub alone is routed again. The others of several
/// have copies of their own, so a copy goes nowhere else: the hub counts as having taken and answered it.
void SessionImpl::takeBackRequest(std::unique_ptr<RequestInternal> request, HubClient* client) {
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
        if (m_responses.countAsAnswered(tag, client))
            m_lost.add(nullptr, {tag});
        return;
    }
    if (const int32_t grantedSource = m_responses.takeBack(tag)) {
        // The library's own question takes no part in routing: its answer must not reach the application.
        sendPortQuestion(request, grantedSource);
        return;
    }
    tp::MutexLock lock(m_request_mutex);
    requestQueue.push_back(std::move(request));
}

bool SessionImpl::isQueryCommand(int64_t tag, HubClient* hub, tivra::Commands& command) {
    if (const std::optional<tivra::Commands> known = m_responses.commandOf(tag)) {
        command = *known;
        return tivra_internal::isQueryCommand(command);
    }
    command = tivra::SUBSCRIBE;
    if (tag == LOGIN || !watchlistInUse()) {
        eprintf(EPF_WARN, "Internal Error: Request with tag=%lld not found", printable(tag));
        return false;
    }
    eprintf(EPF_DBUG, "Request with tag=%lld not found; get command from watchlist", printable(tag));
    if (!hub->getWatchlist()->getCommand(tag, command)) {
        eprintf(EPF_WARN, "Request with tag=%lld not found in watchlist", printable(tag));
        return false;
    }
    return tivra_internal::isQueryCommand(command);
}

} // namespace tivra_internal
