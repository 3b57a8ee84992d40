#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <event/SessionEvent.h>
#include <session/Session.h>
#include <tp/Mutex.h>
#include <tp/Process.h>
#include <tp/Thread.h>

#include "LockOrder.h"
#include "config/HostPair.h"
#include "config/HostTable.h"
#include "config/RetCodeTexts.h"
#include "dictionary/DictionaryCache.h"
#include "hub/ConnectionManagers.h"
#include "hub/HubSession.h"
#include "hub/HubWatcher.h"
#include "hub/RetryPace.h"
#include "receive/ReadHandlerSession.h"
#include "request/TagSource.h"
#include "request/Watchlist.h"
#include "session/DroppedHubs.h"
#include "session/HubTable.h"
#include "session/NewHubs.h"
#include "session/QueueDepthAlarm.h"
#include "session/RetCodeTable.h"
#include "session/SessionEventQueue.h"
#include "session/TagCounter.h"
#include "session/lifecycle/ChangeOver.h"
#include "session/lifecycle/FirstHubSession.h"
#include "session/lifecycle/FirstHubs.h"
#include "session/lifecycle/HostLists.h"
#include "session/lifecycle/PartialStart.h"
#include "session/lifecycle/RunState.h"
#include "session/lifecycle/StartSession.h"
#include "session/lifecycle/StartStop.h"
#include "session/lifecycle/StateMachine.h"
#include "session/lifecycle/StateSession.h"
#include "session/lifecycle/Supervisor.h"
#include "session/lifecycle/SupervisorSession.h"
#include "session/routing/LostRequests.h"
#include "session/routing/MergerSession.h"
#include "session/routing/PortDetails.h"
#include "session/routing/RequestQueue.h"
#include "session/routing/RequestRouter.h"
#include "session/routing/ResponseBook.h"
#include "session/routing/ResponseMerger.h"
#include "session/routing/RouterSession.h"
#include "session/routing/RoutingTarget.h"
#include "session/routing/SplitTables.h"
#include "session/sources/HubSourceStatus.h"
#include "session/sources/SourceRegistry.h"
#include "session/sources/SourceSession.h"
#include "session/threads/HubThreadWork.h"
#include "session/threads/MasterPause.h"
#include "session/threads/ReactorPool.h"
#include "session/threads/ReactorPoolOwner.h"
#include "session/threads/UserThreadWork.h"
#include "session/xref/XrefConnector.h"
#include "session/xref/XrefSession.h"

namespace tivra {
class ConnectionConfig;
class SessionConfig;
class SessionEventHandler;
class StatisticsEventHandler;
class UserInfo;
} // namespace tivra

