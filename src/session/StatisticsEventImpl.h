#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include <event/StatisticsEvent.h>

namespace tivra_internal {

class Queue;

/// The counters of all receive queues at the end of a reporting interval. Made and read on the first user
/// thread.
class StatisticsEventImpl {
public:
    static constexpr std::size_t kStatCount = 19;
    using Values = std::array<uint64_t, kStatCount>;

    /// Starts from `values`, which are indexed by the types.
    explicit StatisticsEventImpl(tivra::Session& eventSession, const Values& values = {})
        : session(eventSession), m_stats(values) {}

    /// Adds one queue: rates and counts are summed, fill levels are the highest of all queues.
    void add(const Queue& queue);
    /// 0, with a warning, for a value outside the enumeration.
    [[nodiscard]] uint64_t getStat(tivra::StatisticsEvent::StatsTypes type) const;
    [[nodiscard]] tivra::Session& getSession() const { return session; }

private:
    tivra::Session& session;
    Values m_stats;
};

} // namespace tivra_internal
