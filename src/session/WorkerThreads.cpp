// The hubs and the threads of a session: how they come to be, and what the threads do.
#include "session/SessionImpl.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <limits>

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
#include "session/threads/FirstUserThread.h"
#include "session/threads/HubThread.h"

namespace tivra_internal {
namespace {

constexpr long kDummyQueueMegabytes = 1;
constexpr std::size_t kMaxLabel = 49; ///< of host and port
constexpr double kSecondsBetweenThreadAttempts = 1.0;

constexpr std::size_t kEventsPerCheck = 500;

TlsSettings tlsSettingsOf(const HostConfigImpl& host) {
    using tivra::HostConfig;
    TlsSettings settings;
    settings.isOn = host.getBoolean(HostConfig::TLS_BOOL, false);
    settings.isRequired = host.getBoolean(HostConfig::REQUIRE_TLS_BOOL, false);
    settings.caFile = host.getString(HostConfig::TLS_CA_FILE_STRING);
    settings.crlFile = host.getString(HostConfig::TLS_CRL_FILE_STRING);
    settings.serverName = host.getString(HostConfig::TLS_SERVER_NAME_STRING);
    settings.pinnedKeys = host.getString(HostConfig::TLS_PINNED_KEY_STRING);
    settings.certificateFile = host.getString(HostConfig::TLS_CERTIFICATE_FILE_STRING);
    settings.keyFile = host.getString(HostConfig::TLS_KEY_FILE_STRING);
    settings.minVersion = host.getString(HostConfig::TLS_MIN_VERSION_STRING);
    return settings;
}

} // namespace

void SessionImpl::startWorkerThreads(bool startBackup) {
    m_threadsMissing = false;
    m_firstHubs.clear();
    // A connection manager hands out another hub by itself, so there is no side to change to.
    if (!m_hostLists.backup().empty() && !m_managers.m_isCMconnection)
        m_changeOver.enableFailover(true);
    createFirstClient(startBackup);
    if (m_run.isLeavingHubs())
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
    if (!m_run.isStarted() || now - m_threadAttemptTime < kSecondsBetweenThreadAttempts)
        return;
    m_threadAttemptTime = now;
    for (HubClient* client : m_hubs.copy())
        m_reactors.placeUnserved(client);
    QueueReadHandler* const handler = nonHubClient->readQueueHandler();
    if (handler->getUserEventReactor() == nullptr)
        m_reactors.registerQueueHandler(handler, true, *nonHubClient);
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
    const std::vector<HostPair>& hosts = m_hostLists.side(startBackup);
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
    if (!m_run.isStarted())
        abortStart(text);
}

/// A manager may have put the address of a hub in the place of the configured one, which a backup host keeps
/// over a restart: then it is known by its text.
HostConfigImpl* SessionImpl::configuredHost(const HostPair& pair) {
    if (HostConfigImpl* const host = m_hosts.findByName(pair.addr, pair.port))
        return host;
    if (HostConfigImpl* const host = m_hosts.findByAddress(pair.addr, pair.port))
        return host;
    HostConfigImpl* const host = m_hosts.find(HostTable::hostInfoOf(pair.addr, pair.port));
    if (host != nullptr && !m_hubs.contains(host->getIndex()))
        host->setAddr(pair.addr);
    return host;
}

bool SessionImpl::hasHubAt(const HostConfigImpl& host) {
    return m_hubs.contains(host.getIndex());
}

bool SessionImpl::createFirstHub(HostConfigImpl& host) {
    return createHubClient(host, HubRole::First) != nullptr;
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
    handler->setLazyValues(settings().isDecodingLazily());
    QueueReadHandler* const registered = handler.get();
    client.setReadQueueHandler(std::move(handler));
    m_reactors.registerQueueHandler(registered, isFirst, client);
}

HubClient* SessionImpl::createHubClient(HostConfigImpl& host, HubRole role) {
    return m_reactors.placeNew([this, &host, role]() -> HubClient* {
        if (m_run.isLeavingHubs())
            return nullptr;
        HubClient* const client = insertHubClient(host, role);
        if (client != nullptr && role == HubRole::First && !m_firstHubs.add(client))
            eprintf(EPF_WARN, " addTofirstHubClientLst - failed add to firstHubClientLst");
        return client;
    });
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
        options.addressesOfName = host.getAddresses();
        options.host = &host;
        options.connectionTimeout = host.getUsableLong(HostConfig::CONNECTION_TIMEOUT_LONG);
        options.connectionRetryLimit = host.getUsableLong(HostConfig::CONNECTION_RETRY_LIMIT_LONG);
        options.readTimeout = host.getUsableLong(HostConfig::READ_TIMEOUT_LONG);
        options.dialNotBefore = m_changeOver.dialNotBefore();
        options.pauses = m_pauses;
        options.queueSize = host.getUsableLong(HostConfig::QUEUE_SIZE_LONG);
        options.compression = host.getBoolean(HostConfig::COMPRESSION_BOOL, true);
        options.watchlistInUse = settings().isWatchlistOn();
        options.inlineDelivery = settings().isDeliveringInline();
        // No gap would tell a feed's subscriptions of what is dropped for want of room.
        options.holdReads = settings().isHoldingReads() && (options.compression || m_streams != nullptr);
        options.stampArrivals = !options.compression && settings().isStampingArrivals();
        options.tls = tlsSettingsOf(host);
        options.stopAfterRefusal = host.getBoolean(HostConfig::STOP_AFTER_REFUSAL_BOOL, false);
        options.allowedHubs = m_allowedHubs;
        options.onlyAllowedHubs = host.getBoolean(HostConfig::ONLY_ALLOWED_HUBS_BOOL, false);
        auto client = std::make_unique<HubClient>(m_user, *this, options);
        client->setQueryXRefHUB(role == HubRole::Xref);
        return client;
    });
}

