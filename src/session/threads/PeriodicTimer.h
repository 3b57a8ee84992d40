#pragma once

#include <functional>
#include <utility>

namespace tivra_internal {

/// Calls a function at once and then every so many seconds, for as long as it lives. `Event` is what the
/// reactor calls back into. It belongs to the thread that runs the reactor, on whose stack it lives.
template<typename Reactor, typename Event>
class PeriodicTimer final : public Event {
public:
    PeriodicTimer(Reactor& reactor, double seconds, std::function<void(double)> work)
        : m_reactor(reactor), m_seconds(seconds), m_work(std::move(work)) {
        m_reactor.regTimer(this, 0.0);
    }
    ~PeriodicTimer() override { m_reactor.unRegTimer(this); }
    PeriodicTimer(const PeriodicTimer&) = delete;
    PeriodicTimer& operator=(const PeriodicTimer&) = delete;

    double timerEvent(double now) override {
        m_work(now);
        return now + m_seconds;
    }

private:
    Reactor& m_reactor;
    const double m_seconds;
    const std::function<void(double)> m_work;
};

} // namespace tivra_internal
