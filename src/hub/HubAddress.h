#pragma once

#include <netinet/in.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include <tp/Mutex.h>

#include "LockOrder.h"

namespace tivra_internal {

class HostConfigImpl;
struct HubClientOptions;

/// Where a hub is: as configured, as dialled and as it knows itself, which differ behind an address
/// translation or a connection manager. The hub's thread changes it; any thread may read it.
class HubAddress {
public:
    explicit HubAddress(const HubClientOptions& options);
    HubAddress(const HubAddress&) = delete;
    HubAddress& operator=(const HubAddress&) = delete;

    /// For people: log lines and messages.
    [[nodiscard]] std::string shown() const TP_EXCLUDES(m_text_mutex);
    [[nodiscard]] std::string dialled() const TP_EXCLUDES(m_text_mutex);
    /// By which the hub knows itself.
    [[nodiscard]] std::string own() const TP_EXCLUDES(m_text_mutex);
    [[nodiscard]] uint16_t port() const { return m_port.load(std::memory_order_relaxed); }
    /// As it was before any manager was asked.
    [[nodiscard]] const std::string& configured() const { return m_original_ipaddr; }
    [[nodiscard]] uint16_t configuredPort() const { return m_original_port; }

    /// False when address or port can't be dialled.
    [[nodiscard]] bool toSocketAddress(sockaddr_in& address) const;
    /// The address behind which the translation has this one; the address itself without a translation.
    [[nodiscard]] std::string reachable(const std::string& addr) const;

    /// A connection manager that is dialled as if it were the hub.
    void dialManager(const std::string& addr, int port);
    /// The host's name has this address too, which is dialled from now on.
    void moveTo(const std::string& address);
    /// The address is that of another hub at the same port; returns it for people.
    std::string become(const std::string& hubIp);

private:
    void place(const std::string& address, const std::string& label) TP_EXCLUDES(m_text_mutex);
    [[nodiscard]] std::string localIpOf(const std::string& addr) const;

    const HostConfigImpl* m_hostConfig; ///< knows the translations; may be null
    std::size_t m_givenPort;            ///< as configured or asked for, which may be no port at all
    const std::string m_original_ipaddr;
    const uint16_t m_original_port;
    mutable tp::Mutex m_text_mutex{kLockHubTexts}; ///< guards the texts that other threads read
    std::string m_ip_addr TP_GUARDED_BY(m_text_mutex);
    std::string m_hub_ip_addr TP_GUARDED_BY(m_text_mutex);
    std::string hubAddr TP_GUARDED_BY(m_text_mutex);
    std::atomic<uint16_t> m_port;
};

} // namespace tivra_internal
