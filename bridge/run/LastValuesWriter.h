#pragma once

#include "bus/BusPublisher.h"
#include "run/PartitionWriter.h"

#include <tp/Mutex.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

namespace tivra_bus {

/// Publishes the last values of a partition's symbols, each at most once in a time, however often it changes.
/// Each message replaces one that was looked at before, so that a writer that has lost the partition without
/// noticing overwrites nothing.
/// @thread pump(): one that sends
class LastValuesWriter : public SendListener, public std::enable_shared_from_this<LastValuesWriter> {
public:
    using Clock = std::chrono::steady_clock;

    LastValuesWriter(std::shared_ptr<PartitionWriter> writer, BusPublisher& publisher,
                     std::shared_ptr<WriterCounters> counters);

    /// Sends what waits and, where that is due, what has changed since the last time.
    void pump(Clock::time_point now, bool isDue);
    void sent(std::uint64_t tag, const SendResult& result) override;
    /// Has everything sent at once. isSettled() is true when it is stored, if nothing has come since.
    void settle();
    [[nodiscard]] bool isSettled() const;

private:
    struct Symbol {
        std::optional<std::uint64_t> position; ///< of the present message; nothing until it is looked at
        bool isBusy = false;                   ///< something is on its way
        bool isFinding = false;                ///< that is a look
        bool isChanged = false;                ///< it is among those that wait, or will be once it isn't busy
    };

    /// It has changed.
    void note(std::uint32_t index) TP_REQUIRES(m_mutex);
    /// What can be sent now; it is busy then.
    [[nodiscard]] std::vector<std::uint32_t> start(Clock::time_point now) TP_EXCLUDES(m_mutex);
    void send(std::uint32_t index) TP_EXCLUDES(m_mutex);
    void wait(std::uint32_t index) TP_REQUIRES(m_mutex);

    const std::shared_ptr<PartitionWriter> m_writer;
    BusPublisher& m_publisher;
    const std::shared_ptr<WriterCounters> m_counters;

    mutable tp::Mutex m_mutex{tp::LockRank{9, "last values"}};
    std::vector<Symbol> m_symbols TP_GUARDED_BY(m_mutex);       ///< by the index of the writer's slot
    std::deque<std::uint32_t> m_waiting TP_GUARDED_BY(m_mutex); ///< that are changed and not busy
    std::size_t m_inFlight TP_GUARDED_BY(m_mutex) = 0;
    int m_failures TP_GUARDED_BY(m_mutex) = 0; ///< in a row
    Clock::time_point m_sendAfter TP_GUARDED_BY(m_mutex){};
    bool m_isSettling TP_GUARDED_BY(m_mutex) = false;
    bool m_isSettled TP_GUARDED_BY(m_mutex) = false;
};

} // namespace tivra_bus
