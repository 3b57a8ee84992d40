#pragma once

#include <sys/time.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <tp/EventReactor.h>
#include <tp/Mutex.h>

#include "LockOrder.h"
#include "config/UserHub.h"
#include "dictionary/MetaTokenMap.h"
#include "hub/HubAddress.h"
#include "hub/HubClientOptions.h"
#include "hub/HubHeartbeat.h"
#include "hub/HubLife.h"
#include "hub/HubReader.h"
#include "hub/HubReaderPort.h"
#include "hub/HubSocket.h"
#include "hub/HubWatcher.h"
#include "hub/ManagerLookup.h"
#include "hub/ReactorRegistration.h"
#include "hub/ReadWaker.h"
#include "hub/Suspension.h"
#include "hub/handshake/Handshake.h"
#include "receive/QueueHub.h"
#include "receive/ReadHandlerHub.h"
#include "request/HubName.h"

namespace tivra_internal {

class HostConfigImpl;
class HubEventReactor;
class HubSession;
class HubWatchlist;
class Queue;
class QueueReadHandler;
class SessionRequests;
class UserInfoImpl;

/// One TCP connection to one hub, from the dial to ready and back: it owns the socket, the handshake, the
/// reader, the receive ring, the hub's dictionary and its watchlist, and lives on the thread of one
/// HubEventReactor.
///
/// @thread hub, unless a declaration says otherwise. Times handed in are the reactor's wall clock and serve
/// the log lines; differences of times are taken from the monotonic clock.
class HubClient final : public tp::EventBase,
                        public UserHub,
                        public QueueHub,
                        public ReadHandlerHub,
                        public HandshakePort,
                        public HubReaderPort,
                        public HubName {
public:
    HubClient(UserInfoImpl& user, HubSession& session, const HubClientOptions& options);
    ~HubClient() override;
    HubClient(const HubClient&) = delete;
    HubClient& operator=(const HubClient&) = delete;

    // --- registration with the reactor that serves this client ---
    /// @thread any; the session places the client after its construction.
    void attachReactor(HubEventReactor* reactor, int index) { m_registration.attach(reactor, index); }
    /// Null for a dummy and before the client has been placed. @thread any
    [[nodiscard]] HubEventReactor* getReactor() const { return m_registration.reactor(); }
    [[nodiscard]] int geteventReactorIndex() const { return m_registration.index(); }

    // --- connection ---
    /// How a dial stands.
    enum class Dial {
        Connected,
        UnderWay,      ///< the hub has not answered yet
        AwaitsManager, ///< a connection manager is asked for a hub at the next tick
        Failed         ///< for a reason that getConnectErrno() or getLnkapiErrno() gives
    };
    /// Starts or continues a non-blocking dial.
    [[nodiscard]] Dial connectHost(double curtime);
    /// Result 1: the login request is out; -1: it isn't.
    int login() { return m_handshake.login(); }
    /// False when the peer has closed.
    [[nodiscard]] bool isValidConnection() const { return m_socket.isValid(m_reader.holdsReads()); }
    [[nodiscard]] bool isInitTimedOut(double curtime) const;
    [[nodiscard]] bool isHBTimedOut(double curtime);
    [[nodiscard]] bool isPastRetryLimit() const { return m_socket.isPastRetryLimit(); }
    [[nodiscard]] long getRetryLimit() const { return m_socket.retryLimit(); }
    /// The dials are counted anew, since the start has been granted another round.
    void restartRetries() { m_socket.restartRetries(); }
    /// The hub was dialled before, and hasn't been ready since. The hub's thread.
    [[nodiscard]] bool isDialRepeated() const override { return m_socket.isDialRepeated(); }
    void closeConnection() override;
    /// Why the connection is about to be closed, unless that is the hub's doing.
    void noteCloseCause(const std::string& cause) { m_ending.cause = cause; }
    /// A dial may begin or go on now, at the supervision's turn or between two of them. False while a hub
    /// that has refused the login is to be left alone.
    [[nodiscard]] bool mayDial(bool isTurn) const {
        return m_dialsAtOnce || (m_handshake.mayDial() && m_socket.mayDial(isTurn));
    }
    /// The pause before the next dial ends. @thread any
    void dialNow();
    /// With pauses between dials: how long the present one lasts. Nothing while the hub isn't to be dialled.
    [[nodiscard]] std::optional<double> pauseBeforeDial() const;
    /// Closes, then takes the client out of use with a reason that the application may see.
    void suspendClient(const std::string& reason) override;

    /// Frames and writes a request text: 1 sent, -1 failed, -2 not writable within `timeout` (null: no
    /// limit).
    int sendRequest(const char* text, timeval* timeout) override;
    /// The hub has got part of a frame: the connection is of no use any more.
    [[nodiscard]] bool isOutOfStep() const { return m_socket.isOutOfStep(); }
    /// Closes a connection on which a frame has been cut short. True when it did.
    bool closeIfOutOfStep() override;

    void readableEvent(double curtime) override;
    void writableEvent(double curtime) override;

    // --- standing; @thread any ---
    [[nodiscard]] bool isReady() const override TP_EXCLUDES(m_ready_mutex);
    /// Frames of the connection before are still on their way to the application; the next one would discard
    /// them. The supervision is asked to look again once they have arrived.
    [[nodiscard]] bool isStillDelivering() TP_EXCLUDES(m_rqh_mutex);
    [[nodiscard]] bool connected() const { return m_socket.isConnected(); }
    [[nodiscard]] bool inProgress() const { return m_socket.isInProgress(); }
    [[nodiscard]] bool isLoggedIn() const { return m_handshake.isLoggedIn(); }
    [[nodiscard]] bool isSuspended() const override { return m_suspension.isSuspended(); }
    [[nodiscard]] std::string getSuspendReason() const { return m_suspension.reason(); }
    [[nodiscard]] bool isConnectionTimedOut() const { return m_socket.state() == HubSocket::State::TimedOut; }
    [[nodiscard]] int getFd() const override { return m_socket.fd(); }
    /// The system's code of the last failed dial, 0 when there was none.
    [[nodiscard]] int getConnectErrno() const { return m_socket.connectErrno(); }
    /// The same for people. @thread hub
    [[nodiscard]] std::string connectFault() const { return m_socket.connectFault(); }
    /// See HubSocket. @thread hub
    [[nodiscard]] const std::string& encryptionFault() const { return m_socket.encryptionFault(); }
    [[nodiscard]] std::size_t getIndex() const { return m_options.index; }
    [[nodiscard]] std::string getHubAddr() const override { return m_address.shown(); }
    [[nodiscard]] uint16_t getHubPort() const { return m_address.port(); }
    [[nodiscard]] std::string getHubIpAddr() const { return m_address.own(); }
    [[nodiscard]] int getHubMajorVersion() const { return m_handshake.hubVersion().major; }
    [[nodiscard]] bool isDummy() const override { return m_options.isDummy; }
    [[nodiscard]] bool getInitialHubDisconnected() const { return m_life.isLetGo(); }
    [[nodiscard]] bool isInitialHubDisconnected() const override { return getInitialHubDisconnected(); }
    /// The session has let this first hub go on purpose: its close is no loss.
    void setInitialHubDisconnected(bool gone) { m_life.setLetGo(gone); }

    // --- behind a connection manager; @thread any ---
    /// The next connect asks the manager for a hub.
    void setRequestHUBFromCM(bool wanted) { m_lookup.wantHub(wanted); }
    /// The manager's status of the last failed connect, 0 when that failed otherwise.
    [[nodiscard]] int getLnkapiErrno() const { return m_lookup.lnkapiErrno(); }
    void resetLnkapiErrno() { m_lookup.resetLnkapiErrno(); }
    /// A cross-reference hub, which is connected only when a request needs it first.
    void setQueryXRefHUB(bool isXref) { m_life.setXref(isXref); }
    [[nodiscard]] bool isQueryXRefHUB() const { return m_life.isXref(); }
    /// A cross-reference hub that has not come up yet: when it fails it is left out.
    [[nodiscard]] bool isComingXref() const { return m_life.isComing(); }
    /// What becomes of it in the session.
    [[nodiscard]] HubLife& life() { return m_life; }
    [[nodiscard]] const HubLife& life() const { return m_life; }
    /// Its limits and marks begin anew, after it was retired. @thread master; no other may know the client.
    void startAnew();
    [[nodiscard]] HostConfigImpl* getHostConfig() const { return m_options.host; }
    [[nodiscard]] bool isWatchlistInUse() const { return m_options.watchlistInUse; }

    // --- the first hub's wait for its siblings; @thread any ---
    [[nodiscard]] bool waitsForBoxPerms() const { return m_handshake.waitsForSiblings(); }
    /// The siblings are ready; the client goes on at its next tick, which comes soon.
    void requestContinueEntitlements();

    // --- readiness and the read handler ---
    /// Marks the client ready; true when it has no read handler yet. The session calls it under
    /// newQRHQueue_mutex.
    [[nodiscard]] bool markReady() TP_EXCLUDES(m_ready_mutex, m_rqh_mutex);
    /// @thread any
    [[nodiscard]] bool hasReadHandler() const TP_EXCLUDES(m_rqh_mutex);
    /// @thread master
    void setReadQueueHandler(std::unique_ptr<QueueReadHandler> handler) TP_EXCLUDES(m_rqh_mutex);
    /// Borrowed: it lives until it is replaced or the client is deleted. @thread any
    [[nodiscard]] QueueReadHandler* readQueueHandler() const TP_EXCLUDES(m_rqh_mutex);
    /// Hands the handler back to the caller, who keeps it until no reactor knows it any more. @thread any
    std::unique_ptr<QueueReadHandler> clearQRHPointer() TP_EXCLUDES(m_rqh_mutex);

    // --- periodic work ---
    /// Continues a wait that has ended, and continueHeldReads. True when there is something for the next
    /// tick.
    bool twentyFiveMsTick(double now);
    /// Checks how full the queue is, and goes on with what has waited for space in it.
    void continueHeldReads(double curtime);
    /// True when messages have come in since the last time.
    bool calcStats(double curtime);
    void calcQueueFullStats();
    void incrQueryCount();
    /// @thread user
    void decrQueryCount();

    // --- the parts it owns ---
    [[nodiscard]] Queue* getResponseQueue() const { return m_responseQueue.get(); }
    [[nodiscard]] MetaTokenMap& getDicMetaMap() override { return m_dicMetaMap; }
    [[nodiscard]] HubWatchlist* getWatchlist() const { return watchlist.get(); }
    /// What becomes of its requests.
    [[nodiscard]] SessionRequests& getRequests() const;

    // --- what its read handler and watchlist ask; @thread user ---
    [[nodiscard]] HubClient* client() override { return this; }
    void setHBSeen(bool seen) override { m_heartbeat.setSeen(seen); }
    /// @thread user
    void roomForReads() override;
    void queueIsDeep(int percent) override;
    [[nodiscard]] bool getHBSeen() const { return m_heartbeat.isSeen(); }
    [[nodiscard]] bool handleWatchlistResponse(int64_t tag, int64_t status) override;

    /// The initialisation time-out starts anew.
    void setInitHBTime() override { m_heartbeat.noteProgress(); }
    [[nodiscard]] double getInitHBTime() const { return m_heartbeat.progressTime(); }

    // --- subscriptions that a request may ask to renew ---
    int getStatusHeartbeat() { return m_handshake.subscribeHeartbeat(); }
    int getHubStatus() { return m_handshake.subscribeHubStatus(); }

private:
    [[nodiscard]] Dial settle(HubSocket::Progress progress);
    [[nodiscard]] bool moveTo(const std::string& address);
    void ask(unsigned what) const;
    void noteChanges(bool waited);
    void report(HubReport report);
    void report(HubStage stage);
    void reportFailedDial();
    void reportEnd(HubReport ending, bool wasReady, bool isUnheard);
    [[nodiscard]] bool isHeldUp() const;
    void reset();
    void forgetConnection();

    // What its handshake and its reader ask, beside what others ask too.
    [[nodiscard]] const UserHub& userHub() const override { return *this; }
    int sendLogin(const std::string& text) override;
    void noteLoginStatus(int status) override { m_ending.status = status; }
    void heartbeatSubscribed() override { m_heartbeat.restartCheck(); }
    void setJit(int threshold) override;
    void becomeReady() override;
    void leaveAfterReadFailure() override;
    void continueSoon() override;

    // Built with.
    UserInfoImpl& m_primaryUser;
    HubSession& m_session;
    const HubClientOptions m_options;

    // Connection.
    HubAddress m_address;
    HubSocket m_socket;
    ManagerLookup m_lookup;
    HubHeartbeat m_heartbeat;
    Suspension m_suspension;
    HubLife m_life;
    double m_last_reset_time = 0.0;
    HubStage m_stage = HubStage::Left; ///< as reported last
    HubReport m_ending;                ///< what is known of the end of the connection before it is closed
    std::atomic<bool> m_dialsAtOnce{false};

    // Readiness.
    mutable tp::Mutex m_ready_mutex{kLockHubReady};
    bool m_ready TP_GUARDED_BY(m_ready_mutex) = false;

    // Parts.
    MetaTokenMap m_dicMetaMap;
    Handshake m_handshake;
    ReadWaker m_readWaker{*this};
    ReactorRegistration m_registration{*this, m_readWaker};
    std::unique_ptr<Queue> m_responseQueue;
    HubReader m_reader;
    std::unique_ptr<HubWatchlist> watchlist;
    mutable tp::Mutex m_rqh_mutex{kLockReadHandlerPointer};
    std::unique_ptr<QueueReadHandler> m_readQueueHandler TP_GUARDED_BY(m_rqh_mutex);
};

} // namespace tivra_internal
