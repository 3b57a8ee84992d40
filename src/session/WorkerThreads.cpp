// Which thread serves which hub and which queue, and the threads themselves.
#include "session/SessionImpl.h"

#include <algorithm>
#include <cstdio>
#include <system_error>

#include <tp/Clock.h>
#include <tp/eprintf.h>

#include "config/ConnectionConfigImpl.h"
#include "config/HostConfigImpl.h"
#include "config/HostTable.h"
#include "config/SessionConfigImpl.h"
#include "config/UserInfoImpl.h"
#include "hub/HubClient.h"
#include "hub/HubEventReactor.h"
#include "receive/Queue.h"
#include "receive/QueueReadHandler.h"
#include "receive/UserEventReactor.h"
#include "request/RequestInternal.h"
#include "session/SessionTimers.h"

namespace tivra_internal {
namespace {

constexpr long kDummyQueueMegabytes = 1;
constexpr std::size_t kMaxLabel = 49; ///< of host and port
constexpr double kSecondsBetweenThreadAttempts = 1.0;

/// A registered timer for as long as the reactor's thread runs.
template<typename Reactor, typename Timer>
class TimerRegistration {
public:
    TimerRegistration(Reactor& reactor, Timer& timer) : m_reactor(reactor), m_timer(timer) {
        m_reactor.regTimer(&m_timer, 0.0);
    }
    ~TimerRegistration() { m_reactor.unRegTimer(&m_timer); }
    TimerRegistration(const TimerRegistration&) = delete;
    TimerRegistration& operator=(const TimerRegistration&) = delete;

private:
    Reactor& m_reactor;
    Timer& m_timer;
};

} // namespace

void SessionImpl::startWorkerThreads(bool startBackup) {
    m_threadsMissing = false;
    m_firstHubs.clear();
    // A connection manager hands out another hub by itself, so there is no side to change to.
    if (!backupIP2PortLst.empty() && !m_managers.m_isCMconnection)
        failoverEnabled = true;
    createFirstClient(startBackup);
    if (shutdownInProgress)
        return;
    createDummyClient();
    m_threadsMissing = areThreadsMissing();
    m_threadAttemptTime = tp::Clock::monotonic();
}

/// A hub that no thread serves, or no thread for the session's own messages and checks.
bool SessionImpl::areThreadsMissing() const {
    const std::vector<HubClient*> clients = m_hubs.copy();
    return std::any_of(clients.begin(), clients.end(),
                       [](const HubClient* client) { return client->getReactor() == nullptr; }) ||
           nonHubClient->readQueueHandler()->getUserEventReactor() == nullptr;
}

/// What the system has refused in a change-over it may give later: the session has no other way back. A start
/// has been given up by then.
void SessionImpl::retryWorkerThreads() {
    const double now = tp::Clock::monotonic();
    if (!isStarted || now - m_threadAttemptTime < kSecondsBetweenThreadAttempts)
        return;
    m_threadAttemptTime = now;
    for (HubClient* client : m_hubs.copy()) {
        tp::MutexLock placing(m_reactors.m_registerHub_mutex);
        if (client->getReactor() == nullptr)
            registerHub(client);
    }
    QueueReadHandler* const handler = nonHubClient->readQueueHandler();
    if (handler->getUserEventReactor() == nullptr)
        registerQueueHandler(handler, true, *nonHubClient);
    m_threadsMissing = areThreadsMissing();
    if (!m_threadsMissing)
        eprintf(EPF_INFO, "The threads that were refused could be created");
}

/// Without a single thread of its kind a start is given up, and a session that has been established tries
/// again, which is worth one line.
void SessionImpl::noteThreadRefused(const char* text, bool isOnlyOne) {
    eprintf(m_threadsMissing ? EPF_DBUG : EPF_CRIT, "%s", text);
    if (isOnlyOne)
        abortStart(text);
}

void SessionImpl::createFirstClient(bool startBackup) {
    const std::vector<HostPair>& hosts = startBackup ? backupIP2PortLst : primaryIP2PortLst;
    HostConfigImpl* host = nullptr;
    if (!hosts.empty())
        host = configuredHost(hosts.front());
    if (host != nullptr && !m_hubs.contains(host->getIndex())) {
        createHubClient(*host, HubRole::First);
        return;
    }
    char text[200];
    std::snprintf(text, sizeof text, "No hosts have been configured as %s; startup cannot proceed",
                  startBackup ? "backup (BACKUP_BOOL=true)" : "primary (BACKUP_BOOL=false)");
    eprintf(EPF_CRIT, "%s", text);
    if (!isStarted)
        abortStart(text);
}

void SessionImpl::createDummyClient() {
    HubClientOptions options;
    options.queueSize = kDummyQueueMegabytes;
    options.watchlistInUse = settings().isWatchlistOn();
    options.isDummy = true;
    nonHubClient = std::make_unique<HubClient>(m_user, *this, options);
    giveReadHandler(*nonHubClient, true);
}

/// The client gets the handler that decodes its queue, on a user thread.
void SessionImpl::giveReadHandler(HubClient& client, bool isFirst) {
    auto handler =
        std::make_unique<QueueReadHandler>(client.getResponseQueue(), *this, client.getHostConfig(), nullptr,
                                           client, settings().isWatchlistOn());
    QueueReadHandler* const registered = handler.get();
    client.setReadQueueHandler(std::move(handler));
    registerQueueHandler(registered, isFirst, client);
}

HubClient* SessionImpl::createHubClient(HostConfigImpl& host, HubRole role) {
    tp::MutexLock placing(m_reactors.m_registerHub_mutex);
    if (shutdownInProgress)
        return nullptr;
    HubClient* const client = insertHubClient(host, role);
    if (client == nullptr)
        return nullptr;
    if (role == HubRole::First && !m_firstHubs.add(client, primaryIP2PortLst.size()))
        eprintf(EPF_WARN, " addTofirstHubClientLst - failed add to firstHubClientLst");
    return registerHub(client) ? client : nullptr;
}

HubClient* SessionImpl::insertHubClient(HostConfigImpl& host, HubRole role) {
    using tivra::HostConfig;
    const std::string addr = host.getAddr();
    const std::string label = HostTable::hostInfoOf(addr, host.getPort()).substr(0, kMaxLabel);

    return m_hubs.insert(host.getIndex(), label, [&] {
        HubClientOptions options;
        options.label = label;
        options.address = addr;
        options.port = host.getPort();
        options.index = host.getIndex();
        options.host = &host;
        options.connectionTimeout = host.getUsableLong(HostConfig::CONNECTION_TIMEOUT_LONG);
        options.connectionRetryLimit = host.getUsableLong(HostConfig::CONNECTION_RETRY_LIMIT_LONG);
        options.readTimeout = host.getUsableLong(HostConfig::READ_TIMEOUT_LONG);
        options.blockingConnectionLimit = host.getUsableLong(HostConfig::BLOCKING_CONNECTION_TIME_LIMIT_LONG);
        options.queueSize = host.getUsableLong(HostConfig::QUEUE_SIZE_LONG);
        options.compression = host.getBoolean(HostConfig::COMPRESSION_BOOL, true);
        options.watchlistInUse = settings().isWatchlistOn();
        auto client = std::make_unique<HubClient>(m_user, *this, options);
        client->setQueryXRefHUB(role == HubRole::Xref);
        return client;
    });
}

/// Places the client on a hub thread, round-robin in the order of creation. False when there is no thread for
/// it.
bool SessionImpl::registerHub(HubClient* client) {
    SessionConfigImpl& config = settings();
    ReactorChoice choice = chooseReactor(m_reactors.hubLastUsedIndex, m_reactors.hubNextAvailableIndex,
                                         config.isMultithreaded(), config.getMaxHubThreads());
    if (choice.create && !createHubReactor(choice.index, client)) {
        if (m_reactors.hubNextAvailableIndex == 0)
            return false;
        choice = {0, false};
    }
    if (!choice.create)
        m_reactors.placeHub(client, choice.index);
    m_reactors.hubLastUsedIndex = choice.index;
    return true;
}

/// A further hub thread, with the client as its first; false when the system refuses one. See
/// noteThreadRefused.
bool SessionImpl::createHubReactor(int index, HubClient* client) {
    eprintf(EPF_DBUG, "Creating a new HUB thread for HUB %s", client->getHubAddr().c_str());
    auto reactor = std::make_unique<HubEventReactor>(index, settings().getMaxRequestQueueSize());
    HubEventReactor* const created = reactor.get();
    {
        tp::MutexLock lock(m_reactors.m_hubER_mutex);
        m_reactors.hubEventReactorMap[index] = std::move(reactor);
    }
    // Placed before the thread runs: its first supervision dials at once instead of a second later.
    m_reactors.placeHub(client, index);
    try {
        tp::Thread thread("tivra-hub" + std::to_string(index),
                          [this, created] { startHubEventReactor(*created); });
        tp::MutexLock lock(m_reactors.m_threadVector_mutex);
        m_reactors.thread_vector.push_back(std::move(thread));
    } catch (const std::system_error& error) {
        char text[200];
        std::snprintf(text, sizeof text,
                      "Unable to create a new HUB thread (%s); Current number of HUB threads = %d",
                      error.what(), m_reactors.hubNextAvailableIndex);
        m_reactors.removeHubReactor(index, client);
        noteThreadRefused(text, m_reactors.hubNextAvailableIndex == 0);
        return false;
    }
    ++m_reactors.hubNextAvailableIndex;
    return true;
}

void SessionImpl::registerQueueHandler(QueueReadHandler* handler, bool isFirst, HubClient& client) {
    SessionConfigImpl& config = settings();
    tp::MutexLock lock(m_reactors.m_reqQ_mutex);
    ReactorChoice choice = chooseReactor(m_reactors.userLastUsedIndex, m_reactors.userNextAvailableIndex,
                                         config.isMultithreaded(), config.getMaxUserThreads());
    UserEventReactor* reactor = nullptr;
    if (choice.create)
        reactor = createUserReactor(choice.index, handler, isFirst);
    if (reactor == nullptr) {
        if (m_reactors.userNextAvailableIndex == 0)
            return;
        if (choice.create)
            choice.index = 0;
        reactor = m_reactors.userEventReactorMap[choice.index].get();
    }
    Queue* const queue = client.getResponseQueue();
    queue->setQueueHandler(handler);
    handler->setUserEventReactor(reactor);
    reactor->regQueue(handler, queue);
    reactor->watchReads(handler);
    reactor->regActivity(handler);
    m_reactors.eventReactorQueueHandlerList[choice.index].push_back(handler);
    m_reactors.portUserERIndexMap[client.getHubPort()] = choice.index;
    eprintf(EPF_DBUG, "registered QueueHandler for %s", client.getHubAddr().c_str());
    m_reactors.userLastUsedIndex = choice.index;
}

/// A further user thread; null when the system refuses one. See noteThreadRefused.
UserEventReactor* SessionImpl::createUserReactor(int index, QueueReadHandler* handler, bool isFirst) {
    eprintf(EPF_DBUG, "Creating a new User thread for QueueReadHandler %p",
            static_cast<const void*>(handler));
    auto reactor = std::make_unique<UserEventReactor>(index);
    UserEventReactor* const created = reactor.get();
    m_reactors.userEventReactorMap[index] = std::move(reactor);
    try {
        tp::Thread thread("tivra-user" + std::to_string(index),
                          [this, created, isFirst] { startUserEventReactor(*created, isFirst); });
        tp::MutexLock lock(m_reactors.m_threadVector_mutex);
        m_reactors.thread_vector.push_back(std::move(thread));
    } catch (const std::system_error& error) {
        char text[200];
        std::snprintf(text, sizeof text,
                      "Unable to create a new user thread (%s); Current number of user threads = %d",
                      error.what(), m_reactors.userNextAvailableIndex);
        m_reactors.userEventReactorMap.erase(index);
        noteThreadRefused(text, m_reactors.userNextAvailableIndex == 0);
        return nullptr;
    }
    ++m_reactors.userNextAvailableIndex;
    return created;
}

void SessionImpl::startHubEventReactor(HubEventReactor& reactor) {
    HUB_One_Second_Events oneSecond(*this, reactor);
    HUB_Hundred_MilliSecond_Events hundredMs(*this, reactor);
    HUB_Fifty_MilliSecond_Events fiftyMs(*this, reactor);
    HUB_Twenty_Five_MilliSecond_Events twentyFiveMs(*this, reactor);
    const TimerRegistration oneSecondTimer(reactor, oneSecond);
    const TimerRegistration hundredMsTimer(reactor, hundredMs);
    const TimerRegistration fiftyMsTimer(reactor, fiftyMs);
    const TimerRegistration twentyFiveMsTimer(reactor, twentyFiveMs);
    eprintf(EPF_INFO, "Starting HUB EventReactor");
    reactor.begin();
    eprintf(EPF_INFO, "Ending HUB EventReactor");
}

void SessionImpl::startUserEventReactor(UserEventReactor& reactor, bool isFirst) {
    User_Hundred_MilliSecond_Events hundredMs(*this, reactor);
    const TimerRegistration hundredMsTimer(reactor, hundredMs);
    eprintf(EPF_INFO, "Starting User EventReactor");
    if (isFirst) {
        User_One_Second_Events oneSecond(*this);
        First_User_Hundred_MilliSecond_Events check(*this);
        First_User_Twenty_Five_MilliSecond_Events depth(*this);
        const TimerRegistration oneSecondTimer(reactor, oneSecond);
        const TimerRegistration checkTimer(reactor, check);
        const TimerRegistration depthTimer(reactor, depth);
        reactor.begin();
        deliverLastEvents();
    } else {
        reactor.begin();
    }
    eprintf(EPF_INFO, "Ending User EventReactor");
}

bool SessionImpl::createHubForHost(const std::string& hostInfo, HostConfigImpl& like, const char* operation) {
    HostConfigImpl* host = m_hosts.find(hostInfo);
    if (host == nullptr) {
        eprintf(EPF_INFO, "HubClient::%s: Adding new hostConfig(%s)", operation, hostInfo.c_str());
        host = &addHost(hostInfo, like);
    }
    if (m_hubs.contains(host->getIndex()))
        return false;
    createHubClient(*host, HubRole::Plain);
    return true;
}

/// A host that the library has learnt of itself, with the parameters of another.
HostConfigImpl& SessionImpl::addHost(const std::string& hostInfo, const HostConfigImpl& like) {
    tivra::ConnectionConfig& connection = getConnectionConfig();
    HostConfigImpl& host =
        HandleAccess::impl(HandleAccess::impl(connection).getHostConfig(hostInfo, &connection, false));
    host.copyParameters(like);
    host.setIsExternal(false);
    return host;
}

SessionImpl::HubLookup SessionImpl::assignSourceToHost(int src, const std::string& hostInfo) {
    HostConfigImpl* const host = m_hosts.find(hostInfo);
    if (host == nullptr)
        return HubLookup::NoHostConfig;
    HubClient* const client = m_hubs.find(host->getIndex());
    if (client == nullptr)
        return HubLookup::NoClient;
    m_routes.assign(src, client);
    return HubLookup::Found;
}

} // namespace tivra_internal
