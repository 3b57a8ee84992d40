// The master thread: structural changes, read handlers for new hubs, requests, per-source events.
#include "session/SessionImpl.h"

#include <cstdlib>

#include <tp/Clock.h>
#include <tp/eprintf.h>

#include "hub/HubClient.h"
#include "hub/HubEventReactor.h"
#include "request/RequestInternal.h"

namespace tivra_internal {
namespace {

// The pause between two passes, in seconds. Most passes are asked for.
constexpr double kPause = 0.05;
constexpr double kPauseWithWork = 0.001;
constexpr unsigned kRequestsPerPass = 1000;

} // namespace

void SessionImpl::runMaster() {
    startWorkerThreads(m_changeOver.isOnBackup());
    for (;;) {
        if (m_run.isStopRequested()) {
            shutdown();
            eprintf(EPF_DBUG, "Session master thread is exiting");
            return;
        }
        if (m_changeOver.isAskedFor()) {
            changeOver();
        } else if (m_threadsMissing) {
            retryWorkerThreads();
        } else {
            serveNewHub();
            if (m_xref.continueRetry())
                m_queue.prepend(m_xref.takeWaiting());
            if (m_check.isInitiallyEstablished()) {
                m_queue.serve(kRequestsPerPass, m_router);
                m_portDetails.answer(kRequestsPerPass);
            }
        }
        if (m_run.isStarted())
            m_sources.hubStatus().raiseSourceEvents();
        if (m_managers.m_isCMconnection)
            m_xref.connectForEntitlements();
        m_masterPause.wait(pauseOfMaster());
        tp::Clock::beat();
    }
}

/// Short while something goes on that nobody would wake the thread for.
double SessionImpl::pauseOfMaster() {
    const bool hasRequests = m_check.isInitiallyEstablished() && m_queue.isServable();
    return hasRequests || m_xref.isAttemptOpen() || m_portDetails.isServable() ? kPauseWithWork : kPause;
}

/// All hubs and threads go, and come back on the other side (failover) or on the same one (dictionary
/// reload).
void SessionImpl::changeOver() {
    shutdown();
    m_changeOver.turn();
    startWorkerThreads(m_changeOver.isOnBackup());
}

/// Gives the hub that became ready first its read handler, on a user thread.
void SessionImpl::serveNewHub() {
    const bool isServed = m_newHubs.serveNext([this](HubClient& client) {
        // A first hub that is to be dropped gets no handler; a hub that came back keeps the one it has.
        if (client.getInitialHubDisconnected()) {
            m_dropped.noteHandedOver();
            m_reactors.askHubs(HubEventReactor::kSupervise);
        } else if (!client.hasReadHandler()) {
            if (client.getHostConfig() == nullptr) {
                eprintf(EPF_CRIT, "internal error m_hostConfig is NULL for hubClient=%p-- aborting",
                        static_cast<const void*>(&client));
                std::abort();
            }
            giveReadHandler(client, false);
        }
    });
    if (!isServed)
        return;
    askForCheck();
    wakeMaster(); // for the next one
}

} // namespace tivra_internal
