#pragma once

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <vector>

#include <tp/Mutex.h>
#include <tp/Thread.h>

#include "LockOrder.h"
#include "session/threads/UserLoops.h"

namespace tivra_internal {

class HubClient;
class HubEventReactor;
class QueueReadHandler;
class ReactorPoolOwner;
class UserEventReactor;

/// The reactors of a session, the threads that run them and what each serves. @thread any
class ReactorPool {
public:
    explicit ReactorPool(ReactorPoolOwner& owner);
    ~ReactorPool();
    ReactorPool(const ReactorPool&) = delete;
    ReactorPool& operator=(const ReactorPool&) = delete;

    // Hubs. Each is placed on a hub thread, round-robin in the order of creation; no two at a time, and none
    // while `endAll` ends the reactors.
    /// Places the hub that `make` yields, which is called within the placement. Null when it yields none or
    /// when there is no thread for it.
    HubClient* placeNew(const std::function<HubClient*()>& make) TP_EXCLUDES(m_registerHub_mutex);
    /// Places a hub for which there was no thread before.
    void placeUnserved(HubClient* client) TP_EXCLUDES(m_registerHub_mutex);
    /// Places a hub that was let go on the reactor that it had, unless that still serves it. `prepare` is
    /// called within the placement and false prevents it.
    void placeAgain(HubClient* client, const std::function<bool()>& prepare) TP_EXCLUDES(m_registerHub_mutex);
    /// The reactor that serves a hub, null when it has none.
    [[nodiscard]] HubEventReactor* reactorOf(HubClient* client);
    /// The hubs that a hub reactor serves.
    [[nodiscard]] std::vector<HubClient*> hubsOf(int reactorIndex);
    /// Its thread still looks after the hub, be it in the session or not.
    [[nodiscard]] bool isServed(const HubClient* client);
    /// The hub is routed to no more; its reactor still serves it.
    void forgetReactorOf(HubClient* client);
    /// The hub is served by no reactor any more. @thread the hub's own
    void removeHub(HubClient* client);
    /// No hub is routed to any more.
    void forgetHubs();
    /// Asks all hub threads; see HubEventReactor::Ask.
    void askHubs(unsigned what);

    // Queues.
    /// The handler serves the client's queue, on a user thread that is found as a hub's is.
    void registerQueueHandler(QueueReadHandler* handler, bool isFirst, HubClient& client)
        TP_EXCLUDES(m_reqQ_mutex);
    void closeQueueHandler(QueueReadHandler* handler) TP_EXCLUDES(m_reqQ_mutex);
    /// The read handlers that a user reactor serves.
    [[nodiscard]] std::vector<QueueReadHandler*> handlersOf(int reactorIndex);

    [[nodiscard]] UserLoops& userLoops() { return m_userLoops; }

    // The end of all.
    /// Asks every reactor to leave its loop, hubs first.
    void endAll();
    /// Joins every thread; reactors that are started meanwhile are joined too.
    void joinAll();
    /// Deletes the reactors, whose threads have ended, and starts the numbering anew.
    void deleteAll();

private:
    [[nodiscard]] bool registerHub(HubClient* client) TP_REQUIRES(m_registerHub_mutex);
    [[nodiscard]] bool createHubReactor(int index, HubClient* client) TP_REQUIRES(m_registerHub_mutex);
    void placeHub(HubClient* client, int reactorIndex) TP_REQUIRES(m_registerHub_mutex);
    void removeHubReactor(int reactorIndex, HubClient* client);
    [[nodiscard]] UserEventReactor* createUserReactor(int index, QueueReadHandler* handler, bool isFirst)
        TP_REQUIRES(m_reqQ_mutex);
    void addThread(tp::Thread thread);

    ReactorPoolOwner& m_owner;

    /// Held over the whole placement of a hub, and while `endAll` has the reactors end, so that no hub is
    /// placed on a reactor that is ending.
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
    int userNextAvailableIndex TP_GUARDED_BY(m_reqQ_mutex) = 0;
    int userLastUsedIndex TP_GUARDED_BY(m_reqQ_mutex) = -1;

    UserLoops m_userLoops;

    tp::Mutex m_threadVector_mutex{kLockThreadVector};
    std::list<tp::Thread> thread_vector TP_GUARDED_BY(m_threadVector_mutex);
};

} // namespace tivra_internal
