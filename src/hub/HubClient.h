#pragma once

#include <sys/time.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <tp/EventReactor.h>
#include <tp/Mutex.h>

#include "LockOrder.h"
#include "config/UserHub.h"
#include "dictionary/MetaTokenMap.h"
#include "dictionary/TokenRows.h"
#include "hub/ConversationState.h"
#include "hub/HubAddress.h"
#include "hub/HubClientCommands.h"
#include "hub/HubClientOptions.h"
#include "hub/HubHeartbeat.h"
#include "hub/HubSocket.h"
#include "hub/ManagerLookup.h"
#include "hub/ReadWaker.h"
#include "hub/RetryPace.h"
#include "hub/Suspension.h"
#include "kvnparse/bufref.h"
#include "receive/QueueHub.h"
#include "receive/ReadHandlerHub.h"
#include "request/HubName.h"

namespace KVNAPI {
class Message;
class Parser;
class StreamFramer;
class StreamParser;
} // namespace KVNAPI

namespace tivra_internal {

class HostConfigImpl;
class HubEventReactor;
class HubSession;
class HubWatchlist;
class Queue;
class QueueReadHandler;
class SessionRequests;
class UserInfoImpl;
struct MessageField;
enum class ConversationStep;

/// One TCP connection to one hub, from the dial to ready and back: it owns the socket, the receive ring, the
/// parsers, the hub's dictionary and its watchlist, and lives on the thread of one HubEventReactor.
///
/// @thread hub, unless a declaration says otherwise. Times handed in are the reactor's wall clock and serve
/// the log lines; differences of times are taken from the monotonic clock.
class HubClient final : public tp::EventBase,
                        public UserHub,
                        public QueueHub,
                        public ReadHandlerHub,
                        public HubName {
public:
    HubClient(UserInfoImpl& user, HubSession& session, const HubClientOptions& options);
    ~HubClient() override;
    HubClient(const HubClient&) = delete;
    HubClient& operator=(const HubClient&) = delete;

    // --- registration with the reactor that serves this client ---
    /// @thread any; the session places the client after its construction.
    void attachReactor(HubEventReactor* reactor, int index);
    /// Null for a dummy and before the client has been placed. @thread any
    [[nodiscard]] HubEventReactor* getReactor() const;
    [[nodiscard]] int geteventReactorIndex() const;

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
    int login();
    /// False when the peer has closed.
    [[nodiscard]] bool isValidConnection() const { return m_socket.isValid(m_readsHeld); }
    [[nodiscard]] bool isInitTimedOut(double curtime) const;
    [[nodiscard]] bool isHBTimedOut(double curtime);
    [[nodiscard]] bool isPastRetryLimit() const { return m_socket.isPastRetryLimit(); }
    [[nodiscard]] long getRetryLimit() const { return m_socket.retryLimit(); }
    /// The dials are counted anew, since the start has been granted another round.
    void restartRetries() { m_socket.restartRetries(); }
    /// The hub was dialled before, and hasn't been ready since. The hub's thread.
    [[nodiscard]] bool isDialRepeated() const { return m_socket.isDialRepeated(); }
    void closeConnection();
    /// False while a hub that has refused the login is to be left alone.
    [[nodiscard]] bool mayDial() const;
    /// Closes, then takes the client out of use with a reason that the application may see.
    void suspendClient(const std::string& reason);

    /// Frames and writes a request text: 1 sent, -1 failed, -2 not writable within `timeout` (null: no
    /// limit).
    int sendRequest(const char* text, timeval* timeout) override;
    /// The hub has got part of a frame: the connection is of no use any more.
    [[nodiscard]] bool isOutOfStep() const { return m_socket.isOutOfStep(); }
    /// Closes a connection on which a frame has been cut short. True when it did.
    bool closeIfOutOfStep();

    void readableEvent(double curtime) override;
    void writableEvent(double curtime) override { writeableEvent(curtime); }
    virtual void writeableEvent(double curtime);

    // --- standing; @thread any ---
    [[nodiscard]] bool isReady() const TP_EXCLUDES(m_ready_mutex);
    /// Frames of the connection before are still on their way to the application; the next one would discard
    /// them.
    [[nodiscard]] bool isStillDelivering() const TP_EXCLUDES(m_rqh_mutex);
    [[nodiscard]] bool connected() const { return m_socket.isConnected(); }
    [[nodiscard]] bool inProgress() const { return m_socket.isInProgress(); }
    [[nodiscard]] bool isLoggedIn() const { return m_logged_in.load(std::memory_order_relaxed); }
    [[nodiscard]] bool isSuspended() const { return m_suspension.isSuspended(); }
    [[nodiscard]] std::string getSuspendReason() const { return m_suspension.reason(); }
    [[nodiscard]] bool isConnectionTimedOut() const {
        return m_socket.state() == HubSocket::State::TimedOut;
    }
    [[nodiscard]] int getFd() const { return m_socket.fd(); }
    /// The system's code of the last failed dial, 0 when there was none.
    [[nodiscard]] int getConnectErrno() const { return m_socket.connectErrno(); }
    [[nodiscard]] size_t getIndex() const { return m_options.index; }
    [[nodiscard]] std::string getHubAddr() const override { return m_address.shown(); }
    [[nodiscard]] uint16_t getHubPort() const { return m_address.port(); }
    [[nodiscard]] std::string getHubIpAddr() const { return m_address.own(); }
    [[nodiscard]] int getHubMajorVersion() const { return m_hubMajorVersion.load(std::memory_order_relaxed); }
    [[nodiscard]] int getHubMinorVersion() const { return m_hubMinorVersion.load(std::memory_order_relaxed); }
    [[nodiscard]] bool isDummy() const override { return m_options.isDummy; }
    [[nodiscard]] bool getInitialHubDisconnected() const {
        return m_initialHubDisconnected.load(std::memory_order_relaxed);
    }
    [[nodiscard]] bool isInitialHubDisconnected() const override { return getInitialHubDisconnected(); }
    /// The session has let this first hub go on purpose: its close is no loss.
    void setInitialHubDisconnected(bool gone) { m_initialHubDisconnected.store(gone); }

    // --- behind a connection manager; @thread any ---
    /// The next connect asks the manager for a hub.
    void setRequestHUBFromCM(bool wanted) { m_lookup.wantHub(wanted); }
    /// The manager's status of the last failed connect, 0 when that failed otherwise.
    [[nodiscard]] int getLnkapiErrno() const { return m_lookup.lnkapiErrno(); }
    void resetLnkapiErrno() { m_lookup.resetLnkapiErrno(); }
    /// A cross-reference hub, which is connected only when a request needs it first.
    void setQueryXRefHUB(bool isXref) { m_queryXRefHUB.store(isXref); }
    [[nodiscard]] bool isQueryXRefHUB() const { return m_queryXRefHUB.load(); }
    /// A cross-reference hub that has not come up yet: when it fails it is left out.
    [[nodiscard]] bool isComingXref() const { return isQueryXRefHUB() && !m_xrefDone; }
    std::atomic<bool> m_xrefConnected{false};
    std::atomic<bool> m_xrefDone{false}; ///< it has its read handler
    /// It failed: it is not dialled any more and will be taken out of the session.
    std::atomic<bool> m_xrefRemove{false};
    /// Taken out of the session's tables; its own thread closes it and looks after it no more.
    std::atomic<bool> m_retired{false};
    /// Its limits and marks begin anew, after it was retired. @thread master; no other may know the client.
    void startAnew();
    [[nodiscard]] HostConfigImpl* getHostConfig() const { return m_options.host; }
    [[nodiscard]] bool isWatchlistInUse() const { return m_options.watchlistInUse; }
    [[nodiscard]] bool isAgg() const { return m_known.m_isAgg; }
    [[nodiscard]] bool isSingleInstanceHUB() const { return m_known.m_isSingleInstanceHUB; }

    // --- the first hub's wait for its siblings; @thread any ---
    [[nodiscard]] bool waitsForBoxPerms() const { return waitForAllHubsToGetBoxPerms.load(); }
    /// The siblings are ready; the client goes on at its next 25 ms tick.
    void requestContinueEntitlements() { m_continueEntitlements.store(true); }
    std::atomic<bool> waitForAllHubsToGetBoxPerms{false};

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
    /// Continues a wait that has ended, and continueHeldReads.
    void twentyFiveMsTick(double now);
    /// Checks how full the queue is, and goes on with what has waited for room in it.
    void continueHeldReads(double curtime);
    void calcStats(double curtime);
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
    void roomForReads() override { m_readWaker.wake(); }
    [[nodiscard]] bool getHBSeen() const { return m_heartbeat.isSeen(); }
    [[nodiscard]] bool handleWatchlistResponse(int64_t tag, int64_t status) override;

    /// The initialisation time-out starts anew.
    void setInitHBTime() { m_heartbeat.noteProgress(); }
    [[nodiscard]] double getInitHBTime() const { return m_heartbeat.progressTime(); }

    // --- subscriptions that a request may ask to renew ---
    int getStatusHeartbeat();
    int getHubStatus();

    void reset();

private:
    // HubClient.cpp
    [[nodiscard]] Dial settle(HubSocket::Progress progress);
    [[nodiscard]] long connectWait(double curtime) const;
    void registerSocket();
    void unregisterSocket();
    void forgetConnection();
    [[nodiscard]] std::string getDialledAddr() const { return m_address.dialled(); }

    // HubReading.cpp
    [[nodiscard]] bool prepareParsers();
    [[nodiscard]] bool prepareForFirstEvent();
    void readIntoQueue(double curtime);
    void leaveAfterReadFailure();
    void noteSignOfLife();
    void holdReads();
    void retryHeldReads(double curtime);
    void readCompressed();
    void pullCompressed(bool inputFull);
    void settleStream();
    void readFramed();
    void socketClosedByPeer();
    void process_kvn_buffer(KVNAPI::bufref frame);
    void handOverUnconsumed();
    void severe_error(const char* text);

    // HubConversation.cpp
    void process_message(KVNAPI::Message& msg);
    [[nodiscard]] bool dispatch(int tag, KVNAPI::Message& msg);
    [[nodiscard]] bool checkAggAnswer(KVNAPI::Message& msg);
    [[nodiscard]] bool checkBoxEntitlements(KVNAPI::Message& msg);
    [[nodiscard]] bool checkEntitlements(KVNAPI::Message& msg);
    [[nodiscard]] bool checkPorts(KVNAPI::Message& msg);
    void runDecisionChain(int tag);
    void takeStep(ConversationStep step, int tag);
    void becomeReady();
    void noteUntagged(const KVNAPI::Message& msg);
    int sendStartUpRequest(int tag, const char* format, ...) __attribute__((format(printf, 3, 4)));
    [[nodiscard]] bool isOutstanding(int tag) const { return (m_step.m_outstandingTags >> tag & 1U) != 0; }
    void noteAnswered(int tag) { m_step.m_outstandingTags &= ~(1U << tag); }
    [[nodiscard]] const char* retCodeText(int64_t code) const;
    int sendDummyRequest();

    // HubConversationLogin.cpp
    void process_login(KVNAPI::Message& msg);
    void loginRefused(const std::string& reason);
    void process_status(KVNAPI::Message& msg);
    void process_hubStatus(KVNAPI::Message& msg);
    void countRefusal(long& refusals);

    // HubConversationDictionary.cpp
    int getEnum();
    int getAdmin();
    int getDic();
    void process_enum(KVNAPI::Message& msg);
    [[nodiscard]] bool process_admin(KVNAPI::Message& msg);
    void addReturnCode(int64_t code, const KVNAPI::Message& msg);
    [[nodiscard]] bool noDicVersion();
    [[nodiscard]] bool takeDicVersion(const std::string& newVersion);
    void setHubVersion(const std::string& text);
    void process_dic(KVNAPI::Message& msg);
    void endDicDownload(const KVNAPI::Message& msg);
    void loadDic();

    // HubConversationConflation.cpp
    int setConflationInterval();
    int setConflationType();
    void process_conflation_interval();
    void process_conflation_type(KVNAPI::Message& msg);

    // HubConversationPorts.cpp
    int aggCheck();
    int getSplit();
    /// True when a request went out, false when no source is left to ask about.
    [[nodiscard]] bool getPort();
    void process_aggCheck(KVNAPI::Message& msg);
    void process_port(KVNAPI::Message& msg);
    void suspendForUnknownAddress(const std::string& response);
    void joinGroup();
    int getAllPorts();
    void process_allPorts(KVNAPI::Message& msg);
    void createHubsOfManager(const std::set<uint16_t>& ports);
    [[nodiscard]] std::string memberOf(int src, const std::string& host, uint16_t port) const;
    [[nodiscard]] bool assignToMember(int src, const std::string& host);
    void process_split(KVNAPI::Message& msg);
    void addSplitEntry(const KVNAPI::Message& msg, const MessageField& source, const MessageField& symbol);
    void processSplitSym(std::string_view sym, const std::set<int>& sources);

    // HubConversationEntitlements.cpp
    int getBoxEntitlements();
    int getEntitlements();
    void process_box_entitlements(KVNAPI::Message& msg);
    void process_entitlements(KVNAPI::Message& msg);
    void continueEntitlements();

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
    std::atomic<bool> m_logged_in{false};
    std::atomic<bool> m_initialHubDisconnected{false};
    std::atomic<bool> m_queryXRefHUB{false};
    bool m_readsHeld = false;    ///< the socket is out of the reactor: the queue refuses reads
    bool m_messagesLeft = false; ///< what has been read holds more than was taken at one go
    bool m_first_time = true;    ///< no event has been seen since the connect
    RetryPace m_loginPace;
    double m_last_reset_time = 0.0;

    // Registration with the reactor.
    mutable tp::Mutex m_huber_mutex{kLockHubClient}; ///< held around every registration with the reactor
    HubEventReactor* m_HUB_Event_Reactor TP_GUARDED_BY(m_huber_mutex) = nullptr;
    int m_eventReactorIndex TP_GUARDED_BY(m_huber_mutex) = -1;

    // Readiness.
    mutable tp::Mutex m_ready_mutex{kLockHubReady};
    bool m_ready TP_GUARDED_BY(m_ready_mutex) = false;

    // Conversation.
    ConversationState m_step;
    HubKnowledge m_known;
    std::atomic<bool> m_continueEntitlements{false};
    std::atomic<int> m_hubMajorVersion{0};
    std::atomic<int> m_hubMinorVersion{0};
    std::vector<std::string> m_otherHubs; ///< the other members of an n-way group, host and port

    // Parts.
    MetaTokenMap m_dicMetaMap;
    TokenRows tmpTokenMap; ///< rows of a dictionary version that is this hub's alone
    ReadWaker m_readWaker{*this};
    std::unique_ptr<Queue> m_responseQueue;
    std::unique_ptr<KVNAPI::StreamFramer> framer;
    std::unique_ptr<KVNAPI::Parser> kvnParser;
    std::unique_ptr<KVNAPI::StreamParser> zkvnParser;
    std::unique_ptr<HubWatchlist> watchlist;
    mutable tp::Mutex m_rqh_mutex{kLockReadHandlerPointer};
    std::unique_ptr<QueueReadHandler> m_readQueueHandler TP_GUARDED_BY(m_rqh_mutex);
};

} // namespace tivra_internal
