// Stepping through the configured hosts: the next first hub is made when all that came before is ready.
#include "session/SessionImpl.h"

#include <cstddef>

#include <tp/eprintf.h>

#include "config/HostConfigImpl.h"
#include "hub/HubClient.h"
#include "request/RequestInternal.h"

namespace tivra_internal {

/// The host of a configured pair. A manager may have put the address of a hub in its place, which a backup
/// host keeps over a restart: then it is known by its text.
HostConfigImpl* SessionImpl::configuredHost(const HostPair& pair) {
    if (HostConfigImpl* const host = m_hosts.findByAddress(pair.addr, pair.port))
        return host;
    HostConfigImpl* const host = m_hosts.find(HostTable::hostInfoOf(pair.addr, pair.port));
    if (host != nullptr && !m_hubs.contains(host->getIndex()))
        host->setAddr(pair.addr);
    return host;
}

int SessionImpl::createNextfirstHub() {
    eprintf(EPF_DBUG, "createNextfirstHub(ENTRY): m_createNextfirstHub set false");
    m_firstHubs.m_createNextfirstHub = false;
    const auto index = static_cast<std::size_t>(m_firstHubs.m_initIPindex + 1);
    eprintf(EPF_INFO, " createNextfirstHub, index= %d", static_cast<int>(index));
    const std::vector<HostPair>& hosts = activeHosts();
    if (index >= hosts.size()) {
        // The two lists may differ in length; the one in use is done.
        m_firstHubs.m_allFirstHubschecked = true;
        return 0;
    }
    const HostPair& pair = hosts[index];
    const std::string hostInfo = HostTable::hostInfoOf(pair.addr, pair.port);
    const bool hasManager = m_managers.m_isCMconnection;
    if (hasManager && !m_managers.hubOfPort(static_cast<uint16_t>(pair.port)).empty()) {
        eprintf(
            EPF_WARN,
            " createNextfirstHub - hub already created for the port %d (input port should be of different "
            "hub type)",
            static_cast<int>(pair.port));
        return -1;
    }
    HostConfigImpl* const host = configuredHost(pair);
    if (host == nullptr) {
        eprintf(EPF_WARN, " createNextfirstHub -hub alredy created before, hostInfoString= %s",
                hostInfo.c_str());
        return -1;
    }
    if (m_hubs.contains(host->getIndex())) {
        if (hasManager) {
            // Another first hub has led to it; asking for it again and again would lead nowhere.
            m_firstHubs.m_allFirstHubschecked = true;
            return 0;
        }
        eprintf(EPF_WARN,
                " createNextfirstHub -hub alredy created before for directHUBconnection(Primary/Backup ips "
                "same for "
                "different types), hostInfoString= %s",
                hostInfo.c_str());
        return -1;
    }
    // When the session can take no further hub it is established with those it has.
    if (createHubClient(*host, HubRole::First) == nullptr)
        m_firstHubs.m_allFirstHubschecked = true;
    return 0;
}

} // namespace tivra_internal
