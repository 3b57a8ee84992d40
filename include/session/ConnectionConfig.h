#pragma once

#include <string>

#include "TivraApi.h"
#include "session/HostConfig.h"

namespace tivra_internal {
class ConnectionConfigImpl;
class HandleAccess;
} // namespace tivra_internal

namespace tivra {

/// The settings of all connections, the table of hosts and the NAT pairs, obtained with
/// Session::getConnectionConfig.
///
/// A value set here holds for every host that has none of its own, also for hosts named earlier. No setter
/// fails; a wrong parameter is logged at the warning level and changes nothing. Setters return the object
/// itself, so that calls chain.
///
/// @thread application, before Session::start; lives as long as its session.
class TIVRA_API ConnectionConfig {
public:
    ConnectionConfig(const ConnectionConfig&) = delete;
    ConnectionConfig& operator=(const ConnectionConfig&) = delete;

    /// Sets a parameter whose name ends in _LONG for all connections. See HostConfig::Parameters for units
    /// and ranges.
    ConnectionConfig& set(HostConfig::Parameters parameter, long value);
    /// The same for a value written as a plain int, which would otherwise fit `long` and `bool` alike.
    ConnectionConfig& set(HostConfig::Parameters parameter, int value) {
        return set(parameter, static_cast<long>(value));
    }
    /// Sets a parameter whose name ends in _BOOL for all connections. HostConfig::BACKUP_BOOL is refused:
    /// being a backup is a property of one host.
    ConnectionConfig& set(HostConfig::Parameters parameter, bool value);
    /// Keeps a pointer (a text, say) from passing as a bool.
    ConnectionConfig& set(HostConfig::Parameters parameter, const void* value) = delete;
    /// Sets a parameter whose name ends in _STRING for all connections.
    ConnectionConfig& setText(HostConfig::Parameters parameter, const std::string& value);

    /// Names a host, and makes it on the first call with that text. The order in which hosts are named is the
    /// order in which they are tried.
    ///
    /// @param hostInfoString  IPv4 address or name, a colon, decimal port 1 to 65535, as in "10.1.2.3:4567".
    ///                        A name is looked up at each Session::start; all its IPv4 addresses are dialled
    ///                        in turn, and where nothing else says whom a certificate has to be for it is the
    ///                        name. Anything else is logged at the warning level and gives a host whose
    ///                        connection attempts fail, as does a name without such an address.
    /// @return the same object for the same text; lives as long as the session.
    HostConfig& getHostConfig(std::string hostInfoString);

    /// Tells that the address `hubIp`, as hubs report it, is reached from here as `localIp`. White space at
    /// the ends is taken off. Both addresses can stand in one pair only: a second pair with either is refused
    /// and logged at the warning level.
    ConnectionConfig& addNATPair(std::string hubIp, std::string localIp);

private:
    friend class tivra_internal::HandleAccess;

    ConnectionConfig();
    explicit ConnectionConfig(tivra_internal::ConnectionConfigImpl* impl) noexcept;
    ~ConnectionConfig();

    tivra_internal::ConnectionConfigImpl* connectionConfigImpl;
};

} // namespace tivra
