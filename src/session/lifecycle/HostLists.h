#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "config/HostPair.h"

namespace tivra_internal {

class ConnectionManagers;
class HostTable;

/// The hosts that the application has configured, on either side. Written while no worker thread exists, read
/// by the workers.
class HostLists {
public:
    [[nodiscard]] const std::vector<HostPair>& primary() const { return primaryIP2PortLst; }
    [[nodiscard]] const std::vector<HostPair>& backup() const { return backupIP2PortLst; }
    [[nodiscard]] const std::vector<HostPair>& side(bool isBackup) const {
        return isBackup ? backupIP2PortLst : primaryIP2PortLst;
    }

    /// Adds what has been configured since the last start. Each new host may be a manager.
    void read(HostTable& hosts, ConnectionManagers& managers);

private:
    std::optional<HostPair> replaceMoved(const std::string& hostInfo, const HostPair& pair);

    std::map<std::string, HostPair> m_read; ///< by the text of the host
    std::vector<HostPair> primaryIP2PortLst;
    std::vector<HostPair> backupIP2PortLst;
};

} // namespace tivra_internal
