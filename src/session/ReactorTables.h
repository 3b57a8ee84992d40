#pragma once

#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <tp/Mutex.h>
#include <tp/Thread.h>

#include "LockOrder.h"

namespace tivra_internal {

class HubClient;
class HubEventReactor;
class QueueReadHandler;
class UserEventReactor;

/// Which reactor serves the next hub or queue.
struct ReactorChoice {
    int index;
    bool create; ///< no reactor of that index exists yet
};

/// Round-robin over the reactors; a new one only while the hubs have used up the existing ones and the
/// configuration allows more. `maxThreads` 0 means no limit.
[[nodiscard]] ReactorChoice chooseReactor(int lastUsedIndex, int reactorCount, bool multithreaded,
                                          long maxThreads);

/// The reactors of a session, the threads that run them and what each serves.
struct ReactorTables {
    ReactorTables();
    ~ReactorTables();

    /// Held over the whole placement of a hub, and while `shutdown` tells the reactors to end, so that no hub
    /// is placed on a reactor that is ending.
    tp::Mutex m_registerHub_mutex{kLockRegisterHub};
    int hubNextAvailableIndex TP_GUARDED_BY(m_registerHub_mutex) = 0;
    int hubLastUsedIndex TP_GUARDED_BY(m_registerHub_mutex) = -1;

    tp::Mutex m_hubER_mutex{kLockHubER};
    std::map<HubClient*, HubEventReactor*> hubToEventReactor TP_GUARDED_BY(m_hubER_mutex);
    std::map<int, std::unique_ptr<HubEventReactor>> hubEventReactorMap TP_GUARDED_BY(m_hubER_mutex);
    std::map<int, std::vector<HubClient*>> eventReactorHubList TP_GUARDED_BY(m_hubER_mutex);

    tp::Mutex m_reqQ_mutex{kLockReqQ};
    std::map<int, std::unique_ptr<UserEventReactor>> userEventReactorMap TP_GUARDED_BY(m_reqQ_mutex);
    std::map<int, std::vector<QueueReadHandler*>> eventReactorQueueHandlerList TP_GUARDED_BY(m_reqQ_mutex);
    std::map<unsigned short, int> portUserERIndexMap TP_GUARDED_BY(m_reqQ_mutex);
    int userNextAvailableIndex TP_GUARDED_BY(m_reqQ_mutex) = 0;
    int userLastUsedIndex TP_GUARDED_BY(m_reqQ_mutex) = -1;

    tp::Mutex m_threadVector_mutex{kLockThreadVector};
    std::list<tp::Thread> thread_vector TP_GUARDED_BY(m_threadVector_mutex);

    /// The reactor that serves a hub, null when it has none.
    [[nodiscard]] HubEventReactor* reactorOf(HubClient* client);
    /// The hubs that a hub reactor serves.
    [[nodiscard]] std::vector<HubClient*> hubsOf(int reactorIndex);
    /// The read handlers that a user reactor serves.
    [[nodiscard]] std::vector<QueueReadHandler*> handlersOf(int reactorIndex);

    /// Its thread still looks after the hub, be it in the session or not.
    [[nodiscard]] bool isServed(const HubClient* client);
    /// The hub is served by the reactor of that index from now on.
    void placeHub(HubClient* client, int reactorIndex);
    /// The hub is routed to no more; its reactor still serves it.
    void forgetReactorOf(HubClient* client);
    /// The hub is served by no reactor any more. @thread the hub's own
    void removeHub(HubClient* client);
    /// Takes back a reactor that has no thread, and the one hub placed on it.
    void removeHubReactor(int reactorIndex, HubClient* client);

    /// Tells every reactor to leave its loop, hubs first.
    void endAll();
    /// Joins every thread; reactors that are started meanwhile are joined too.
    void joinAll();
    void forgetHubs();
    /// Deletes the reactors, whose threads have ended, and starts the numbering anew.
    void deleteAll();
};

} // namespace tivra_internal
