// What the session does for the routing of requests and for the answers that belong to them.
#include "session/SessionImpl.h"

#include <algorithm>
#include <utility>

#include <tp/eprintf.h>

#include "config/ConnectionConfigImpl.h"
#include "config/SessionConfigImpl.h"
#include "config/UserInfoImpl.h"
#include "hub/HubClient.h"
#include "hub/RequestFrame.h"
#include "receive/Queue.h"
#include "request/HubWatchlist.h"
#include "request/RequestInternal.h"

namespace tivra_internal {

int64_t SessionImpl::send(RequestImpl& builder) {
    if (!isValid) {
        eprintf(EPF_WARN, "Multiple Sessions are not supported; ignoring start request");
        return 0;
    }
    if (builder.isIncomplete()) {
        eprintf(EPF_WARN, "send() failed: a value of the request was refused");
        return 0;
    }
    SessionConfigImpl& config = settings();
    return m_queue.accept(builder, {config.isWatchlistOn(), requestLimit(),
                                    static_cast<std::size_t>(config.getMaxWatchlistSize())});
}

bool SessionImpl::watchlistInUse() {
    return settings().isWatchlistOn();
}

/// How many requests may wait in one queue.
std::size_t SessionImpl::requestLimit() {
    return static_cast<std::size_t>(settings().getMaxRequestQueueSize());
}

std::string SessionImpl::userName() const {
    return m_user.getUserName();
}

/// A first hub that is only a door gets nothing any more.
std::vector<HubClient*> SessionImpl::hubsForAll() const {
    std::vector<HubClient*> hubs = m_hubs.copy();
    if (m_managers.m_isCMconnection)
        hubs.erase(
            std::remove_if(hubs.begin(), hubs.end(),
                           [](const HubClient* client) { return client->getInitialHubDisconnected(); }),
            hubs.end());
    return hubs;
}

XrefStanding SessionImpl::xrefStanding() const {
    return {m_managers.m_isCMconnection, m_xref.isNeeded(), m_xref.isDone()};
}

bool SessionImpl::waitsForXrefHubs(std::unique_ptr<RequestInternal>& request) {
    return m_xref.waitsForHubs(request, requestLimit());
}

void SessionImpl::storeConflationInterval(long interval) {
    HandleAccess::impl(getConnectionConfig()).set(tivra::HostConfig::CONFLATION_INTERVAL_LONG, interval);
}

void SessionImpl::enterPortDetailsRequest(std::unique_ptr<RequestInternal>& request) {
    const int64_t tag = request->getTag();
    m_responses.expect(*request, {nonHubClient.get()}, false);
    if (watchlistInUse()) {
        watchlist.setExpectedResponses(tag, 1);
        if (nonHubClient)
            nonHubClient->getWatchlist()->add(tag, std::make_unique<RequestInternal>(request.get()));
        else
            eprintf(EPF_WARN, "nonHubClient NULL, so tag %lld not added to local watchlist",
                    static_cast<long long>(tag));
    }
    m_portDetails.enter(tag);
    request.reset();
}

bool SessionImpl::writeLocalMessage(const std::string& text) {
    if (!nonHubClient)
        return false;
    std::string frame(text.size() + kFrameOverhead, '\0');
    const int length = buildKvnMsg(text.c_str(), text.size(), frame.data());
    return nonHubClient->getResponseQueue()->writeToQueue(frame.data(), static_cast<std::size_t>(length));
}

void SessionImpl::takeBackRequest(std::unique_ptr<RequestInternal> request, HubClient* client) {
    m_router.takeBackRequest(std::move(request), client);
}

bool SessionImpl::isEndingLostRequests() {
    return settings().isEndingLostRequests();
}

} // namespace tivra_internal
