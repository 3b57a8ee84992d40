// The one teardown for a stop, a failover and a dictionary reload.
#include "session/SessionImpl.h"

#include <tp/eprintf.h>

#include "config/SessionConfigImpl.h"
#include "hub/HubClient.h"
#include "hub/LnkApi.h"
#include "request/RequestInternal.h"

namespace tivra_internal {

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
    m_sources.clear();
    m_newHubs.clear();
    m_queue.prepend(m_xref.takeWaiting());
    if (!repeatsQuestions())
        watchlist.forgetQuestions();
    m_queue.requeue(watchlistInUse(), isEndingLostRequests(), m_run.isStopRequested());
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

/// Returns what a restart needs to its first state; the configuration and the watchlist stay.
void SessionImpl::reset() {
    eprintf(EPF_DBUG, "SessionImpl::reset(ENTRY)");
    m_firstHubs.reset();
    m_partialStart.forget();
    m_dropped.reset();
    m_xref.reset();
    const bool isStop = m_run.isStopRequested();
    if (isStop) {
        m_changeOver.forget();
        // Standing requests keep their tags, so new ones must not collide with them.
        m_tags.restartAfter(watchlist.highestTag());
        m_managers.prepareNextStart();
        if (watchlist.size() == 0)
            m_router.ownSubscriptions().reset();
    }
    m_check.reset();
    m_changeOver.enableFailover(false);
    m_run.noteHubsGone();
    m_responses.logEntries();
    m_merger.abandonResponses(isStop);
    m_dictionaries.reset();
    m_queue.reset();
    m_sources.reset();
    m_portDetails.reset();
    m_queueDepthAlarm.forget();
}

} // namespace tivra_internal