namespace tivra_internal {

class AllowedHubs;
class HubClient;
class HubEventReactor;
class RequestImpl;
class RequestInternal;
class SessionConfigImpl;
class UserEventReactor;
class UserInfoImpl;

/// The engine behind the public Session: the one object that all threads of a session share. It owns the
/// hubs, the reactors with their threads, the queues between them and the tables by which requests find a hub
/// and answers find their request. Each concern has its table with a mutex of its own, and a source file of
/// its own.
class SessionImpl final : public HubSession,
                          public ReadHandlerSession,
                          public TagSource,
                          public ReactorPoolOwner,
                          public RouterSession,
                          public SourceSession,
                          public MergerSession,
                          public XrefSession,
                          public FirstHubSession,
                          public StartSession,
                          public StateSession,
                          public SupervisorSession,
                          public HubThreadWork,
                          public UserThreadWork,
                          public RetCodeTexts,
                          public tp::OfOneProcess {
public:
    SessionImpl(tivra::UserInfo& user, tivra::SessionEventHandler& handler, tivra::Session& publicSession,
                bool valid);
    ~SessionImpl() override;
    SessionImpl(const SessionImpl&) = delete;
    SessionImpl& operator=(const SessionImpl&) = delete;

    /// The word for the application's binding language in login requests; "C++" unless `initialize` names
    /// another.
    static void setLanguage(const std::string& word);

    // --- the public session; @thread application ---
    [[nodiscard]] bool start(std::string& failReason) { return m_startStop.start(failReason); }
    bool stop() {
        m_startStop.stop();
        return true;
    }
    [[nodiscard]] tivra::SessionConfig& getSessionConfig();
    [[nodiscard]] tivra::ConnectionConfig& getConnectionConfig();
    [[nodiscard]] tivra::UserInfo& getUserInfo() { return userInfo; }
    void registerMessageEventHandler(tivra::MessageEventHandler* handler);
    void registerStatisticsEventHandler(tivra::StatisticsEventHandler* handler, int interval);
    /// Has streams take the messages in place of a handler, and ends each question whose hub is lost. Before
    /// the start; borrowed.
    void setStreams(MessageStreams& streams) { m_streams = &streams; }
    /// Has someone hear of the hubs, and dials that fail be repeated after pauses. Before the start;
    /// borrowed.
    void setHubWatcher(HubWatcher& watcher, const RetryPauses& pauses) {
        m_hubWatcher = &watcher;
        m_pauses = pauses;
    }
    /// Has a start go on without hubs that fail, once that many are ready; 0: it needs all. Before the start.
    void setLeastHubs(int least) { m_partialStart.require(least); }
    /// Dials all hubs that aren't connected. @thread any
    void dialNow();
    /// The tag of the request, or 0 when it was refused. @thread any
    [[nodiscard]] int64_t send(RequestImpl& request);
    [[nodiscard]] tivra::Session::States getState() const override { return m_check.state(); }

    // --- what hub connections ask; see HubSession ---
    [[nodiscard]] bool isCMconnection() const override { return m_managers.m_isCMconnection; }
    [[nodiscard]] bool isStopping() const override { return m_run.isLeavingHubs(); }
    [[nodiscard]] bool isInitiallyEstablished() const override { return m_check.isInitiallyEstablished(); }
    [[nodiscard]] bool getisStarted() const override { return m_run.isStarted(); }
    [[nodiscard]] int getQueueDepthThreshold() const override { return m_queueDepthThreshold; }
    [[nodiscard]] std::string getLanguage() const override;
    void claimFirstHubClient(HubClient* client) override { m_firstHubs.claim(client); }
    [[nodiscard]] bool isFirstHubClient(const HubClient* client) const override {
        return m_firstHubs.isFirst(client);
    }
    [[nodiscard]] bool isNewestFirstHub(const HubClient* client) const override {
        return m_firstHubs.newest() == client || isLateFirstHub(client);
    }
    [[nodiscard]] bool isLateFirstHub(const HubClient* client) const override {
        return m_partialStart.isAside(client) && m_firstHubs.contains(client);
    }
    [[nodiscard]] ConnectionManagers& getConnectionManagers() override { return m_managers; }
    void disableFailover() override { m_changeOver.enableFailover(false); }
    [[nodiscard]] int updateCMPortPairLst() override {
        return m_managers.updateCMPortPairLst(m_hostLists.primary(), m_hostLists.backup());
    }
    void renameHost(const std::string& hostInfo, const std::string& newHostInfo) override {
        m_hosts.rename(hostInfo, newHostInfo);
    }
    [[nodiscard]] bool moveHost(HostConfigImpl& host, const std::string& addr) override {
        return m_hosts.move(host, addr);
    }
    void setXRefPort(uint16_t port) override;
    void removeXRefPort(uint16_t port) override { m_xref.removePort(port); }
    [[nodiscard]] bool areXrefHubsComing() const override { return m_xref.areHubsComing(); }
    void dropFirstHubLater(HubClient* client) override;
    void reportHub(const HubReport& report) override;
    void noteHubDown(HubClient* client) override;
    void noteQueueDepth(int percent) override;
    void countHubLoss(HubClient* client) override;
    void enterReadyHub(HubClient* client) override;
    [[nodiscard]] bool haveEnum() const override { return m_haveEnum; }
    void setHaveEnum() override { m_haveEnum = true; }
    [[nodiscard]] const char* getRetCodeDesc(int code) const override { return m_retCodes.get(code); }
    void setRetCodeDesc(int code, const char* text, long length) override;
    [[nodiscard]] DictionaryCache& getDictionaryCache() override { return m_dictionaries; }
    void startDicReload() override { m_changeOver.startDicReload(); }
    void hubHasChanged() override;
    void insertSessionEvent(tivra::SessionEvent::Types type, const std::string& dicVersion, int sourceID,
                            int queueDepth) override;
    void addBoxSource(int src, HubClient* client) override { m_sources.addBoxSource(src, client); }
    bool addUserSource(int src, HubClient* entHub) override { return m_sources.addUserSource(src, entHub); }
    void assignSource(int src, HubClient* client) override { m_sources.assignSource(src, client); }
    [[nodiscard]] PortCursor nextSourceWithoutHub(int after, HubClient* client) override;
    [[nodiscard]] HubLookup assignSourceToHost(int src, const std::string& hostInfo) override;
    bool createHubForHost(const std::string& hostInfo, HostConfigImpl& like, const char* operation) override;
    void addSplitExchange(int src, HubClient* client) override;
    void addSplitSymbol(int src, const std::string& pattern, HubClient* client) override;
    [[nodiscard]] Watchlist& getWatchlist() override { return watchlist; }
    [[nodiscard]] RequestSender& getRequestSender() override { return m_router; }
    void noteReplay(const RequestInternal& request, HubClient* client) override {
        m_responses.expectAgain(request, client);
    }
    void noteWritten(int64_t tag, HubClient* client) override { m_responses.noteWritten(tag, client); }
    void loseRequest(int64_t tag, HubClient* client) override { m_merger.loseRequest(tag, client); }
    void endOutstanding(HubClient* client) override;
    void takeBackRequest(std::unique_ptr<RequestInternal> request, HubClient* client) override;
    [[nodiscard]] const RetCodeTexts& getRetCodeTexts() const override { return *this; }

    // --- what read handlers ask; see ReadHandlerSession ---
    [[nodiscard]] tivra::Session& getSession() override { return session; }
    [[nodiscard]] tivra::MessageEventHandler* getMsgEventHandler() const override {
        return m_msgEventHandler;
    }
    [[nodiscard]] bool isQueryCommand(int64_t tag, HubClient* hub, tivra::Commands& command) override {
        return m_merger.isQueryCommand(tag, hub, command);
    }
    [[nodiscard]] std::shared_ptr<const std::vector<AltIndexInfo>>
    getAlternateIndexForSubscription(int64_t tag) override {
        return m_responses.altIndexOf(tag);
    }
    [[nodiscard]] bool suppressResponse(int64_t tag, KVNAPI::Message& msg, KVNAPI::Token* statusTok,
                                        KVNAPI::TVPair* rcPair, MetaTokenMap* dictionary,
                                        HubClient* from) override {
        return m_merger.suppressResponse(tag, msg, statusTok, rcPair, *dictionary, from);
    }
    [[nodiscard]] bool takeLostRequest(HubClient* hub, bool queueIsEmpty, LostRequest& lost) override {
        return m_merger.takeLostRequest(hub, queueIsEmpty, lost);
    }
    [[nodiscard]] bool isHBSubscribed() const override {
        return m_router.ownSubscriptions().isHBSubscribed();
    }
    [[nodiscard]] bool isTagAwaitingXrefHubs(int64_t tag) override {
        return m_merger.isAwaitingXrefHubs(tag);
    }
    void addJitCount(int delta) override;
    [[nodiscard]] bool isFirstHub(const HubClient* hub) const override;
    void addNewEntitlement(int src, HubClient* hub) override { m_sources.addNewEntitlement(src, hub); }
    void deleteEntitlement(int src, HubClient* hub) override { m_sources.deleteEntitlement(src, hub); }
    void beginAddNewEntitlement(int src) override { m_sources.beginAddNewEntitlement(src); }
    [[nodiscard]] std::unique_ptr<MessageStream>
    openStream(const MetaTokenMap& dictionary, const std::string& hub, const Queue& queue) override {
        return m_streams != nullptr ? m_streams->open(dictionary, hub, queue) : nullptr;
    }

    // --- TagSource ---
    [[nodiscard]] int64_t getNextTag() override { return m_tags.next(); }

    // --- what the threads ask; see ReactorPoolOwner ---
    [[nodiscard]] ThreadLimits threadLimits() override;
    void startHubEventReactor(HubEventReactor& reactor) override;
    void startUserEventReactor(UserEventReactor& reactor, bool isFirst) override;
    void noteThreadRefused(const char* text, bool isOnlyOne) override;

    // --- what the routing of requests asks; see RouterSession ---
    [[nodiscard]] bool watchlistInUse() override;
    [[nodiscard]] bool isShuttingDown() const override { return m_run.isLeavingHubs(); }
    [[nodiscard]] std::string userName() const override;
    [[nodiscard]] HubClient* firstHub() const override { return m_hubs.getFirstHub(); }
    [[nodiscard]] std::vector<HubClient*> hubsForAll() const override;
    [[nodiscard]] HubEventReactor* reactorOf(HubClient* hub) override { return m_reactors.reactorOf(hub); }
    [[nodiscard]] XrefStanding xrefStanding() const override;
    void connectXrefHubsFor(const RequestInternal& request) override;
    [[nodiscard]] bool waitsForXrefHubs(std::unique_ptr<RequestInternal>& request) override;
    void noteSentWithoutXrefHubs(int64_t tag) override { m_merger.noteSentWithoutXrefHubs(tag); }
    void enterPortDetailsRequest(std::unique_ptr<RequestInternal>& request) override;
    void storeConflationInterval(long interval) override;
    void sendPortQuestion(std::unique_ptr<RequestInternal>& request, int src) override;

    // --- what the merging of responses needs; see MergerSession ---
    [[nodiscard]] bool repeatsQuestions() const override { return m_streams == nullptr; }
    [[nodiscard]] bool isEndingLostRequests() override;
    void finishAddNewEntitlement(int src, KVNAPI::Message& msg, MetaTokenMap& dictionary) override;

    // --- what the sources need; see SourceSession ---
    void askForHubOf(int source) override;

    // --- what the cross-reference hubs need; see XrefSession ---
    [[nodiscard]] bool isLeavingItsHubs() const override;
    [[nodiscard]] double xrefWaitLimit() const override;
    [[nodiscard]] std::optional<HubClient*> createXrefHub(uint16_t port) override;
    void bringBackXrefHub(HubClient& client) override;
    [[nodiscard]] bool isHubServed(const HubClient& client) override { return m_reactors.isServed(&client); }
    void serveXrefHubs(const std::vector<HubClient*>& hubs,
                       const std::function<void(HubClient&)>& mark) override;
    void removeXrefHub(HubClient& client) override;
    void enterGrantedRoute(int source, uint16_t port) override;

    // --- what start and stop need; see StartSession ---
    void readConfiguration(bool isRunning) override;
    [[nodiscard]] const char* reasonAgainstStart() override;
    void runMaster() override;
    void wakeMaster() override { m_masterPause.end(); }

    // --- what the first hubs need; see FirstHubSession ---
    [[nodiscard]] HostConfigImpl* configuredHost(const HostPair& pair) override;
    [[nodiscard]] bool hasHubAt(const HostConfigImpl& host) override;
    [[nodiscard]] bool createFirstHub(HostConfigImpl& host) override;

    // --- what the session check needs; see StateSession ---
    [[nodiscard]] std::vector<HubClient*> hubs() const override { return m_hubs.copy(); }
    void abortStart(const std::string& reason) override { m_startStop.abortStart(reason); }
    void markDroppedHubs() override;

    // --- what the supervision of the hubs needs, beside abortStart; see SupervisorSession ---
    void stopServing(HubClient& client) override { m_reactors.removeHub(&client); }
    [[nodiscard]] bool startWithout(HubClient& client) override;

    // --- what the threads do beside serving their loops; see HubThreadWork and UserThreadWork ---
    void check_hub_clients(double now, HubEventReactor& reactor, bool isTurn) override;
    [[nodiscard]] std::optional<double> pauseBeforeDial(HubEventReactor& reactor) override;
    bool calc_hub_stats(double curtime, HubEventReactor& reactor) override;
    [[nodiscard]] bool calc_hub_queue_full_stats(double now, HubEventReactor& reactor) override;
    bool calc_user_stats(double curtime, UserEventReactor& reactor) override;
    [[nodiscard]] Lost endLostRequests(UserEventReactor& reactor) override;
    bool check_session_events() override;
    void check_user_events() override;
    void deliverLastEvents() override;
    void check_statistics_events(double curtime) override;
    [[nodiscard]] bool check_queueDepth_events() override;

private:
    // WorkerThreads.cpp
    void startWorkerThreads(bool startBackup);
    void createFirstClient(bool startBackup);
    void createDummyClient();
    [[nodiscard]] bool areThreadsMissing() const;
    void retryWorkerThreads();
    enum class HubRole { Plain, First, Xref };
    HubClient* createHubClient(HostConfigImpl& host, HubRole role);
    HubClient* insertHubClient(HostConfigImpl& host, HubRole role);
    [[nodiscard]] HostConfigImpl& addHost(const std::string& hostInfo, const HostConfigImpl& like);
    void giveReadHandler(HubClient& client, bool isFirst);

    // SessionMaster.cpp
    void changeOver();
    void serveNewHub();
    [[nodiscard]] double pauseOfMaster();
    /// The session check is made soon.
    void askForCheck() { m_reactors.userLoops().askFirst(kCheckSession); }

    // HubRemoval.cpp
    void dropOneFirstHub(const HubEventReactor& reactor);
    void disconnectInitilaHUB(HubClient& client);
    void forgetRoutes(HubClient& client);
    void forgetHub(HubClient& client);
    void takeBackRequestsOf(HubClient& client, HubEventReactor* reactor);

    // SessionXrefs.cpp
    [[nodiscard]] std::string hostOfGrantedPort(int src, uint16_t port);

    // SessionTeardown.cpp
    void shutdown();
    void reset();
    void cleanUpManagers();

    // SessionRequests.cpp
    [[nodiscard]] std::size_t requestLimit();
    [[nodiscard]] bool writeLocalMessage(const std::string& text);

    // Entitlements.cpp
    void addNewEntitlement(int src, const std::string& hostInfo);

    [[nodiscard]] SessionConfigImpl& settings();

    // What it is built with.
    tivra::UserInfo& userInfo;
    UserInfoImpl& m_user;
    tivra::SessionEventHandler* const sessionHandler;
    tivra::Session& session;
    const bool isValid;
    std::atomic<tivra::MessageEventHandler*> m_msgEventHandler{nullptr};
    std::atomic<tivra::StatisticsEventHandler*> statsHandler{nullptr};
    MessageStreams* m_streams = nullptr; ///< set before the start, or null
    HubWatcher* m_hubWatcher = nullptr;  ///< the same
    std::optional<RetryPauses> m_pauses;
    std::shared_ptr<const AllowedHubs> m_allowedHubs; ///< made before the threads are

    // Configuration.
    HostTable m_hosts;
    tp::Mutex m_config_mutex; ///< guards the two pointers, which are set once
    HandlePtr<tivra::SessionConfig> sessionConfig TP_GUARDED_BY(m_config_mutex);
    HandlePtr<tivra::ConnectionConfig> connectionConfig TP_GUARDED_BY(m_config_mutex);
    HostLists m_hostLists;
    std::atomic<int> m_queueDepthThreshold{70};

    // Start and stop.
    RunState m_run;
    StartStop m_startStop{*this, m_run};
    PartialStart m_partialStart;
    MasterPause m_masterPause;
    ChangeOver m_changeOver{m_run, [this] { wakeMaster(); }};
    SessionEventQueue m_events;
    ConnectionManagers m_managers;

    // Hubs and threads.
    HubTable m_hubs;
    FirstHubs m_firstHubs{*this, m_hostLists, m_changeOver, m_managers};
    NewHubs m_newHubs;
    DroppedHubs m_dropped;
    XrefConnector m_xref{*this};
    SourceRegistry m_sources;
    StateMachine m_check{*this,
                         {m_run, m_startStop.latch(), m_partialStart, m_firstHubs, m_newHubs, m_xref,
                          m_managers, m_sources, m_events}};
    Supervisor m_supervisor{*this, {m_run, m_changeOver, m_managers, m_xref, m_sources.hubStatus(), m_user}};
    ReactorPool m_reactors{*this};
    std::atomic<bool> m_threadsMissing{false}; ///< the system has refused threads in a change-over
    double m_threadAttemptTime = 0.0;          ///< when it was last asked; monotonic, the master thread's own
    std::unique_ptr<HubClient>
        nonHubClient; ///< the pseudo hub of the library's own messages; master and its users

    // What hubs have told.
    RetCodeTable m_retCodes;
    DictionaryCache m_dictionaries;
    std::atomic<bool> m_haveEnum{false};
    SplitTables m_split;

    // Requests.
    TagCounter m_tags;
    Watchlist watchlist;
    ResponseBook m_responses;
    LostRequests m_lost{[this] { askForCheck(); }};
    ResponseMerger m_merger{*this, {m_responses, m_lost, watchlist}};
    RequestQueue m_queue{watchlist, m_responses, *this, [this] { wakeMaster(); }};
    RequestRouter m_router{*this, {m_sources.routes(), m_split, watchlist, m_responses, m_lost, m_queue}};
    PortDetails m_portDetails{m_sources.entitled(), m_split,
                              [this](const std::string& text) { return writeLocalMessage(text); }};

    // Statistics; the second is the first user thread's own.
    std::atomic<double> statsInterval{30.0};
    double lastStatsTime = 0.0;
    QueueDepthAlarm m_queueDepthAlarm{m_events};
};

} // namespace tivra_internal
