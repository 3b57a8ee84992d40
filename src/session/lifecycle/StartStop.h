#pragma once

#include <memory>
#include <string>

#include <tp/Mutex.h>
#include <tp/Thread.h>

#include "LockOrder.h"
#include "session/lifecycle/StartLatch.h"

namespace tivra_internal {

class RunState;
class StartSession;

/// From the application's `start` to a master thread and a settled outcome, and its end. @thread application,
/// unless a line says otherwise
class StartStop {
public:
    /// Both are borrowed.
    StartStop(StartSession& session, RunState& run) : m_session(session), m_run(run) {}

    /// Waits for the outcome without a limit: the supervision of the hubs decides when a start has failed,
    /// and `stop` ends the wait.
    [[nodiscard]] bool start(std::string& failReason) TP_EXCLUDES(m_start_mutex);
    /// Waits for the master thread.
    void stop() TP_EXCLUDES(m_stop_mutex);
    /// Stops, and waits until no other thread is in `start` any more.
    void endForGood() TP_EXCLUDES(m_start_mutex);

    /// How the present run began. @thread any
    [[nodiscard]] StartLatch& latch() { return m_latch; }
    /// The start has failed. Too late when the session has just been established or stopped. @thread any
    void abortStart(const std::string& reason);

private:
    [[nodiscard]] bool startLocked(std::string& failReason) TP_REQUIRES(m_start_mutex);
    [[nodiscard]] bool isRunning();
    [[nodiscard]] bool launchMaster(std::string& failReason);

    StartSession& m_session;
    RunState& m_run;
    StartLatch m_latch;
    tp::Mutex m_start_mutex{kLockStart}; ///< one start at a time
    tp::Mutex m_stop_mutex{kLockStop};   ///< one stop at a time
    std::unique_ptr<tp::Thread> masterThread TP_GUARDED_BY(m_stop_mutex);
};

} // namespace tivra_internal
