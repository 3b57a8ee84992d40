// The one teardown for a stop, a failover and a dictionary reload.
#include "session/SessionImpl.h"

#include <tp/eprintf.h>

#include "config/SessionConfigImpl.h"
#include "hub/HubClient.h"
#include "hub/LnkApi.h"
#include "request/RequestInternal.h"

namespace tivra_internal {
namespace {

constexpr const char* kStoppedEarly = "Session stopped before it was established";

} // namespace

bool SessionImpl::stop() {
    if (tp::onLibraryThread()) {
        eprintf(EPF_CRIT, "stop called on a library thread; ignoring stop request");
        return true;
    }
    tp::MutexLock lock(m_stop_mutex);
    if (!masterThread)
        return true;
    // Ends the wait of a `start` that is still under way; an outcome that has come before stands.
    m_latch.settle(StartLatch::Outcome::Stopped, kStoppedEarly);
    if (!stopRequested) {
        eprintf(EPF_INFO, "Stopping Session");
        shutdownInProgress = true;
        stopRequested = true;
    }
    eprintf(EPF_DBUG, "About to join master Thread");
    masterThread->join();
    masterThread.reset();
    isStarted = false;
    stopRequested = false;
    return true;
}

void SessionImpl::shutdown() {
    eprintf(EPF_DBUG, "Begin shutdown");
    m_reactors.endAll();
    eprintf(EPF_DBUG, "Waiting for all event reactors to end");
    m_reactors.joinAll();
    eprintf(EPF_DBUG, "All event reactors have ended");
    // From here on this is the session's only thread but for the application's calls of `send` and
    // `getState`.
    m_reactors.forgetHubs();
    m_hubs.deleteAll();
    nonHubClient.reset();
    m_split.clear();
    m_routes.clear();
    m_hubStatus.clear();
    m_entitled.clear();
    {
        tp::MutexLock lock(newQRHQueue_mutex);
        for (const HubClient* client : newQRHQueue)
            eprintf(EPF_DBUG, "Discarding QRH request for client %p", static_cast<const void*>(client));
        newQRHQueue.clear();
    }
    releaseXrefRequests();
    requeueRequests();
    m_reactors.deleteAll();
    cleanUpManagers();
    reset();
    eprintf(EPF_DBUG, "SessionImpl::shutdown(EXIT)");
}

/// The next connect initialises the managers' client library anew.
void SessionImpl::cleanUpManagers() {
    if (!m_managers.m_isLnkapiInitialized.exchange(false))
        return;
    eprintf(EPF_DBUG, "Lnkapi cleanup called");
    LnkApi::instance().cleanup();
    m_managers.forgetHubs();
}

/// Requests in the queues are lost, but every standing request of the watchlist is queued again with its tag.
void SessionImpl::requeueRequests() {
    const bool endsLost = settings().isEndingLostRequests();
    tp::MutexLock lock(m_request_mutex);
    for (std::unique_ptr<RequestInternal>& held : m_held.takeAll())
        requestQueue.push_back(std::move(held));
    eprintf(watchlistInUse() ? EPF_DBUG : EPF_INFO,
            "shutdown: About to discard %zu requests from request Queue", requestQueue.size());
    for (const auto& request : requestQueue) {
        eprintf(EPF_DBUG, "shutdown: Discarding request with tag=%lld",
                static_cast<long long>(request->getTag()));
        if (endsLost && (!stopRequested || watchlist.contains(request->getTag())))
            m_responses.noteUnsent(*request);
    }
    requestQueue.clear();
    // What the application has unsubscribed must not come back, though hubs have not been told of it, or have
    // yet to finish what they had been asked for.
    watchlist.forgetUnsubscribed();
    if (watchlist.size() == 0)
        return;
    watchlist.removeAllHubs();
    int64_t tag = 0;
    while (std::unique_ptr<RequestInternal> request = watchlist.getNextRequest(tag)) {
        tag = request->getTag();
        watchlist.setExpectedResponses(tag, 0);
        request->outstandingResponses = 0;
        request->isRepeated = !m_responses.isUnanswered(tag);
        requestQueue.push_back(std::move(request));
    }
    eprintf(EPF_INFO, "%zu watchlist requests placed on request queue", requestQueue.size());
}

} // namespace tivra_internal
