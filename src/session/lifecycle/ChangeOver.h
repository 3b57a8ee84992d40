#pragma once

#include <atomic>
#include <functional>
#include <utility>

#include <tp/Mutex.h>

namespace tivra_internal {

class RunState;

/// The change from a session's hubs to others: to those of the other side (failover), or to the same ones
/// anew (dictionary reload). Hub threads ask for it, the master thread makes it. @thread any
class ChangeOver {
public:
    /// `wake` is called when a change is asked for, for the master thread.
    explicit ChangeOver(RunState& run, std::function<void()> wake = {})
        : m_run(run), m_wake(std::move(wake)) {}

    /// There is another side to go to.
    [[nodiscard]] bool isFailoverEnabled() const { return m_isFailoverEnabled; }
    void enableFailover(bool enabled) { m_isFailoverEnabled = enabled; }
    /// The side in use is that of the backup hosts.
    [[nodiscard]] bool isOnBackup() const { return m_useBackup; }
    /// There has been a failover since the start.
    [[nodiscard]] bool hasFailedOver() const { return m_lastFailoverTime.load() != 0.0; }

    /// `force` goes past the least time between two changes.
    void startFailover(bool force);
    void startDicReload();
    /// Before this the hubs of the side in use are not dialled: changes that a start forces, one after the
    /// other, keep to a pace. Monotonic, in seconds.
    [[nodiscard]] double dialNotBefore() const { return m_dialNotBefore; }
    /// One of them is asked for.
    [[nodiscard]] bool isAskedFor() const { return m_asked != Asked::Nothing; }
    /// The hubs are gone: the side changes when that is asked for, and what comes next may ask for another
    /// change. @thread master
    void turn();

    /// The session stops: the next start makes a failover as if there had been none, on the side in use.
    void forget();

private:
    void wake() const {
        if (m_wake)
            m_wake();
    }

    enum class Asked { Nothing, Reload, Failover, FailoverAndReload };

    RunState& m_run;
    const std::function<void()> m_wake;
    tp::Mutex m_failover_mutex; ///< makes a change-over single
    std::atomic<Asked> m_asked{Asked::Nothing};
    std::atomic<double> m_lastFailoverTime{0.0}; ///< monotonic; 0.0: none since the start
    std::atomic<double> m_dialNotBefore{0.0};
    std::atomic<bool> m_isFailoverEnabled{false};
    std::atomic<bool> m_useBackup{false};
};

} // namespace tivra_internal
