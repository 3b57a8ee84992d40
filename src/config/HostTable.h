#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <tp/Mutex.h>

#include "LockOrder.h"
#include "config/HandleAccess.h"

namespace tivra_internal {

/// The highest number that a port can have.
inline constexpr std::size_t kHighestPort = 65535;

/// The hosts of a session by their host info strings, and the order in which they were named. Any thread; the
/// session owns it, it owns the hosts.
///
/// A pointer to a host stays valid until removeHost() or clear().
class HostTable {
public:
    using Maker = std::function<HandlePtr<tivra::HostConfig>()>;
    using Visitor = std::function<void(const std::string& hostInfo, HostConfigImpl* host)>;

    HostTable() = default;
    HostTable(const HostTable&) = delete;
    HostTable& operator=(const HostTable&) = delete;

    /// The host under that text; `make` is called, under the table's mutex, when there is none.
    tivra::HostConfig& findOrAdd(const std::string& hostInfo, const Maker& make);

    /// Destroys a host. Its text stays in the order of naming.
    ///
    /// @param isInUse  asked under the table's mutex whether a hub client with that index exists; the caller
    /// holds
    ///                 whatever guards its clients over the whole call, since that ranks before this mutex.
    /// @return false, with nothing changed, when there is no such host or it is in use.
    [[nodiscard]] bool removeHost(const std::string& hostInfo,
                                  const std::function<bool(std::size_t index)>& isInUse);

    /// By its text, or by the address that a host with a name has now. Null when there is none.
    [[nodiscard]] HostConfigImpl* find(const std::string& hostInfo) const;
    /// The first host, in the order of the texts, with that address and port now. Null when there is none.
    [[nodiscard]] HostConfigImpl* findByAddress(const std::string& addr, std::size_t port) const;

    /// The host whose name stood for that address first when it was looked up. Null when there is none.
    [[nodiscard]] HostConfigImpl* findByName(const std::string& addr, std::size_t port) const;

    /// The host has another address of its name from now on. False, with nothing changed, when that is
    /// another host's.
    [[nodiscard]] bool move(HostConfigImpl& host, const std::string& addr);

    /// Visits every text in the order of naming, with its host or null, under the table's mutex: the visitor
    /// must not call back into the table.
    void forEachNamed(const Visitor& visit) const;

    enum class RekeyKind {
        Backup, ///< the host keeps its stored address
        Primary ///< the host takes over the address
    };
    /// Puts the host with that port under the text "addr:port"; the host that was made with exactly this
    /// address and port is preferred to another of the same port. Nothing changes when that text belongs to
    /// another host.
    void rekeyByPort(const std::string& addr, std::size_t port, RekeyKind kind);

    /// Puts the host with the first text under the second; nothing changes when that belongs to another host.
    void rename(const std::string& hostInfo, const std::string& newHostInfo);

    /// Gives the hosts that the library has added their first address and text back, where that is free.
    void restoreAdded();

    /// Destroys all hosts and forgets their order.
    void clear();

    /// The text of an address and a port.
    [[nodiscard]] static std::string hostInfoOf(const std::string& addr, std::size_t port);

private:
    using HostConfigMap = std::map<std::string, HandlePtr<tivra::HostConfig>>;

    [[nodiscard]] tivra::HostConfig* locate(const std::string& hostInfo) const
        TP_REQUIRES(hostConfigMap_mutex);
    [[nodiscard]] HostConfigMap::iterator findForRekey(const std::string& addr, std::size_t port)
        TP_REQUIRES(hostConfigMap_mutex);

    mutable tp::Mutex hostConfigMap_mutex{kLockHostConfigMap};
    HostConfigMap hostConfigMap TP_GUARDED_BY(hostConfigMap_mutex);
    std::vector<std::string> m_hostConfigLst TP_GUARDED_BY(hostConfigMap_mutex);
};

} // namespace tivra_internal
