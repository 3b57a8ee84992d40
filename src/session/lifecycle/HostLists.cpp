#include "session/lifecycle/HostLists.h"

#include <algorithm>
#include <utility>

#include <tp/eprintf.h>

#include "config/HostConfigImpl.h"
#include "config/HostTable.h"
#include "hub/ConnectionManagers.h"

namespace tivra_internal {
namespace {

/// False when the list has it already.
bool addOnce(std::vector<HostPair>& list, const HostPair& host) {
    if (std::find(list.begin(), list.end(), host) != list.end())
        return false;
    list.push_back(host);
    return true;
}

} // namespace

void HostLists::read(HostTable& hosts, ConnectionManagers& managers) {
    if (managers.m_isCMconnection) {
        hosts.restoreAdded();
        // A connection manager may have handed out other addresses than those of the last start.
        for (const HostPair& host : backupIP2PortLst)
            hosts.rekeyByPort(host.addr, host.port, HostTable::RekeyKind::Backup);
        for (const HostPair& host : primaryIP2PortLst)
            hosts.rekeyByPort(host.addr, host.port, HostTable::RekeyKind::Primary);
    }
    std::vector<HostPair> added;
    std::vector<std::pair<HostPair, HostPair>> moved; ///< from one to the other
    ConnectionManagers::Addresses addresses;
    hosts.forEachNamed([&](const std::string& hostInfo, HostConfigImpl* host) {
        if (host == nullptr) {
            eprintf(EPF_WARN,
                    "hoststring(%s) not found in the hostConfigMap so cannot add to primar/backup host list ",
                    hostInfo.c_str());
            return;
        }
        if (!host->isExternal())
            return;
        const bool isBackup = host->getBoolean(tivra::HostConfig::BACKUP_BOOL, false);
        // What was configured; at present the host may have the address of a hub of a manager.
        const HostPair pair{host->getOriginalAddr(), host->getPort()};
        if (const std::optional<HostPair> before = replaceMoved(hostInfo, pair))
            moved.emplace_back(*before, pair);
        if (addOnce(isBackup ? backupIP2PortLst : primaryIP2PortLst, pair))
            added.push_back(pair);
        if (std::vector<std::string> all = host->getAddresses(); !all.empty())
            addresses[pair.addr] = std::move(all);
    });
    managers.setAddresses(std::move(addresses));
    for (const auto& [from, to] : moved)
        managers.replaceCandidate(from, to);
    for (const HostPair& pair : added)
        managers.addCandidate(pair);
    // The number of primary hosts decides how many first hubs a session makes, on either side.
    if (!backupIP2PortLst.empty() && backupIP2PortLst.size() != primaryIP2PortLst.size())
        eprintf(EPF_WARN, "The lists of primary hosts (%zu) and of backup hosts (%zu) differ in length",
                primaryIP2PortLst.size(), backupIP2PortLst.size());
}

// The name of a host may stand for other addresses than at the last start: what it was then, if so.
std::optional<HostPair> HostLists::replaceMoved(const std::string& hostInfo, const HostPair& pair) {
    const auto [known, isNew] = m_read.emplace(hostInfo, pair);
    if (isNew || known->second == pair)
        return std::nullopt;
    std::replace(primaryIP2PortLst.begin(), primaryIP2PortLst.end(), known->second, pair);
    std::replace(backupIP2PortLst.begin(), backupIP2PortLst.end(), known->second, pair);
    return std::exchange(known->second, pair);
}

} // namespace tivra_internal
