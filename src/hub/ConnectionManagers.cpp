#include "hub/ConnectionManagers.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include <tp/eprintf.h>

namespace tivra_internal {

namespace {

constexpr const char* kRetriesUsedUp = "Exceed the Retry count for both CM and direct HUB";

} // namespace

void ConnectionManagers::addCandidate(const HostPair& host) {
    const tp::MutexLock lock(recentCM_mutex);
    m_CMPortPairLst.push_back(host);
}

void ConnectionManagers::replaceCandidate(const HostPair& host, const HostPair& by) {
    const tp::MutexLock lock(recentCM_mutex);
    std::replace(m_CMPortPairLst.begin(), m_CMPortPairLst.end(), host, by);
}

void ConnectionManagers::setAddresses(Addresses addresses) {
    const tp::MutexLock lock(recentCM_mutex);
    m_addresses = std::move(addresses);
}

std::vector<HostPair> ConnectionManagers::candidates() const {
    const tp::MutexLock lock(recentCM_mutex);
    std::vector<HostPair> all;
    for (auto each = m_CMPortPairLst.begin(); each != m_CMPortPairLst.end(); ++each) {
        all.push_back(*each);
        const auto next = std::next(each);
        const auto named = m_addresses.find(each->addr);
        // The ports of a host stand together, and it is asked once.
        if (named == m_addresses.end() || (next != m_CMPortPairLst.end() && next->addr == each->addr))
            continue;
        for (const std::string& address : named->second)
            if (address != each->addr)
                all.push_back({address, each->port});
    }
    return all;
}

std::string ConnectionManagers::getRecentCM() const {
    const tp::MutexLock lock(recentCM_mutex);
    return m_recentCM;
}

void ConnectionManagers::setRecentCM(const std::string& addr) {
    const tp::MutexLock lock(recentCM_mutex);
    m_recentCM = addr;
}

std::string ConnectionManagers::managerAddr() const {
    const tp::MutexLock lock(recentCM_mutex);
    if (!m_recentCM.empty())
        return m_recentCM;
    return m_CMPortPairLst.empty() ? std::string() : m_CMPortPairLst.front().addr;
}

void ConnectionManagers::noteManager(const std::string& addr) {
    const tp::MutexLock lock(recentCM_mutex);
    m_unavailable.insert(addr);
    for (const auto& [first, all] : m_addresses)
        if (std::find(all.begin(), all.end(), addr) != all.end())
            m_unavailable.insert(first);
}

bool ConnectionManagers::isManager(const std::string& addr) const {
    const tp::MutexLock lock(recentCM_mutex);
    return m_unavailable.count(addr) != 0;
}

int ConnectionManagers::updateCMPortPairLst(const std::vector<HostPair>& primary,
                                            const std::vector<HostPair>& backup) {
    const tp::MutexLock lock(recentCM_mutex);
    const auto logSize = [this]() TP_REQUIRES(recentCM_mutex) {
        eprintf(EPF_INFO, " updateCMPortPairLst, size= %ld", static_cast<long>(m_CMPortPairLst.size()));
    };
    logSize();
    // Hosts that disagree stay as they are, or the next start would find fewer of them and let them pass.
    std::vector<HostPair> kept = m_CMPortPairLst;
    std::vector<std::size_t> primaryPorts;
    std::vector<std::size_t> backupPorts;
    if (keepOneOf(primary, "Primary", kept, primaryPorts) != 0 ||
        keepOneOf(backup, "Backup", kept, backupPorts) != 0)
        return -1;
    if (!backup.empty() && primaryPorts.size() != backupPorts.size()) {
        eprintf(EPF_WARN,
                " updateCMPortPairLst error -Primary and Backup address should have same no of ports");
        return -1;
    }
    if (!backup.empty() && primaryPorts != backupPorts) {
        eprintf(EPF_WARN, " updateCMPortPairLst error -Primary and Backup address do not have same ports");
        return -1;
    }
    m_CMPortPairLst = std::move(kept);
    logSize();
    return 0;
}

// One manager serves all ports of its side; `ports` is filled, sorted and without doubles.
int ConnectionManagers::keepOneOf(const std::vector<HostPair>& hosts, const char* side,
                                  std::vector<HostPair>& candidates, std::vector<std::size_t>& ports) {
    std::string manager;
    for (const HostPair& host : hosts) {
        const auto candidate = std::find(candidates.begin(), candidates.end(), host);
        if (candidate == candidates.end())
            continue;
        if (ports.empty()) {
            manager = host.addr;
        } else if (host.addr == manager) {
            candidates.erase(candidate);
        } else {
            eprintf(EPF_WARN, " updateCMPortPairLst error -%s CM IPs are not the same", side);
            return -1;
        }
        ports.push_back(host.port);
    }
    std::sort(ports.begin(), ports.end());
    ports.erase(std::unique(ports.begin(), ports.end()), ports.end());
    return 0;
}

bool ConnectionManagers::checkCMRetry(long connectionRetryLimit, bool failoverEnabled, bool useBackup,
                                      std::string& reason) {
    if (!m_enableCMRetry)
        return false;
    if (!failoverEnabled) {
        const int retries = ++m_CMRetryCnt;
        if (retries < connectionRetryLimit) {
            askAgain();
            eprintf(EPF_INFO, "checkCMRetry Retry on CM enabled (Only primary");
            return true;
        }
        eprintf(EPF_WARN,
                "checkCMRetry m_CMRetryCnt(%d) exceeded connectionRetryLimit(%ld) - so no retry (Only "
                "primary)",
                retries, connectionRetryLimit);
        reason = kRetriesUsedUp;
        return false;
    }
    // One count stands for one pass through both sides.
    if (useBackup)
        eprintf(EPF_DBUG, "checkCMRetry increment the retry count %d", ++m_CMRetryCnt);
    if (m_CMRetryCnt >= connectionRetryLimit) {
        eprintf(EPF_WARN, "checkCMRetry m_CMRetryCnt(%d) exceeded connectionRetryLimit(%ld) - so no retry",
                m_CMRetryCnt.load(), connectionRetryLimit);
        reason = kRetriesUsedUp;
        return false;
    }
    if (!useBackup)
        return true;
    askAgain();
    eprintf(EPF_INFO, "checkCMRetry Retry on CM enabled");
    return true;
}

void ConnectionManagers::prepareNextStart() {
    m_CMRetryCnt = 0;
    {
        const tp::MutexLock lock(recentCM_mutex);
        m_unavailable.clear();
    }
    if (!m_isCMconnection)
        askAgain();
}

// The next connect asks the managers again.
void ConnectionManagers::askAgain() {
    m_CMcheckDone = false;
    m_enableCMRetry = false;
}

void ConnectionManagers::setHubOfPort(uint16_t port, const std::string& addr) {
    const tp::MutexLock lock(portHubMap_mutex);
    portHubMap[port] = addr;
}

std::string ConnectionManagers::hubOfPort(uint16_t port) const {
    const tp::MutexLock lock(portHubMap_mutex);
    const auto found = portHubMap.find(port);
    return found == portHubMap.end() ? std::string() : found->second;
}

bool ConnectionManagers::firstHub(uint16_t& port, std::string& addr) const {
    const tp::MutexLock lock(portHubMap_mutex);
    if (portHubMap.empty())
        return false;
    port = portHubMap.begin()->first;
    addr = portHubMap.begin()->second;
    return true;
}

void ConnectionManagers::forgetHubs() {
    const tp::MutexLock lock(portHubMap_mutex);
    portHubMap.clear();
}

} // namespace tivra_internal
