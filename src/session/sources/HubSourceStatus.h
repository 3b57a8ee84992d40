#pragma once

#include <map>
#include <optional>
#include <set>
#include <vector>

#include <event/SessionEvent.h>
#include <tp/Mutex.h>

#include "LockOrder.h"

namespace tivra_internal {

class EntitledSources;
class HubClient;
class SessionEventQueue;
struct HubCounts;

/// The two states of one hub by which the master thread sees that its sources went away or came back. The
/// session check writes 1 (available) and 2 (recovery), the master thread 5 and 6 once the sources' events
/// have gone out.
struct HubStatus {
    tivra::SessionEvent::Types prevStatus = tivra::SessionEvent::TIVRA_SESSION_UNAVAILABLE;
    tivra::SessionEvent::Types currStatus = tivra::SessionEvent::TIVRA_SESSION_UNAVAILABLE;
};

/// Per hub: its standing, the sources named in its events, and whether it has been seen down. An event of the
/// session's state that comes with a change of standing is raised under the mutex, so that the events of
/// single sources come after it. @thread any, unless a line says otherwise
class HubSourceStatus {
public:
    using StateEvent = std::optional<tivra::SessionEvent::Types>;

    explicit HubSourceStatus(SessionEventQueue& events) : m_events(events) {}

    void noteDown(HubClient* client);
    void addSource(HubClient* client, int source);
    void removeSource(HubClient* client, int source);
    /// The hub has left the session.
    void forget(HubClient* client);
    void clear();

    /// The hubs that have been seen down are in recovery from now on. @thread first user
    void noteRecovery(StateEvent stateEvent);
    /// All hubs are up; `isNew` when the session was unavailable before. @thread first user
    void noteEstablished(const std::vector<HubClient*>& hubs, const EntitledSources& entitled, bool isNew,
                         const HubCounts& counts, StateEvent stateEvent);
    /// Turns what the session check has found of each hub into events for its sources. @thread master
    void raiseSourceEvents();

private:
    void raisePending() TP_REQUIRES(m_hubSourceStatus_mutex);
    void raise(StateEvent stateEvent);
    void raiseSourceEventsOf(HubClient* client, tivra::SessionEvent::Types type)
        TP_REQUIRES(m_hubSourceStatus_mutex);

    SessionEventQueue& m_events;
    tp::Mutex m_hubSourceStatus_mutex{kLockHubSourceStatus};
    std::map<HubClient*, HubStatus> hubStatusMap TP_GUARDED_BY(m_hubSourceStatus_mutex);
    std::map<HubClient*, std::set<int>> hubSrcLstMap TP_GUARDED_BY(m_hubSourceStatus_mutex);
    std::set<HubClient*> m_hubDownLst TP_GUARDED_BY(m_hubSourceStatus_mutex);
};

} // namespace tivra_internal
