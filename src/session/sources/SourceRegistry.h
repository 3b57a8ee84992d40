#pragma once

#include <vector>

#include "session/LockedSet.h"
#include "session/sources/HubSourceStatus.h"
#include "session/sources/SourceRoutes.h"

namespace tivra_internal {

class HubClient;
class SessionEventQueue;
class SourceSession;

/// All that a session knows of sources: which hub serves which, to which of them the user is entitled, and
/// what the application has been told of them. @thread any, unless a line says otherwise
class SourceRegistry {
public:
    /// Both are borrowed.
    SourceRegistry(SourceSession& session, SessionEventQueue& events);

    [[nodiscard]] const SourceRoutes& routes() const { return m_routes; }
    [[nodiscard]] const EntitledSources& entitled() const { return m_entitled; }
    [[nodiscard]] HubSourceStatus& hubStatus() { return m_hubStatus; }

    // --- what hubs list; see SessionSources ---
    void addBoxSource(int src, HubClient* client) { m_routes.addBoxSource(src, client); }
    bool addUserSource(int src, HubClient* entHub);
    void assignSource(int src, HubClient* client) {
        static_cast<void>(m_routes.assign(src, client)); // without room it has been warned of
    }
    [[nodiscard]] int nextWithoutHub(int after, HubClient* newsHub, bool& last) {
        return m_routes.nextWithoutHub(after, newsHub, last);
    }

    // --- what is granted and withdrawn while the session runs; @thread user ---
    /// The user is entitled to a source that this hub serves. A null hub is reported.
    /// @thread user, master
    void addNewEntitlement(int src, HubClient* hub);
    /// A hub says that the user has lost a source, which counts when it is the one that serves it.
    void deleteEntitlement(int src, HubClient* hub);
    /// A source was granted whose hub may not be known: asks for that once.
    void beginAddNewEntitlement(int src);

    // --- hubs that leave ---
    /// Nothing is routed to the hub any more.
    void forgetRoutes(HubClient* client);
    /// All hubs go.
    void clear();
    /// A session that goes on with other hubs asks for the hubs of granted sources anew.
    void reset() { dynEntMap.clear(); }

private:
    SourceSession& m_session;
    SessionEventQueue& m_events;
    SourceRoutes m_routes;
    EntitledSources m_entitled;
    HubSourceStatus m_hubStatus;
    LockedSet<int> dynEntMap; ///< granted sources whose hub has been asked for
};

} // namespace tivra_internal
