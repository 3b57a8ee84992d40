#pragma once

#include "EchoPeer.h"

#include <atomic>
#include <cstdint>
#include <semaphore>
#include <thread>

namespace tivra_bench {

/// The threads of a session without anything that they do: a question goes from the caller to a second
/// thread, from there to a third one that asks a process that only answers, and its answer to a fourth one.
/// That is what the machine takes to wake them, and no session with these threads can be quicker.
class HandOvers {
public:
    /// Before any other thread runs.
    HandOvers();
    ~HandOvers();
    HandOvers(const HandOvers&) = delete;
    HandOvers& operator=(const HandOvers&) = delete;

    /// When the fourth thread had the answer, in nanoseconds of the monotonic clock.
    std::int64_t ask();

private:
    EchoPeer m_peer;
    std::atomic<bool> m_isOver{false};
    std::binary_semaphore m_toRoute{0}, m_toExchange{0}, m_toDeliver{0}, m_toCaller{0};
    std::int64_t m_answeredAt = 0; ///< handed over with m_toCaller
    std::thread m_router, m_exchanger, m_deliverer;
};

} // namespace tivra_bench
