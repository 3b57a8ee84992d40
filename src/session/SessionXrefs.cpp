// What the session does for its cross-reference hubs, and when something needs them.
#include "session/SessionImpl.h"

#include <algorithm>

#include <tp/eprintf.h>

#include "config/HostConfigImpl.h"
#include "hub/HubClient.h"
#include "request/HubWatchlist.h"
#include "request/RequestInternal.h"

namespace tivra_internal {
namespace {

constexpr long kLeastTimeout = 5; // seconds

} // namespace

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
    m_xref.addPort(port);
}

/// The first request that only all hubs together can answer connects those that are missing.
void SessionImpl::connectXrefHubsFor(const RequestInternal& request) {
    if (!m_managers.m_isCMconnection || !m_xref.mayBeNeeded())
        return;
    const int source = request.getSrcid();
    bool isNeeded = false;
    if (source >= kFirstNewsSource) {
        const HubClient* const first = m_hubs.getFirstHub();
        isNeeded = first != nullptr && first->getHubMajorVersion() >= kFirstNewsHubVersion;
    }
    if (request.getCommand() == tivra::QUERYXREF &&
        (source == -1 || m_sources.routes().find(source) == nullptr))
        isNeeded = true;
    if (!isNeeded)
        return;
    eprintf(EPF_DBUG, "First QueryXref request - getQueryXRefs called");
    m_xref.getRemainingPorts();
}

bool SessionImpl::isLeavingItsHubs() const {
    return m_run.isLeavingHubs() || m_changeOver.isAskedFor();
}

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

std::optional<HubClient*> SessionImpl::createXrefHub(uint16_t port) {
    const std::string hostString = HostTable::hostInfoOf(m_managers.managerAddr(), port);
    eprintf(EPF_INFO, "getHUBForQuerXRef: hostString=%s\n", hostString.c_str());
    const HubClient* const first = m_hubs.getFirstHub();
    if (first == nullptr || first->getHostConfig() == nullptr)
        return std::nullopt;
    HostConfigImpl* host = m_hosts.find(hostString);
    if (host == nullptr) {
        eprintf(EPF_INFO, "getHUBForQuerXRef: Adding new hostConfig(%s)", hostString.c_str());
        host = &addHost(hostString, *first->getHostConfig());
    }
    if (m_hubs.contains(host->getIndex())) {
        eprintf(EPF_WARN, "getHUBForQuerXRef:HUB client alread createdy; shoud not happen.  hostString=%s\n",
                hostString.c_str());
        return std::nullopt;
    }
    return createHubClient(*host, HubRole::Xref);
}

void SessionImpl::bringBackXrefHub(HubClient& client) {
    m_reactors.placeAgain(&client, [this, &client] {
        if (!client.life().hasLeft() || m_run.isLeavingHubs())
            return false;
        client.startAnew();
        // What has been unsubscribed while the hub was away was not unsubscribed there.
        for (const int64_t tag : watchlist.unsubscribedTags())
            client.getWatchlist()->forget(tag);
        m_hubs.bringBack(&client);
        return true;
    });
}

void SessionImpl::serveXrefHubs(const std::vector<HubClient*>& hubs,
                                const std::function<void(HubClient&)>& mark) {
    m_newHubs.serveThese(
        hubs, [this](HubClient& client) { giveReadHandler(client, false); }, mark);
}

void SessionImpl::removeXrefHub(HubClient& client) {
    eprintf(EPF_WARN, "Removing the xrefHUB - %s", client.getHubAddr().c_str());
    HubEventReactor* const reactor = m_reactors.reactorOf(&client);
    // The hub's own thread, which may be dialling it just now, closes what is open.
    client.life().retire();
    m_reactors.forgetReactorOf(&client);
    m_hubs.retire(client.getIndex());
    forgetHub(client);
    takeBackRequestsOf(client, reactor);
}

void SessionImpl::enterGrantedRoute(int source, uint16_t port) {
    const std::string addr = m_managers.hubOfPort(port);
    if (addr.empty())
        eprintf(EPF_WARN,
                "Cannot find HubClient for port %d; unable to dynamically add entitlement for src %d",
                int{port}, source);
    else
        addNewEntitlement(source, HostTable::hostInfoOf(addr, port));
}

/// The place of a granted source behind a manager: a port, whose hub may not be connected yet.
std::string SessionImpl::hostOfGrantedPort(int src, uint16_t port) {
    const std::string addr = m_managers.hubOfPort(port);
    if (!addr.empty())
        return HostTable::hostInfoOf(addr, port);
    eprintf(EPF_INFO, "Need to initiate a connection to port %d", int{port});
    m_xref.addGrantedSource(src, port);
    wakeMaster();
    return std::string();
}

} // namespace tivra_internal
