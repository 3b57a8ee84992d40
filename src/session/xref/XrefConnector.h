#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include <tp/Mutex.h>

#include "LockOrder.h"

namespace tivra_internal {

class HubClient;
class RequestInternal;
class XrefSession;

/// The cross-reference hubs of a connection-manager session: named by port from the start, connected only
/// when a request or an entitlement needs them first. @thread master, unless a line says otherwise
class XrefConnector {
public:
    enum class Phase {
        NotNeeded,    ///< nothing has needed them yet
        Creating,     ///< an attempt has begun, and not every hub has its client yet
        Coming,       ///< every hub has its client; they connect
        AllConnected, ///< they get their read handlers next
        SomeFailed,   ///< those are taken out next
        Failed, ///< the attempt is over; another is made after a pause, by the next request that needs them
        Done    ///< all have their read handlers
    };

    explicit XrefConnector(XrefSession& session);
    ~XrefConnector();
    XrefConnector(const XrefConnector&) = delete;
    XrefConnector& operator=(const XrefConnector&) = delete;

    // --- where it stands; @thread any ---
    [[nodiscard]] Phase phase() const { return m_phase; }
    /// The first need has been seen.
    [[nodiscard]] bool isNeeded() const { return phase() != Phase::NotNeeded; }
    [[nodiscard]] bool isDone() const { return phase() == Phase::Done; }
    /// The hubs come up: their absence is no loss of the session.
    [[nodiscard]] bool areHubsComing() const {
        const Phase now = phase();
        return now == Phase::Creating || now == Phase::Coming;
    }
    /// An attempt has begun and has yet to be ended.
    [[nodiscard]] bool isAttemptOpen() const;
    /// This one comes up with them.
    [[nodiscard]] bool isComing(const HubClient& client) const;

    // --- what there is to connect; @thread any ---
    void addPort(uint16_t port);
    void removePort(uint16_t port);
    /// Nothing has needed them yet, and there are some.
    [[nodiscard]] bool mayBeNeeded() const;
    /// The route of a source whose hub is not connected yet is entered once it is.
    void addGrantedSource(int source, uint16_t port);

    // --- attempts ---
    /// The first need: connects all hubs that are not connected yet, and waits until they are or have failed.
    void getRemainingPorts();
    /// Connects them for the sources that were granted meanwhile, unless something has needed them before.
    void connectForEntitlements();
    /// Hubs that failed are asked for again by the first request that needs them after a pause, and it waits
    /// for the outcome with those that come after it, up to `limit`; requests of other kinds don't. False:
    /// the request is answered without them.
    [[nodiscard]] bool waitsForHubs(std::unique_ptr<RequestInternal>& request, std::size_t limit);
    /// Goes on with an attempt beside the session's other work. True when it is over: the requests that have
    /// waited for it may go.
    [[nodiscard]] bool continueRetry();
    [[nodiscard]] std::deque<std::unique_ptr<RequestInternal>> takeWaiting();

    // --- what is seen of a hub ---
    /// It is ready. @thread first user
    static void noteConnected(HubClient& client);
    /// It failed: it is not dialled any more and will be taken out of the session.
    /// @thread hub, first user, master
    static void giveUp(HubClient& client);
    /// Counts the hubs that came up and those that failed; the last one decides. @thread first user
    void decideXrefHubs();

    /// Forgets all hubs; no other thread may know any.
    void reset();

private:
    [[nodiscard]] bool getQueryXRefs();
    [[nodiscard]] bool getHUBForQueryXRef(uint16_t queryXRefPort);
    [[nodiscard]] bool beginAttempt();
    [[nodiscard]] bool isAttemptOver();
    void endAttempt();
    void serveHubs();
    void removeFailedHubs();
    void enterGrantedRoutes();
    void noteFailure();
    [[nodiscard]] bool isRetryDue() const;
    [[nodiscard]] bool areFailedHubsLetGo() const;
    [[nodiscard]] std::vector<HubClient*> hubs() const;
    [[nodiscard]] HubClient* ofPort(uint16_t port) const;

    XrefSession& m_session;
    /// Written by the master thread; only from `Coming` on to the next two by the first user thread.
    std::atomic<Phase> m_phase{Phase::NotNeeded};

    mutable tp::Mutex m_queryXRefPortLst_mutex;
    std::set<uint16_t> m_queryXRefPortLst TP_GUARDED_BY(m_queryXRefPortLst_mutex);

    mutable tp::Mutex m_XRefHubLst_mutex{kLockXRefHubLst};
    /// Those that have been made, be they in the session or not.
    std::set<HubClient*> m_XRefHubLst TP_GUARDED_BY(m_XRefHubLst_mutex);

    mutable tp::Mutex m_addRouteWhenPortConnected_mutex;
    std::map<int, uint16_t> m_addRouteWhenPortConnected TP_GUARDED_BY(m_addRouteWhenPortConnected_mutex);

    double m_attemptTime = 0.0;  ///< when the last attempt began; monotonic, as the next
    double m_attemptLimit = 0.0; ///< the seconds after which its hubs must be connected or have failed
    double m_failureTime = 0.0;  ///< when the last attempt failed
    std::deque<std::unique_ptr<RequestInternal>> m_waiting; ///< requests that came while one is under way
};

} // namespace tivra_internal
