#pragma once

#include <algorithm>
#include <chrono>
#include <random>
#include <string>
#include <utility>

namespace tivra_bus {

/// Something that fails again and again: when it is tried next, and what of it is news.
/// @thread one at a time
class RepeatedTrouble {
public:
    using Clock = std::chrono::steady_clock;

    /// @param longest  pause between two tries, before up to half of it is added by chance
    explicit RepeatedTrouble(std::chrono::milliseconds longest = std::chrono::seconds(8))
        : m_longest(longest) {}

    /// @return whether nobody has heard of this cause yet
    [[nodiscard]] bool failed(const std::string& cause, Clock::time_point now) {
        const auto pause = std::min(kFirstPause * (1 << std::min(m_count++, kMostDoublings)), m_longest);
        m_next = now + pause + pause * static_cast<int>(m_chance() % 50) / 100;
        return std::exchange(m_cause, cause) != cause;
    }
    /// @return whether it had failed
    [[nodiscard]] bool ended() {
        m_count = 0;
        m_next = {};
        return !std::exchange(m_cause, {}).empty();
    }
    [[nodiscard]] bool isDue(Clock::time_point now) const { return now >= m_next; }
    [[nodiscard]] bool isTroubled() const { return !m_cause.empty(); }

private:
    static constexpr std::chrono::milliseconds kFirstPause{250};
    static constexpr int kMostDoublings = 5;

    std::chrono::milliseconds m_longest;
    std::string m_cause;
    int m_count = 0;
    Clock::time_point m_next{};
    std::minstd_rand m_chance{std::random_device()()};
};

} // namespace tivra_bus
