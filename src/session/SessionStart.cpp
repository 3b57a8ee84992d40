// From the application's `start` to a master thread and a settled outcome.
#include "session/SessionImpl.h"

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
        m_hostLists.read(m_hosts, m_managers);
    if (m_hostLists.primary().empty())
        return refuseStart(failReason, kNoPrimary);
    failReason = kStarted;
    if (!isValid)
        return refuseStart(failReason, kNotValid);
    if (!m_user.isUsable())
        return refuseStart(failReason, kNoCredentials);
    if (m_msgEventHandler.load() == nullptr)
        return refuseStart(failReason, kNoMessageHandler);
    if (m_run.isStarted()) {
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
    return m_run.isStarted() || masterThread != nullptr;
}

bool SessionImpl::launchMaster(std::string& failReason) {
    m_latch.rearm();
    tp::MutexLock lock(m_stop_mutex);
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
        m_run.noteGivenUp();
}

} // namespace tivra_internal
