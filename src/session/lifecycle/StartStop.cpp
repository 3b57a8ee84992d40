#include "session/lifecycle/StartStop.h"

#include <system_error>

#include <tp/eprintf.h>

#include "LibraryVersion.h"

#include "session/lifecycle/RunState.h"
#include "session/lifecycle/StartSession.h"

namespace tivra_internal {
namespace {

constexpr const char* kStarted = "Session started";
constexpr const char* kAlreadyStarted = "Session has already been started; ignoring start request";
constexpr const char* kOnLibraryThread = "start called on a library thread";
constexpr const char* kStoppedEarly = "Session stopped before it was established";

} // namespace

bool StartStop::start(std::string& failReason) {
    if (tp::onLibraryThread()) {
        failReason = kOnLibraryThread;
        eprintf(EPF_CRIT, "%s", kOnLibraryThread);
        return false;
    }
    tp::MutexLock lock(m_start_mutex);
    m_session.readConfiguration(isRunning());
    const bool started = startLocked(failReason);
    if (!started)
        stop();
    return started;
}

bool StartStop::startLocked(std::string& failReason) {
    if (const char* const reason = m_session.reasonAgainstStart()) {
        failReason = reason;
        eprintf(EPF_CRIT, "%s", reason);
        return false;
    }
    failReason = kStarted;
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
    if (m_latch.wait(reason) == StartLatch::Outcome::Established)
        return true;
    eprintf(EPF_CRIT, "Unable to start Session: %s", reason.c_str());
    failReason = reason;
    return false;
}

bool StartStop::isRunning() {
    tp::MutexLock lock(m_stop_mutex);
    return m_run.isStarted() || masterThread != nullptr;
}

bool StartStop::launchMaster(std::string& failReason) {
    m_latch.rearm();
    tp::MutexLock lock(m_stop_mutex);
    try {
        masterThread = std::make_unique<tp::Thread>("tivra-master", [this] { m_session.runMaster(); });
    } catch (const std::system_error& error) {
        failReason = error.what();
        eprintf(EPF_CRIT, "Unable to start Session: %s", error.what());
        return false;
    }
    return true;
}

void StartStop::stop() {
    if (tp::onLibraryThread()) {
        eprintf(EPF_CRIT, "stop called on a library thread; ignoring stop request");
        return;
    }
    tp::MutexLock lock(m_stop_mutex);
    if (!masterThread)
        return;
    const bool isFirst = !m_run.isStopRequested();
    if (isFirst)
        eprintf(EPF_INFO, "Stopping Session");
    // Ends the wait of a `start` that is still under way, whose line about it comes after the one above; an
    // outcome that has come before stands.
    m_latch.settle(StartLatch::Outcome::Stopped, kStoppedEarly);
    if (isFirst)
        m_run.requestStop();
    m_session.wakeMaster();
    eprintf(EPF_DBUG, "About to join master Thread");
    masterThread->join();
    masterThread.reset();
    m_run.end();
}

void StartStop::endForGood() {
    stop();
    // A `start` of another thread still holds its mutex while it notices that it has been stopped.
    tp::MutexLock starting(m_start_mutex);
    stop();
}

void StartStop::abortStart(const std::string& reason) {
    if (m_latch.settle(StartLatch::Outcome::Aborted, reason))
        m_run.noteGivenUp();
}

} // namespace tivra_internal
