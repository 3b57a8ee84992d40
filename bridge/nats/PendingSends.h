#pragma once

#include "bus/BusPublisher.h"

#include <tp/Mutex.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tivra_bus {

/// What waits for an acknowledgement. Each is ended once: by its answer, or when its time is over.
/// @thread any; completions run on the thread that ends them, without a lock
class PendingSends {
public:
    using Clock = std::chrono::steady_clock;

    explicit PendingSends(std::chrono::milliseconds patience) : m_patience(patience) {}

    /// @return the number that the answer has to name
    [[nodiscard]] std::uint64_t add(BusPublisher::Completion done);
    /// The engine's answer, which may be any bytes. One that nobody waits for is left out.
    void answer(std::uint64_t number, std::string_view text);
    /// Sending has failed already: ended by the next expire().
    void failed(std::uint64_t number, std::string cause);
    /// Ends what has waited too long.
    void expire();
    [[nodiscard]] std::size_t count() const;

private:
    struct Pending {
        BusPublisher::Completion done;
        Clock::time_point deadline;
        std::string cause;
    };

    const std::chrono::milliseconds m_patience;
    mutable tp::Mutex m_mutex;
    std::unordered_map<std::uint64_t, Pending> m_pending TP_GUARDED_BY(m_mutex);
    std::uint64_t m_last TP_GUARDED_BY(m_mutex) = 0;
    Clock::time_point m_nextLook TP_GUARDED_BY(m_mutex){};
};

} // namespace tivra_bus
