#include "session/sources/HubSourceStatus.h"

#include <tp/eprintf.h>

#include "hub/HubClient.h"
#include "request/RequestInternal.h"
#include "session/SessionEventQueue.h"
#include "session/lifecycle/SessionCheckDecision.h"
#include "session/sources/SourceRoutes.h"

namespace tivra_internal {

using tivra::SessionEvent;

void HubSourceStatus::noteDown(HubClient* client) {
    tp::MutexLock lock(m_hubSourceStatus_mutex);
    m_hubDownLst.insert(client);
}

void HubSourceStatus::addSource(HubClient* client, int source) {
    tp::MutexLock lock(m_hubSourceStatus_mutex);
    hubSrcLstMap[client].insert(source);
}

void HubSourceStatus::removeSource(HubClient* client, int source) {
    tp::MutexLock lock(m_hubSourceStatus_mutex);
    hubSrcLstMap[client].erase(source);
}

void HubSourceStatus::forget(HubClient* client) {
    tp::MutexLock lock(m_hubSourceStatus_mutex);
    hubSrcLstMap.erase(client);
    hubStatusMap.erase(client);
    m_hubDownLst.erase(client);
}

void HubSourceStatus::clear() {
    tp::MutexLock lock(m_hubSourceStatus_mutex);
    hubSrcLstMap.clear();
    hubStatusMap.clear();
    m_hubDownLst.clear();
}

void HubSourceStatus::raise(StateEvent stateEvent) {
    if (stateEvent)
        m_events.pushState(*stateEvent);
}

void HubSourceStatus::noteRecovery(StateEvent stateEvent) {
    tp::MutexLock lock(m_hubSourceStatus_mutex);
    raisePending();
    raise(stateEvent);
    for (HubClient* client : m_hubDownLst) {
        HubStatus& status = hubStatusMap[client];
        if (status.currStatus == SessionEvent::TIVRA_SESSION_RECOVERY ||
            status.currStatus == SessionEvent::TIVRA_SESSION_RECOVERY_SOURCES)
            continue;
        status.prevStatus = status.currStatus;
        status.currStatus = SessionEvent::TIVRA_SESSION_RECOVERY;
        eprintf(EPF_DBUG, "SESSION_RECOVERY: hubStatusMap updated for HUB [%s] ",
                client->getHubAddr().c_str());
    }
}

void HubSourceStatus::noteEstablished(const std::vector<HubClient*>& hubs, const EntitledSources& entitled,
                                      bool isNew, const HubCounts& counts, StateEvent stateEvent) {
    tp::MutexLock lock(m_hubSourceStatus_mutex);
    raisePending();
    for (HubClient* client : hubs) {
        hubSrcLstMap[client];
        HubStatus& status = hubStatusMap[client];
        if (isNew)
            status = {SessionEvent::TIVRA_SESSION_UNAVAILABLE, SessionEvent::TIVRA_SESSION_ESTABLISHED};
        if (m_hubDownLst.erase(client) != 0) {
            status.prevStatus = status.currStatus;
            status.currStatus = SessionEvent::TIVRA_SESSION_ESTABLISHED;
        }
    }
    for (const auto& [source, client] : entitled.copy()) {
        hubSrcLstMap[client].insert(source);
        if (isNew)
            m_events.pushSource(SessionEvent::TIVRA_SESSION_AVAILABLE_ALLSOURCES, source);
    }
    eprintf(EPF_DBUG, "SESSION_ESTABLISHED: # HUBs ready=%d; notReady=%d, hubSrcLstMap.size = %zu",
            counts.ready, counts.notReady, hubSrcLstMap.size());
    raise(stateEvent);
}

void HubSourceStatus::raiseSourceEvents() {
    tp::MutexLock lock(m_hubSourceStatus_mutex);
    raisePending();
}

/// What a change has left to be told, which the next change would overwrite.
void HubSourceStatus::raisePending() {
    for (auto& [client, status] : hubStatusMap) {
        const SessionEvent::Types before = status.prevStatus;
        if (status.currStatus == SessionEvent::TIVRA_SESSION_RECOVERY &&
            (before == SessionEvent::TIVRA_SESSION_ESTABLISHED ||
             before == SessionEvent::TIVRA_SESSION_AVAILABLE_SOURCES)) {
            eprintf(
                EPF_INFO,
                "HUB [%s] in TIVRA_SESSION_RECOVERY_SOURCES and send the sources that are not available \n",
                client->getHubAddr().c_str());
            status.prevStatus = SessionEvent::TIVRA_SESSION_RECOVERY;
            status.currStatus = SessionEvent::TIVRA_SESSION_RECOVERY_SOURCES;
            raiseSourceEventsOf(client, SessionEvent::TIVRA_SESSION_RECOVERY_SOURCES);
        } else if (status.currStatus == SessionEvent::TIVRA_SESSION_ESTABLISHED &&
                   (before == SessionEvent::TIVRA_SESSION_RECOVERY ||
                    before == SessionEvent::TIVRA_SESSION_RECOVERY_SOURCES)) {
            eprintf(EPF_INFO,
                    "HUB [%s] in TIVRA_SESSION_AVAILABLE_SOURCES and send the sources available  when HUB is "
                    "back "
                    "up again\n",
                    client->getHubAddr().c_str());
            status.prevStatus = SessionEvent::TIVRA_SESSION_ESTABLISHED;
            status.currStatus = SessionEvent::TIVRA_SESSION_AVAILABLE_SOURCES;
            raiseSourceEventsOf(client, SessionEvent::TIVRA_SESSION_AVAILABLE_SOURCES);
        }
    }
}

void HubSourceStatus::raiseSourceEventsOf(HubClient* client, SessionEvent::Types type) {
    for (const int source : hubSrcLstMap[client])
        m_events.pushSource(type, source);
}

} // namespace tivra_internal
