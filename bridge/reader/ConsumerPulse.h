#pragma once

#include <atomic>
#include <chrono>

namespace tivra_bus {

/// When a consumer was heard of last. One that waits for the reader to have room isn't silent.
/// @thread any
class ConsumerPulse {
public:
    using Clock = std::chrono::steady_clock;

    /// While it hands something over.
    class Beat {
    public:
        explicit Beat(ConsumerPulse& pulse) : m_pulse(pulse) { m_pulse.m_isHandingOver = true; }
        ~Beat() {
            m_pulse.m_heard = Clock::now();
            m_pulse.m_isHandingOver = false;
        }
        Beat(const Beat&) = delete;
        Beat& operator=(const Beat&) = delete;

    private:
        ConsumerPulse& m_pulse;
    };

    [[nodiscard]] bool isSilent(std::chrono::seconds patience) const {
        return !m_isHandingOver && Clock::now() - m_heard.load() > patience;
    }

private:
    std::atomic<Clock::time_point> m_heard{Clock::now()};
    std::atomic<bool> m_isHandingOver{false};
};

} // namespace tivra_bus
