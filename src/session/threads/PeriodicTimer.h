#pragma once

#include <functional>
#include <utility>

namespace tivra_internal {

/// Calls a function at once, then again whenever it wants to be called, for as long as it lives. `Event` is
/// what the reactor calls back into. It belongs to the thread that runs the reactor, on whose stack it lives.
template<typename Reactor, typename Event>
class PeriodicTimer final : public Event {
public:
    /// The work returns after how many seconds it goes on; this: not before it is asked for.
    static constexpr double kRest = Reactor::suspendTime;
    using Work = std::function<double(double now)>;

    PeriodicTimer(Reactor& reactor, Work work) : m_reactor(reactor), m_work(std::move(work)) {
        m_reactor.regTimer(this, 0.0);
    }
    ~PeriodicTimer() override { m_reactor.unRegTimer(this); }
    PeriodicTimer(const PeriodicTimer&) = delete;
    PeriodicTimer& operator=(const PeriodicTimer&) = delete;

    /// In the next look of the loop at its timers.
    void runSoon() { goOnAt(0.0); }
    /// Ends a rest: it is called again at this time. One that doesn't rest has its own time.
    void endRest(double time) {
        if (m_isResting)
            goOnAt(time);
    }
    [[nodiscard]] bool isResting() const { return m_isResting; }

    double timerEvent(double now) override {
        m_isResting = false;
        const double pause = m_work(now);
        m_isResting = pause >= kRest;
        return m_isResting ? kRest : now + pause;
    }

private:
    void goOnAt(double time) {
        m_isResting = false;
        m_reactor.moveTimer(this, time);
    }

    Reactor& m_reactor;
    const Work m_work;
    bool m_isResting = false;
};

} // namespace tivra_internal
