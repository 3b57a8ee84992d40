// From the application's `start` to a master thread and a settled outcome.
#include "session/SessionImpl.h"

#include <algorithm>
#include <system_error>
#include <unistd.h>

#include <tp/eprintf.h>

#include "LibraryVersion.h"

#include "config/HostConfigImpl.h"
#include "config/SessionConfigImpl.h"
#include "config/UserInfoImpl.h"

namespace tivra_internal {
namespace {

constexpr useconds_t kStartPollMicroseconds = 1000;

constexpr const char* kStarted = "Session started";
constexpr const char* kAlreadyStarted = "Session has already been started; ignoring start request";
constexpr const char* kNotValid = "Multiple Sessions are not supported; ignoring start request";
constexpr const char* kNoMessageHandler =
    "Cannot start session without first registering a message event handler";
constexpr const char* kNoPrimary = "Primary connection empty or Primary and backup have same connection";
constexpr const char* kNoCredentials = "User name or password can't be sent to a hub";
constexpr const char* kOnLibraryThread = "start called on a library thread";

/// False when the list has it already.
bool addOnce(std::vector<HostPair>& list, const HostPair& host) {
    if (std::find(list.begin(), list.end(), host) != list.end())
        return false;
    list.push_back(host);
    return true;
}

} // namespace

bool SessionImpl::start(std::string& failReason) {
    if (tp::onLibraryThread()) {
        failReason = kOnLibraryThread;
        eprintf(EPF_CRIT, "%s", kOnLibraryThread);
        return false;
    }
    tp::MutexLock lock(m_start_mutex);
    m_queueDepthThreshold = static_cast<int>(settings().getQueueThreshold());
    const bool started = startLocked(failReason);
    if (!started)
        stop();
    return started;
}

bool SessionImpl::startLocked(std::string& failReason) {
    if (!isRunning())
        readHostLists();
    if (primaryIP2PortLst.empty())
        return refuseStart(failReason, kNoPrimary);
    failReason = kStarted;
    if (!isValid)
        return refuseStart(failReason, kNotValid);
    if (!m_user.isUsable())
        return refuseStart(failReason, kNoCredentials);
    if (m_msgEventHandler.load() == nullptr)
        return refuseStart(failReason, kNoMessageHandler);
    if (isStarted) {
        failReason = kAlreadyStarted;
        eprintf(EPF_WARN, "%s", kAlreadyStarted);
        return true;
    }
    eprintf(EPF_INFO, "Starting Session");
    eprintf(EPF_INFO, "TIVRA version : %s  and  Version date : %s", kVersion, kVersionDate);
    if (!launchMaster(failReason))
        return false;

    std::string reason;
    if (waitForOutcome(reason) == StartLatch::Outcome::Established)
        return true;
    eprintf(EPF_CRIT, "Unable to start Session: %s", reason.c_str());
    failReason = reason;
    return false;
}

bool SessionImpl::refuseStart(std::string& failReason, const char* reason) {
    failReason = reason;
    eprintf(EPF_CRIT, "%s", reason);
    return false;
}

bool SessionImpl::isRunning() {
    tp::MutexLock lock(m_stop_mutex);
    return isStarted || masterThread != nullptr;
}

void SessionImpl::readHostLists() {
    if (m_managers.m_isCMconnection) {
        m_hosts.restoreAdded();
        // A connection manager may have handed out other addresses than those of the last start.
        for (const HostPair& host : backupIP2PortLst)
            m_hosts.rekeyByPort(host.addr, host.port, HostTable::RekeyKind::Backup);
        for (const HostPair& host : primaryIP2PortLst)
            m_hosts.rekeyByPort(host.addr, host.port, HostTable::RekeyKind::Primary);
    }
    std::vector<HostPair> added;
    m_hosts.forEachNamed([this, &added](const std::string& hostInfo, HostConfigImpl* host) {
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
        if (addOnce(isBackup ? backupIP2PortLst : primaryIP2PortLst, pair))
            added.push_back(pair);
    });
    for (const HostPair& pair : added)
        m_managers.addCandidate(pair);
    // The number of primary hosts decides how many first hubs a session makes, on either side.
    if (!backupIP2PortLst.empty() && backupIP2PortLst.size() != primaryIP2PortLst.size())
        eprintf(EPF_WARN, "The lists of primary hosts (%zu) and of backup hosts (%zu) differ in length",
                primaryIP2PortLst.size(), backupIP2PortLst.size());
}

bool SessionImpl::launchMaster(std::string& failReason) {
    m_latch.rearm();
    tp::MutexLock lock(m_stop_mutex);
    shutdownInProgress = false;
    try {
        masterThread = std::make_unique<tp::Thread>("tivra-master", [this] { startApiMasterThread(); });
    } catch (const std::system_error& error) {
        failReason = error.what();
        eprintf(EPF_CRIT, "Unable to start Session: %s", error.what());
        return false;
    }
    return true;
}

StartLatch::Outcome SessionImpl::waitForOutcome(std::string& reason) {
    // No limit of its own: the supervision of the hubs decides when a start has failed, and `stop` ends the
    // wait.
    for (;;) {
        const StartLatch::Outcome outcome = m_latch.outcome(reason);
        if (outcome != StartLatch::Outcome::Pending)
            return outcome;
        ::usleep(kStartPollMicroseconds);
    }
}

void SessionImpl::abortStart(const std::string& reason) {
    // Too late when the session has just been established or stopped.
    if (m_latch.settle(StartLatch::Outcome::Aborted, reason))
        abortStartup = true;
}

} // namespace tivra_internal
