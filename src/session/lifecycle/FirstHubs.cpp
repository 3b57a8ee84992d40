#include "session/lifecycle/FirstHubs.h"

#include <algorithm>
#include <cstddef>

#include <tp/eprintf.h>

#include "config/HostTable.h"
#include "hub/ConnectionManagers.h"
#include "session/lifecycle/ChangeOver.h"
#include "session/lifecycle/FirstHubSession.h"
#include "session/lifecycle/HostLists.h"
#include "session/lifecycle/SessionCheckDecision.h"

namespace tivra_internal {

FirstHubs::FirstHubs(FirstHubSession& session, const HostLists& hosts, const ChangeOver& side,
                     ConnectionManagers& managers)
    : m_session(session), m_hosts(hosts), m_side(side), m_managers(managers) {}

void FirstHubs::claim(HubClient* client) {
    HubClient* none = nullptr;
    firstHubClient.compare_exchange_strong(none, client);
}

void FirstHubs::disclaim(HubClient* client) {
    firstHubClient.compare_exchange_strong(client, nullptr);
}

bool FirstHubs::contains(const HubClient* client) const {
    tp::MutexLock lock(firstHubClientLst_mutex);
    return std::find(firstHubClientLst.begin(), firstHubClientLst.end(), client) != firstHubClientLst.end();
}

HubClient* FirstHubs::newest() const {
    tp::MutexLock lock(firstHubClientLst_mutex);
    const int index = m_initIPindex;
    if (index < 0 || static_cast<std::size_t>(index) >= firstHubClientLst.size())
        return nullptr;
    return firstHubClientLst[static_cast<std::size_t>(index)];
}

bool FirstHubs::add(HubClient* client) {
    tp::MutexLock lock(firstHubClientLst_mutex);
    const int index = ++m_initIPindex;
    if (index < 0 || static_cast<std::size_t>(index) > m_hosts.primary().size())
        return false;
    firstHubClientLst.push_back(client);
    return true;
}

int FirstHubs::index() const {
    tp::MutexLock lock(firstHubClientLst_mutex);
    return m_initIPindex;
}

void FirstHubs::stepToNext(const HubCounts& counts) {
    const int newest = index();
    const std::size_t hosts = m_hosts.primary().size();
    eprintf(EPF_DBUG,
            "check_session_events: m_initIPindex=%d; primaryIP2PortLst.size()=%zu; ready=%d; notReady=%d; "
            "pending=%u",
            newest, hosts, counts.ready, counts.notReady, static_cast<unsigned>(counts.pending));
    if (newest >= static_cast<int>(hosts) - 1) {
        endList();
        return;
    }
    m_createNextfirstHub = true;
    if (!m_managers.m_isCMconnection)
        m_managers.m_enableCMRetry = false;
    eprintf(EPF_DBUG,
            "check_session_events: m_createNextfirstHub set true:  primaryIP2PortLst.size()=%zu, "
            "primaryIP2PortLst.size()-1=%zu",
            hosts, hosts - 1);
}

bool FirstHubs::createNext() {
    eprintf(EPF_DBUG, "createNextfirstHub(ENTRY): m_createNextfirstHub set false");
    m_createNextfirstHub = false;
    const int next = index() + 1;
    eprintf(EPF_INFO, " createNextfirstHub, index= %d", next);
    const std::vector<HostPair>& hosts = m_hosts.side(m_side.isOnBackup());
    if (static_cast<std::size_t>(next) < hosts.size())
        return createAt(hosts[static_cast<std::size_t>(next)]);
    // The two lists may differ in length; the one in use is done.
    endList();
    return true;
}

bool FirstHubs::createAt(const HostPair& pair) {
    const std::string hostInfo = HostTable::hostInfoOf(pair.addr, pair.port);
    const bool hasManager = m_managers.m_isCMconnection;
    if (hasManager && !m_managers.hubOfPort(static_cast<uint16_t>(pair.port)).empty()) {
        eprintf(
            EPF_WARN,
            " createNextfirstHub - hub already created for the port %d (input port should be of different "
            "hub type)",
            static_cast<int>(pair.port));
        return false;
    }
    HostConfigImpl* const host = m_session.configuredHost(pair);
    if (host == nullptr) {
        eprintf(EPF_WARN, " createNextfirstHub -hub alredy created before, hostInfoString= %s",
                hostInfo.c_str());
        return false;
    }
    if (m_session.hasHubAt(*host)) {
        if (hasManager) {
            // Another first hub has led to it; asking for it again and again would lead nowhere.
            endList();
            return true;
        }
        eprintf(EPF_WARN,
                " createNextfirstHub -hub alredy created before for directHUBconnection(Primary/Backup ips "
                "same for "
                "different types), hostInfoString= %s",
                hostInfo.c_str());
        return false;
    }
    // When the session can take no further hub it is established with those it has.
    if (!m_session.createFirstHub(*host))
        endList();
    return true;
}

void FirstHubs::clear() {
    firstHubClient = nullptr;
    tp::MutexLock lock(firstHubClientLst_mutex);
    firstHubClientLst.clear();
}

void FirstHubs::reset() {
    clear();
    m_allFirstHubschecked = false;
    m_createNextfirstHub = false;
    tp::MutexLock lock(firstHubClientLst_mutex);
    m_initIPindex = -1;
}

} // namespace tivra_internal
