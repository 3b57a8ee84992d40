#include "session/lifecycle/ChangeOver.h"

#include <tp/Clock.h>
#include <tp/eprintf.h>

#include "session/lifecycle/RunState.h"

namespace tivra_internal {
namespace {

constexpr double kSecondsBetweenFailovers = 15.0;
constexpr double kSecondsBeforeDial = 1.0; ///< after a forced one

} // namespace

void ChangeOver::startFailover(bool force) {
    tp::MutexLock lock(m_failover_mutex);
    const Asked asked = m_asked;
    if (asked == Asked::Failover || asked == Asked::FailoverAndReload)
        return;
    const double now = tp::Clock::monotonic();
    const double last = m_lastFailoverTime;
    if (!force && last != 0.0 && now - last < kSecondsBetweenFailovers)
        return;
    m_asked = asked == Asked::Reload ? Asked::FailoverAndReload : Asked::Failover;
    m_run.leaveForOthers();
    eprintf(EPF_INFO, "Begin failover");
    m_lastFailoverTime = now;
    m_dialNotBefore = force ? now + kSecondsBeforeDial : 0.0;
    wake();
}

void ChangeOver::startDicReload() {
    tp::MutexLock lock(m_failover_mutex);
    const Asked asked = m_asked;
    if (asked == Asked::Reload || asked == Asked::FailoverAndReload)
        return;
    m_asked = asked == Asked::Failover ? Asked::FailoverAndReload : Asked::Reload;
    m_run.leaveForOthers();
    eprintf(EPF_INFO, "Begin DIC reload");
    wake();
}

void ChangeOver::turn() {
    // Cleared first: a hub of the new side that fails at once may ask for the next change.
    const Asked asked = m_asked.exchange(Asked::Nothing);
    if (asked != Asked::Failover && asked != Asked::FailoverAndReload)
        return;
    const bool wasBackup = m_useBackup;
    m_useBackup = !wasBackup;
    eprintf(EPF_INFO, "failover: %s HUB disconnected; initializing connection(s) to %s HUB",
            wasBackup ? "Backup" : "Primary", wasBackup ? "primary" : "backup");
}

void ChangeOver::forget() {
    m_asked = Asked::Nothing;
    m_lastFailoverTime = 0.0;
    m_dialNotBefore = 0.0;
}

} // namespace tivra_internal
