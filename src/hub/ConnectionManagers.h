#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <tp/Mutex.h>

#include "config/HostPair.h"

namespace tivra_internal {

/// What a session knows of connection managers. A configured host may be a hub or a manager that hands out
/// hubs; the first connect finds out, and the answer holds for the whole session.
/// @thread any
class ConnectionManagers {
public:
    /// It is known whether the configured hosts are managers.
    std::atomic<bool> m_CMcheckDone{false};
    /// They are: the hubs come from a manager.
    std::atomic<bool> m_isCMconnection{false};
    /// The managers could not be reached at all, so a start that fails may ask them once more.
    std::atomic<bool> m_enableCMRetry{false};
    /// The managers' client library has been initialised and wants its clean-up.
    std::atomic<bool> m_isLnkapiInitialized{false};

    // --- the managers ---
    /// A further configured host that may be a manager.
    void addCandidate(const HostPair& host);
    /// The name of a configured host stands for another address now.
    void replaceCandidate(const HostPair& host, const HostPair& by);
    using Addresses = std::map<std::string, std::vector<std::string>>;
    /// All addresses of the candidates that have been given by name, by the first.
    void setAddresses(Addresses addresses);
    /// In the order in which they are asked; the other addresses of a name come after its first.
    [[nodiscard]] std::vector<HostPair> candidates() const;
    /// The address of the manager that answered last; empty while none has.
    [[nodiscard]] std::string getRecentCM() const;
    void setRecentCM(const std::string& addr);
    /// The address of the manager to name in a host info text: the one that answered last, else the first
    /// candidate; empty when there is none.
    [[nodiscard]] std::string managerAddr() const;
    /// The host has answered as a manager, at one of its addresses, though it had no hub to hand out.
    void noteManager(const std::string& addr);
    [[nodiscard]] bool isManager(const std::string& addr) const;
    /// Once the hosts are known to be managers: leaves one candidate for each and checks that they agree.
    /// @return 0, or -1 with a warning in the log
    [[nodiscard]] int updateCMPortPairLst(const std::vector<HostPair>& primary,
                                          const std::vector<HostPair>& backup);
    /// Whether a failed start may ask the managers again; when not, `reason` may tell why.
    [[nodiscard]] bool checkCMRetry(long connectionRetryLimit, bool failoverEnabled, bool useBackup,
                                    std::string& reason);

    /// After a stop: the next start may ask as often again, also hosts that were no managers or out of reach.
    void prepareNextStart();

    // --- the hubs that they have handed out, by port ---
    void setHubOfPort(uint16_t port, const std::string& addr);
    /// The hub's address; empty when that port is not known.
    [[nodiscard]] std::string hubOfPort(uint16_t port) const;
    /// The lowest port with its hub; false while there is none.
    [[nodiscard]] bool firstHub(uint16_t& port, std::string& addr) const;
    void forgetHubs();

private:
    [[nodiscard]] static int keepOneOf(const std::vector<HostPair>& hosts, const char* side,
                                       std::vector<HostPair>& candidates, std::vector<std::size_t>& ports);
    void askAgain();

    mutable tp::Mutex recentCM_mutex;
    std::string m_recentCM TP_GUARDED_BY(recentCM_mutex);
    std::vector<HostPair> m_CMPortPairLst TP_GUARDED_BY(recentCM_mutex);
    Addresses m_addresses TP_GUARDED_BY(recentCM_mutex);
    std::set<std::string> m_unavailable TP_GUARDED_BY(recentCM_mutex); ///< see noteManager

    mutable tp::Mutex portHubMap_mutex;
    std::map<uint16_t, std::string> portHubMap TP_GUARDED_BY(portHubMap_mutex);

    std::atomic<int> m_CMRetryCnt{0};
};

} // namespace tivra_internal
