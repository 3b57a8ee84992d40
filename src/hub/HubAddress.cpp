#include "hub/HubAddress.h"

#include <arpa/inet.h>

#include <algorithm>

#include "config/HostConfigImpl.h"
#include "config/HostTable.h"
#include "config/NameLookup.h"
#include "hub/HubClientOptions.h"
#include "hub/PortAnswer.h"

namespace tivra_internal {

namespace {

constexpr std::size_t kMaxHubAddr = 255;

} // namespace

HubAddress::HubAddress(const HubClientOptions& options)
    : m_hostConfig(options.host)
    , m_givenPort(options.port)
    , m_original_ipaddr(options.address)
    , m_original_port(static_cast<uint16_t>(options.port))
    , m_ip_addr(m_original_ipaddr)
    , m_hub_ip_addr(m_ip_addr)
    , m_port(static_cast<uint16_t>(options.port)) {
    if (options.isDummy) {
        const tp::MutexLock lock(m_text_mutex);
        hubAddr = "non-HUB";
        return;
    }
    place(m_original_ipaddr, options.label);
}

// Behind an address translation the hub is dialled by one address and names itself by another.
void HubAddress::place(const std::string& address, const std::string& label) {
    const std::string localIp = localIpOf(address);
    const std::string hubIp =
        m_hostConfig != nullptr && localIp.empty() ? m_hostConfig->getHubIp(address) : std::string();

    const tp::MutexLock lock(m_text_mutex);
    m_ip_addr = localIp.empty() ? address : localIp;
    m_hub_ip_addr = hubIp.empty() ? address : hubIp;
    hubAddr = label;
    if (!localIp.empty() || !hubIp.empty())
        hubAddr = HostTable::hostInfoOf(m_hub_ip_addr, m_givenPort) + " (" + m_ip_addr + ')';
    hubAddr.resize(std::min(hubAddr.size(), kMaxHubAddr));
}

void HubAddress::moveTo(const std::string& address) {
    place(address, HostTable::hostInfoOf(address, port()));
}

std::string HubAddress::shown() const {
    const tp::MutexLock lock(m_text_mutex);
    return hubAddr;
}

std::string HubAddress::dialled() const {
    const tp::MutexLock lock(m_text_mutex);
    return m_ip_addr;
}

std::string HubAddress::own() const {
    const tp::MutexLock lock(m_text_mutex);
    return m_hub_ip_addr;
}

bool HubAddress::toSocketAddress(sockaddr_in& address) const {
    address = sockaddr_in{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port());
    const std::string text = dialled();
    address.sin_addr.s_addr = ::inet_addr(text.c_str());
    return isAddress(text) && m_givenPort != 0 && m_givenPort <= kHighestPort;
}

std::string HubAddress::localIpOf(const std::string& addr) const {
    return m_hostConfig != nullptr ? m_hostConfig->getLocalIp(addr) : std::string();
}

std::string HubAddress::reachable(const std::string& addr) const {
    const std::string localIp = localIpOf(addr);
    return localIp.empty() ? addr : localIp;
}

void HubAddress::dialManager(const std::string& addr, int port) {
    const tp::MutexLock lock(m_text_mutex);
    m_ip_addr = addr;
    m_port = static_cast<uint16_t>(port);
    m_givenPort = static_cast<std::size_t>(port);
}

std::string HubAddress::become(const std::string& hubIp) {
    const std::string localIp = localIpOf(hubIp);
    std::string name = HostTable::hostInfoOf(hubIp, port());
    if (!localIp.empty())
        name += " (" + localIp + ')';
    name.resize(std::min(name.size(), kMaxHubAddr));
    const tp::MutexLock lock(m_text_mutex);
    m_hub_ip_addr = hubIp;
    m_ip_addr = localIp.empty() ? hubIp : localIp;
    hubAddr = name;
    return name;
}

} // namespace tivra_internal