void SessionImpl::check_hub_clients(double now, HubEventReactor& reactor, bool isTurn) {
    dropOneFirstHub(reactor);
    m_supervisor.check(now, m_reactors.hubsOf(reactor.getIndex()), isTurn);
    // A hub that has been given up, by whom ever, is looked at by the check alone.
    if (!m_check.isInitiallyEstablished() || m_xref.areHubsComing())
        askForCheck();
}

/// A hub of which nothing is to be hoped counts for the start no more. Without enough others that one fails.
bool SessionImpl::startWithout(HubClient& client) {
    if (!m_partialStart.isOn() || m_check.isInitiallyEstablished() || m_managers.m_isCMconnection)
        return false;
    m_partialStart.setAside(client);
    if (!m_haveEnum)
        m_firstHubs.disclaim(&client);
    askForCheck();
    if (m_run.isStarted() || !m_firstHubs.areAllMade())
        return true;
    const std::vector<HubClient*> clients = m_hubs.copy();
    const auto hopeful = std::count_if(clients.begin(), clients.end(), [](const HubClient* hub) {
        return !hub->isSuspended() && !hub->isPastRetryLimit();
    });
    return m_partialStart.isEnough(static_cast<int>(hopeful));
}

std::optional<double> SessionImpl::pauseBeforeDial(HubEventReactor& reactor) {
    std::optional<double> shortest;
    if (!m_pauses)
        return shortest;
    for (const HubClient* client : m_reactors.hubsOf(reactor.getIndex()))
        if (const std::optional<double> pause = client->pauseBeforeDial())
            shortest = std::min(*pause, shortest.value_or(*pause));
    return shortest;
}

void SessionImpl::check_user_events() {
    if (m_user.eventQueueEmpty())
        return;
    m_user.handleEvents();
    // The end of a start waits until the application has seen why.
    if (!m_run.isStarted())
        m_reactors.askHubs(HubEventReactor::kSupervise);
}

bool SessionImpl::check_session_events() {
    m_lost.beginCheck();
    // Source events are the master's.
    if (m_check.check() || getState() != tivra::Session::TIVRA_SESSION_ESTABLISHED)
        wakeMaster();
    if (m_firstHubs.isNextDue() && !m_run.isGivenUp())
        askForCheck();
    const bool isDelivered = m_events.deliver(*sessionHandler, kEventsPerCheck);
    if (isDelivered) {
        m_lost.endCheck();
        if (!m_lost.isEmpty())
            m_reactors.userLoops().askAll(kEndLostRequests);
    }
    return !isDelivered || getState() != tivra::Session::TIVRA_SESSION_ESTABLISHED || m_xref.isAttemptOpen();
}

UserThreadWork::Lost SessionImpl::endLostRequests(UserEventReactor& reactor) {
    if (m_lost.isEmpty() || m_run.isLeavingHubs())
        return Lost::NoMore;
    bool isMore = false;
    for (QueueReadHandler* handler : m_reactors.handlersOf(reactor.getIndex()))
        isMore |= handler->endLostRequests();
    if (isMore)
        return Lost::MoreNow;
    return m_lost.isEmpty() ? Lost::NoMore : Lost::MoreLater;
}

/// The first user thread ends: what has been raised still reaches the application.
void SessionImpl::deliverLastEvents() {
    if (m_run.isLeavingHubs())
        m_events.deliver(*sessionHandler, std::numeric_limits<std::size_t>::max());
    else
        check_session_events();
}

ThreadLimits SessionImpl::threadLimits() {
    SessionConfigImpl& config = settings();
    return {config.isMultithreaded(), config.getMaxHubThreads(), config.getMaxUserThreads(),
            config.getMaxRequestQueueSize()};
}

void SessionImpl::startHubEventReactor(HubEventReactor& reactor) {
    HubThread(reactor, *this).run();
}

void SessionImpl::startUserEventReactor(UserEventReactor& reactor, bool isFirst) {
    if (isFirst)
        FirstUserThread(reactor, *this).run();
    else
        UserThread(reactor, *this).run();
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
    m_sources.assignSource(src, client);
    return HubLookup::Found;
}

} // namespace tivra_internal
