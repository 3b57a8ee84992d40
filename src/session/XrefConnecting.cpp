// The cross-reference hubs of a connection-manager session, connected at the first need.
#include "session/SessionImpl.h"

#include <algorithm>
#include <unistd.h>

#include <tp/Clock.h>
#include <tp/eprintf.h>

#include "config/HostConfigImpl.h"
#include "config/SessionConfigImpl.h"
#include "hub/HubClient.h"
#include "request/HubWatchlist.h"
#include "request/RequestInternal.h"

namespace tivra_internal {
namespace {

constexpr useconds_t kWaitMicroseconds = 1000;
constexpr long kLeastTimeout = 5; // seconds
constexpr double kSecondsBetweenAttempts = 30.0;

} // namespace

HubClient* XrefHubs::ofPort(uint16_t port) const {
    tp::MutexLock lock(m_XRefHubLst_mutex);
    const auto found = std::find_if(m_XRefHubLst.begin(), m_XRefHubLst.end(),
                                    [port](const HubClient* client) { return client->getHubPort() == port; });
    return found == m_XRefHubLst.end() ? nullptr : *found;
}

void XrefHubs::noteFailure() {
    m_retry = XrefRetry::Due;
    m_failureTime = tp::Clock::monotonic();
}

bool XrefHubs::isRetryDue() const {
    return m_retry == XrefRetry::Due && tp::Clock::monotonic() - m_failureTime >= kSecondsBetweenAttempts;
}

void XrefHubs::reset() {
    m_retry = XrefRetry::None;
    m_waiting.clear();
    m_initialXrefConnection = false;
    m_XrefHUBConnReq = false;
    m_allCreated = false;
    m_XRefHUBConnected = false;
    m_XRefHUBRemove = false;
    m_XRefHUBDone = false;
    m_needRemainingPorts = false;
    {
        tp::MutexLock lock(m_queryXRefPortLst_mutex);
        m_queryXRefPortLst.clear();
    }
    {
        tp::MutexLock lock(m_XRefHubLst_mutex);
        m_XRefHubLst.clear();
    }
    tp::MutexLock lock(m_addRouteWhenPortConnected_mutex);
    m_addRouteWhenPortConnected.clear();
}

/// @thread the newest first hub's
void SessionImpl::setXRefPort(uint16_t port) {
    // A hub that another first hub has led to is connected already and would answer twice. But what is only a
    // door will be dropped, and may be wanted again.
    const std::vector<HubClient*> doors = m_dropped.listed();
    const HubClient* const asking = m_firstHubs.newest();
    for (HubClient* client : m_hubs.copy())
        if (client != asking && client->getHubPort() == port &&
            std::find(doors.begin(), doors.end(), client) == doors.end())
            return;
    tp::MutexLock lock(m_xref.m_queryXRefPortLst_mutex);
    m_xref.m_queryXRefPortLst.insert(port);
}

void SessionImpl::removeXRefPort(uint16_t port) {
    tp::MutexLock lock(m_xref.m_queryXRefPortLst_mutex);
    m_xref.m_queryXRefPortLst.erase(port);
}

/// The first request that only all hubs together can answer connects those that are missing.
void SessionImpl::connectXrefHubsFor(const RequestInternal& request) {
    if (!m_managers.m_isCMconnection || m_xref.m_initialXrefConnection || !m_xref.hasPorts())
        return;
    const int source = request.getSrcid();
    const bool isXrefQuery = request.getCommand() == tivra::QUERYXREF;
    if (source >= kFirstNewsSource) {
        const HubClient* const first = m_hubs.getFirstHub();
        if (first != nullptr && first->getHubMajorVersion() >= kFirstNewsHubVersion)
            m_xref.m_initialXrefConnection = true;
    }
    if (!m_xref.m_initialXrefConnection && isXrefQuery && (source == -1 || m_routes.find(source) == nullptr))
        m_xref.m_initialXrefConnection = true;
    if (!m_xref.m_initialXrefConnection)
        return;
    eprintf(EPF_DBUG, "First QueryXref request - getQueryXRefs called");
    getRemainingPorts();
}

/// Begins an attempt to connect all of them; what has come up before stays.
bool SessionImpl::getQueryXRefs() {
    m_xref.m_attemptTime = tp::Clock::monotonic();
    m_xref.m_attemptLimit = xrefWaitLimit();
    m_xref.m_allCreated = false;
    m_xref.m_XRefHUBConnected = false;
    m_xref.m_XRefHUBRemove = false;
    m_xref.m_XrefHUBConnReq = true;
    std::vector<uint16_t> ports;
    {
        tp::MutexLock lock(m_xref.m_queryXRefPortLst_mutex);
        ports.assign(m_xref.m_queryXRefPortLst.begin(), m_xref.m_queryXRefPortLst.end());
    }
    const bool isDone =
        std::all_of(ports.begin(), ports.end(), [this](uint16_t port) { return getHUBForQueryXRef(port); });
    m_xref.m_allCreated = true;
    return isDone;
}

bool SessionImpl::getHUBForQueryXRef(uint16_t queryXRefPort) {
    if (HubClient* const known = m_xref.ofPort(queryXRefPort)) {
        bringBack(*known);
        return true;
    }
    const std::string hostString = HostTable::hostInfoOf(m_managers.managerAddr(), queryXRefPort);
    eprintf(EPF_INFO, "getHUBForQuerXRef: hostString=%s\n", hostString.c_str());
    const HubClient* const first = m_hubs.getFirstHub();
    if (first == nullptr || first->getHostConfig() == nullptr)
        return false;
    HostConfigImpl* host = m_hosts.find(hostString);
    if (host == nullptr) {
        eprintf(EPF_INFO, "getHUBForQuerXRef: Adding new hostConfig(%s)", hostString.c_str());
        host = &addHost(hostString, *first->getHostConfig());
    }
    if (m_hubs.contains(host->getIndex())) {
        eprintf(EPF_WARN, "getHUBForQuerXRef:HUB client alread createdy; shoud not happen.  hostString=%s\n",
                hostString.c_str());
        return false;
    }
    if (HubClient* const client = createHubClient(*host, HubRole::Xref)) {
        tp::MutexLock lock(m_xref.m_XRefHubLst_mutex);
        m_xref.m_XRefHubLst.insert(client);
    }
    return true;
}

/// A hub that failed in an earlier attempt and was retired comes back into the session's tables.
void SessionImpl::bringBack(HubClient& client) {
    m_reactors.placeAgain(&client, [this, &client] {
        if (!client.m_retired || shutdownInProgress)
            return false;
        client.startAnew();
        // What has been unsubscribed while the hub was away was not unsubscribed there.
        for (const int64_t tag : watchlist.unsubscribedTags())
            client.getWatchlist()->forget(tag);
        m_hubs.bringBack(&client);
        return true;
    });
}

/// Connects all hubs that are not connected yet, and waits until they are or have failed. @thread master
void SessionImpl::getRemainingPorts() {
    if (!getQueryXRefs()) {
        eprintf(EPF_WARN, "getQueryXRefs returned error; xref hub clients cannot be created ");
        m_xref.m_XRefHUBRemove = true;
        endXrefAttempt();
        return;
    }
    while (!isXrefAttemptOver()) {
        ::usleep(kWaitMicroseconds);
        tp::Clock::beat();
    }
    endXrefAttempt();
}

/// The thread of a hub that was retired lets go of it at its next look, for which it may have to wait for a
/// manager's answer.
bool SessionImpl::areFailedHubsLetGo() {
    const std::vector<HubClient*> hubs = m_xref.hubs();
    return std::none_of(hubs.begin(), hubs.end(), [this](const HubClient* client) {
        return client->m_retired && m_reactors.isServed(client);
    });
}

/// Hubs that failed are asked for again by the first request that needs them after a pause, and it waits for
/// the outcome with those that come behind it; requests of other kinds don't. False: the request is answered
/// without them.
bool SessionImpl::waitsForXrefHubs(std::unique_ptr<RequestInternal>& request) {
    if (m_xref.isRetryDue() && areFailedHubsLetGo()) {
        eprintf(EPF_INFO, "Asking again for the cross-reference HUBs that failed");
        m_xref.m_retry = XrefRetry::UnderWay;
        if (!getQueryXRefs()) {
            eprintf(EPF_WARN, "getQueryXRefs returned error; xref hub clients cannot be created ");
            m_xref.m_XRefHUBRemove = true;
            endXrefAttempt();
        }
    }
    const auto limit = static_cast<std::size_t>(settings().getMaxRequestQueueSize());
    if (m_xref.m_retry != XrefRetry::UnderWay || m_xref.m_waiting.size() >= limit)
        return false;
    m_xref.m_waiting.push_back(std::move(request));
    return true;
}

/// @thread master
void SessionImpl::continueXrefRetry() {
    if (m_xref.m_retry != XrefRetry::UnderWay || !isXrefAttemptOver())
        return;
    endXrefAttempt();
    releaseXrefRequests();
}

/// Requests that have waited for the hubs are the next ones that are routed.
void SessionImpl::releaseXrefRequests() {
    tp::MutexLock lock(m_request_mutex);
    while (!m_xref.m_waiting.empty()) {
        requestQueue.push_front(std::move(m_xref.m_waiting.back()));
        m_xref.m_waiting.pop_back();
    }
}

/// True when all hubs are connected or some have failed, or nobody would tell any more whether they have.
bool SessionImpl::isXrefAttemptOver() {
    if (!m_xref.isPhase())
        return true;
    const std::vector<HubClient*> hubs = m_xref.hubs();
    const double elapsed = tp::Clock::monotonic() - m_xref.m_attemptTime;
    if (!stopRequested && !shutdownInProgress && !failoverInProgress && !dicReloadInProgress &&
        !hubs.empty() && elapsed >= 0.0 && elapsed <= m_xref.m_attemptLimit)
        return false;
    for (HubClient* client : hubs)
        if (client->isComingXref() && !client->m_xrefConnected)
            client->m_xrefRemove = true;
    m_xref.m_XRefHUBRemove = true;
    return true;
}

/// Those that are up are served from now on, whatever has become of the others.
void SessionImpl::endXrefAttempt() {
    serveXrefHubs();
    if (m_xref.m_XRefHUBRemove) {
        eprintf(EPF_DBUG, "Remove the XRef hub");
        removeXRefhub();
        m_xref.noteFailure();
        return;
    }
    for (const HubClient* client : m_xref.hubs()) {
        if (client->m_xrefDone)
            continue;
        eprintf(EPF_WARN, "%s: xref HUB not done connecting", client->getHubAddr().c_str());
        m_xref.noteFailure();
        return;
    }
    m_xref.m_retry = XrefRetry::None;
    m_xref.m_XRefHUBDone = true;
    eprintf(EPF_DBUG, " All QuerXRef HUB connection done-success");
    if (m_xref.m_needRemainingPorts)
        enterGrantedRoutes();
}

/// The seconds after which every hub must have been connected or given up.
double SessionImpl::xrefWaitLimit() const {
    using tivra::HostConfig;
    const HubClient* const first = m_hubs.getFirstHub();
    if (first == nullptr || first->getHostConfig() == nullptr)
        return 0.0;
    const HostConfigImpl& host = *first->getHostConfig();
    const long connect = std::max(host.getUsableLong(HostConfig::CONNECTION_TIMEOUT_LONG), kLeastTimeout);
    const long read = std::max(host.getUsableLong(HostConfig::READ_TIMEOUT_LONG), kLeastTimeout);
    const long retries = host.getUsableLong(HostConfig::CONNECTION_RETRY_LIMIT_LONG) + 1;
    return static_cast<double>(connect + read) * static_cast<double>(retries);
}

/// Gives the new cross-reference hubs their read handlers at once; the other new hubs keep their order.
void SessionImpl::serveXrefHubs() {
    const std::vector<HubClient*> xrefHubs = m_xref.hubs();
    tp::MutexLock lock(newQRHQueue_mutex);
    std::deque<HubClient*> tempQRHQueue;
    for (HubClient* client : newQRHQueue) {
        if (std::find(xrefHubs.begin(), xrefHubs.end(), client) == xrefHubs.end()) {
            eprintf(EPF_DBUG, "Add hubclient(%s) that is not an xref hub to tempQRHQueue",
                    client->getHubAddr().c_str());
            tempQRHQueue.push_back(client);
            continue;
        }
        if (!client->hasReadHandler())
            giveReadHandler(*client, false);
    }
    newQRHQueue.swap(tempQRHQueue);
    for (HubClient* client : xrefHubs) {
        if (client->m_xrefDone || client->m_xrefRemove || !client->m_xrefConnected ||
            !client->hasReadHandler())
            continue;
        client->m_xrefDone = true;
        eprintf(EPF_DBUG, "Set m_xrefDone for this xref client %s to true", client->getHubAddr().c_str());
    }
    eprintf(EPF_DBUG, "Check all xref hubs done, newQRHQueue  size %zu", newQRHQueue.size());
}

/// Counts the cross-reference hubs that came up and those that failed; the last one decides. @thread first
/// user
void SessionImpl::decideXrefHubs() {
    if (!m_xref.isPhase() || !m_xref.m_allCreated)
        return;
    tp::MutexLock lock(m_xref.m_XRefHubLst_mutex);
    const std::size_t size = m_xref.m_XRefHubLst.size();
    std::size_t connected = 0;
    std::size_t removed = 0;
    for (const HubClient* client : m_xref.m_XRefHubLst) {
        if (client->m_xrefConnected || client->m_xrefDone)
            ++connected;
        else if (client->m_xrefRemove || client->m_retired)
            ++removed;
    }
    if (size == 0)
        return;
    if (connected == size) {
        m_xref.m_XRefHUBConnected = true;
        eprintf(EPF_INFO,
                "All xref hubs connected, m_XRefHUBConnected is set true %d (connectedCnt = xrefHubLstSize) ",
                static_cast<int>(connected));
    } else if (connected + removed == size) {
        m_xref.m_XRefHUBRemove = true;
        eprintf(EPF_INFO,
                "Some of the xref HUBs are not connected; connectedCnt =%d removeCnt = %d xrefHubLstSize=%d",
                static_cast<int>(connected), static_cast<int>(removed), static_cast<int>(size));
    }
}

/// Sources were granted whose hubs are not connected: connects them and enters the routes. @thread master
void SessionImpl::connectForEntitlements() {
    if (!m_xref.m_needRemainingPorts || !m_managers.m_isCMconnection || m_xref.m_initialXrefConnection ||
        !m_xref.hasPorts())
        return;
    m_xref.m_initialXrefConnection = true;
    eprintf(EPF_INFO, "Dynamic entitlement: need to connect to all remaining ports");
    getRemainingPorts();
    if (!m_xref.m_XRefHUBDone)
        eprintf(EPF_WARN,
                "Unable to connect to all remaining ports, so adding dynamic entitlements has failed");
}

/// The sources that were granted before their hubs were connected. @thread master
void SessionImpl::enterGrantedRoutes() {
    std::map<int, uint16_t> waiting;
    {
        tp::MutexLock lock(m_xref.m_addRouteWhenPortConnected_mutex);
        waiting = m_xref.m_addRouteWhenPortConnected;
    }
    for (const auto& [source, port] : waiting) {
        const std::string addr = m_managers.hubOfPort(port);
        if (addr.empty())
            eprintf(EPF_WARN,
                    "Cannot find HubClient for port %d; unable to dynamically add entitlement for src %d",
                    int{port}, source);
        else
            addNewEntitlement(source, HostTable::hostInfoOf(addr, port));
    }
}

/// The place of a granted source behind a manager: a port, whose hub may not be connected yet.
std::string SessionImpl::hostOfGrantedPort(int src, uint16_t port) {
    const std::string addr = m_managers.hubOfPort(port);
    if (!addr.empty())
        return HostTable::hostInfoOf(addr, port);
    eprintf(EPF_INFO, "Need to initiate a connection to port %d", int{port});
    m_xref.m_needRemainingPorts = true;
    tp::MutexLock lock(m_xref.m_addRouteWhenPortConnected_mutex);
    m_xref.m_addRouteWhenPortConnected[src] = port;
    return std::string();
}

} // namespace tivra_internal
