#pragma once

#include <atomic>

namespace tivra_internal {

/// How far the run of a session is that `start` has begun and `stop` ends. @thread any
class RunState {
public:
    /// The session has been established since the application's `start`.
    [[nodiscard]] bool isStarted() const { return m_start == Start::Established; }
    /// The start has failed: nothing is dialled any more.
    [[nodiscard]] bool isGivenUp() const { return m_start == Start::GivenUp; }
    void noteEstablished() { m_start = Start::Established; }
    void noteGivenUp() { m_start = Start::GivenUp; }

    /// The hubs are about to go, for good or for others.
    [[nodiscard]] bool isLeavingHubs() const { return m_leaving != Leaving::No; }
    /// The session stops.
    [[nodiscard]] bool isStopRequested() const { return m_leaving == Leaving::ForGood; }
    void requestStop() { m_leaving = Leaving::ForGood; }
    /// Others come in their place; a stop goes before that.
    void leaveForOthers() { replaceLeaving(Leaving::No, Leaving::ForOthers); }
    /// The hubs are gone. A stop goes on to its end.
    void noteHubsGone() { replaceLeaving(Leaving::ForOthers, Leaving::No); }

    /// The stop is complete: another start may follow.
    void end() {
        m_start = Start::None;
        m_leaving = Leaving::No;
    }

private:
    enum class Start {
        None, ///< not begun, or under way
        Established,
        GivenUp
    };
    enum class Leaving { No, ForOthers, ForGood };

    void replaceLeaving(Leaving from, Leaving to) { m_leaving.compare_exchange_strong(from, to); }

    std::atomic<Start> m_start{Start::None};
    std::atomic<Leaving> m_leaving{Leaving::No};
};

} // namespace tivra_internal
