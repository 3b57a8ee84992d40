#include "config/HostTable.h"

#include <utility>

#include <tp/eprintf.h>

#include "config/HostConfigImpl.h"

namespace tivra_internal {

tivra::HostConfig& HostTable::findOrAdd(const std::string& hostInfo, const Maker& make) {
    const tp::MutexLock lock(hostConfigMap_mutex);
    if (tivra::HostConfig* const known = locate(hostInfo); known != nullptr)
        return *known;

    tivra::HostConfig& host = *hostConfigMap.emplace(hostInfo, make()).first->second;
    eprintf(EPF_DBUG, "new hostConfigMap entry for (%s); hostConfigMap.size()=%zu", hostInfo.c_str(),
            hostConfigMap.size());
    const std::size_t port = HandleAccess::impl(host).getPort();
    if (port < 1 || port > kHighestPort)
        eprintf(EPF_WARN, "Invalid hostInfoString (%s) passed to ConnectionConfig::getHostConfig",
                hostInfo.c_str());
    m_hostConfigLst.push_back(hostInfo);
    return host;
}

bool HostTable::removeHost(const std::string& hostInfo,
                           const std::function<bool(std::size_t index)>& isInUse) {
    const tp::MutexLock lock(hostConfigMap_mutex);
    const auto it = hostConfigMap.find(hostInfo);
    if (it == hostConfigMap.end() || isInUse(HandleAccess::impl(*it->second).getIndex()))
        return false;
    hostConfigMap.erase(it);
    return true;
}

HostConfigImpl* HostTable::find(const std::string& hostInfo) const {
    const tp::MutexLock lock(hostConfigMap_mutex);
    tivra::HostConfig* const host = locate(hostInfo);
    return host == nullptr ? nullptr : &HandleAccess::impl(*host);
}

tivra::HostConfig* HostTable::locate(const std::string& hostInfo) const {
    if (const auto it = hostConfigMap.find(hostInfo); it != hostConfigMap.end())
        return it->second.get();
    for (const auto& [text, handle] : hostConfigMap) {
        const HostConfigImpl& host = HandleAccess::impl(*handle);
        if (host.hasAddressesOfName() && hostInfoOf(host.getAddr(), host.getPort()) == hostInfo)
            return handle.get();
    }
    return nullptr;
}

HostConfigImpl* HostTable::findByName(const std::string& addr, std::size_t port) const {
    const tp::MutexLock lock(hostConfigMap_mutex);
    for (const auto& [text, handle] : hostConfigMap) {
        HostConfigImpl& host = HandleAccess::impl(*handle);
        if (host.hasAddressesOfName() && host.isOriginally(addr, port))
            return &host;
    }
    return nullptr;
}

bool HostTable::move(HostConfigImpl& host, const std::string& addr) {
    const tp::MutexLock lock(hostConfigMap_mutex);
    const tivra::HostConfig* const other = locate(hostInfoOf(addr, host.getPort()));
    if (other != nullptr && &HandleAccess::impl(*other) != &host)
        return false;
    host.setAddr(addr);
    return true;
}

HostConfigImpl* HostTable::findByAddress(const std::string& addr, std::size_t port) const {
    const tp::MutexLock lock(hostConfigMap_mutex);
    for (const auto& [hostInfo, handle] : hostConfigMap) {
        HostConfigImpl& host = HandleAccess::impl(*handle);
        if (host.getPort() == port && host.getAddr() == addr)
            return &host;
    }
    return nullptr;
}

void HostTable::forEachNamed(const Visitor& visit) const {
    const tp::MutexLock lock(hostConfigMap_mutex);
    for (const std::string& hostInfo : m_hostConfigLst) {
        const auto it = hostConfigMap.find(hostInfo);
        visit(hostInfo, it == hostConfigMap.end() ? nullptr : &HandleAccess::impl(*it->second));
    }
}

HostTable::HostConfigMap::iterator HostTable::findForRekey(const std::string& addr, std::size_t port) {
    auto samePort = hostConfigMap.end();
    for (auto it = hostConfigMap.begin(); it != hostConfigMap.end(); ++it) {
        const HostConfigImpl& host = HandleAccess::impl(*it->second);
        if (host.isOriginally(addr, port))
            return it;
        if (samePort == hostConfigMap.end() && host.getPort() == port)
            samePort = it;
    }
    return samePort;
}

void HostTable::rekeyByPort(const std::string& addr, std::size_t port, RekeyKind kind) {
    const tp::MutexLock lock(hostConfigMap_mutex);
    const auto it = findForRekey(addr, port);
    if (it == hostConfigMap.end())
        return;
    eprintf(EPF_DBUG, "CMport=%zu; host addr/port=%s", port, it->first.c_str());
    const std::string wanted = hostInfoOf(addr, port);
    // The text with the name stays: it is the one that the application knows.
    if (it->first != wanted && !HandleAccess::impl(*it->second).hasAddressesOfName()) {
        if (hostConfigMap.count(wanted) != 0)
            return;
        auto node = hostConfigMap.extract(it);
        node.key() = wanted;
        const auto moved = hostConfigMap.insert(std::move(node)).position;
        if (kind == RekeyKind::Primary)
            HandleAccess::impl(*moved->second).setAddr(addr);
    } else if (kind == RekeyKind::Primary) {
        HandleAccess::impl(*it->second).setAddr(addr);
    }
    eprintf(EPF_DBUG, "Modify IP address in hostConfig to use %s for %s port %zu", addr.c_str(),
            kind == RekeyKind::Primary ? "primary" : "backup", port);
}

void HostTable::rename(const std::string& hostInfo, const std::string& newHostInfo) {
    const tp::MutexLock lock(hostConfigMap_mutex);
    const auto it = hostConfigMap.find(hostInfo);
    if (it == hostConfigMap.end() || hostConfigMap.count(newHostInfo) != 0)
        return;
    auto node = hostConfigMap.extract(it);
    node.key() = newHostInfo;
    hostConfigMap.insert(std::move(node));
    eprintf(EPF_DBUG, "update hostConfigMap entry for (%s); hostConfigMap.size()=%zu, CM hostInfo=%s",
            newHostInfo.c_str(), hostConfigMap.size(), hostInfo.c_str());
}

void HostTable::restoreAdded() {
    const tp::MutexLock lock(hostConfigMap_mutex);
    std::vector<std::string> renamed;
    for (const auto& [hostInfo, handle] : hostConfigMap) {
        const HostConfigImpl& host = HandleAccess::impl(*handle);
        if (!host.isExternal() && hostInfo != hostInfoOf(host.getOriginalAddr(), host.getPort()))
            renamed.push_back(hostInfo);
    }
    for (const std::string& hostInfo : renamed) {
        auto node = hostConfigMap.extract(hostInfo);
        HostConfigImpl& host = HandleAccess::impl(*node.mapped());
        const std::string original = hostInfoOf(host.getOriginalAddr(), host.getPort());
        if (hostConfigMap.count(original) == 0) {
            node.key() = original;
            host.setAddr(host.getOriginalAddr());
        }
        hostConfigMap.insert(std::move(node));
    }
}

void HostTable::clear() {
    const tp::MutexLock lock(hostConfigMap_mutex);
    hostConfigMap.clear();
    m_hostConfigLst.clear();
}

std::string HostTable::hostInfoOf(const std::string& addr, std::size_t port) {
    return addr + ":" + std::to_string(port);
}

} // namespace tivra_internal
