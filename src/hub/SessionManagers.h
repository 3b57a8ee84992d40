#pragma once

#include <cstdint>
#include <string>

namespace tivra_internal {

class ConnectionManagers;
class HostConfigImpl;

/// What a hub connection asks and reports of the hosts, and where connection managers hand out the hubs.
/// @thread hub; every operation locks for itself.
class SessionManagers {
public:
    virtual ~SessionManagers() = default;

    [[nodiscard]] virtual bool isCMconnection() const = 0;
    [[nodiscard]] virtual ConnectionManagers& getConnectionManagers() = 0;
    /// The hubs come from a manager: there is no change to the backup list any more.
    virtual void disableFailover() = 0;
    /// Checks the configured hosts once they are known to be managers: 0, or -1 when they disagree.
    [[nodiscard]] virtual int updateCMPortPairLst() = 0;
    /// The host with the first text goes by the second from now on, unless another host has it.
    virtual void renameHost(const std::string& hostInfo, const std::string& newHostInfo) = 0;
    /// The host has another address of its name from now on. False when that is another host's.
    [[nodiscard]] virtual bool moveHost(HostConfigImpl& host, const std::string& addr) = 0;
    /// A port of a hub that is connected only when a cross-reference needs it.
    virtual void setXRefPort(uint16_t port) = 0;
    virtual void removeXRefPort(uint16_t port) = 0;
    /// The cross-reference hubs are being connected: one that fails now will be left out.
    [[nodiscard]] virtual bool areXrefHubsComing() const = 0;
};

} // namespace tivra_internal
