#pragma once

#include "bus/SendResult.h"

#include <tp/Mutex.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

namespace tivra_bus {

/// What waits for an answer, in the order that it was sent in. Each is ended once: by its answer, or when its
/// time is over.
/// @thread any; listeners are called on the thread that ends theirs, without a lock
class PendingSends {
public:
    using Clock = std::chrono::steady_clock;

    explicit PendingSends(std::chrono::milliseconds patience) : m_patience(patience) {}

    /// @return the number that the answer has to name
    [[nodiscard]] std::uint64_t add(SendTicket ticket);
    /// One that nobody waits for is left out.
    void end(std::uint64_t number, const SendResult& result);
    /// Sending has failed already: ended by the next expire(), so that whoever sends isn't called back.
    void failed(std::uint64_t number, SendResult result);
    /// The same of all that wait.
    void failAll(const SendResult& result);
    /// Ends what has failed and what has waited too long.
    void expire();
    [[nodiscard]] std::size_t count() const;

private:
    struct Pending {
        SendTicket ticket;
        Clock::time_point deadline;
        bool isEnded = false;
    };

    /// Marks it ended. @return whether it wasn't before
    [[nodiscard]] bool take(std::uint64_t number, SendTicket& ticket) TP_REQUIRES(m_mutex);

    const std::chrono::milliseconds m_patience;
    mutable tp::Mutex m_mutex;
    std::deque<Pending>
        m_pending TP_GUARDED_BY(m_mutex);             ///< by number, without those at the front that ended
    std::uint64_t m_first TP_GUARDED_BY(m_mutex) = 1; ///< the number of the front
    std::vector<std::pair<SendTicket, SendResult>> m_failed TP_GUARDED_BY(m_mutex);
};

} // namespace tivra_bus
