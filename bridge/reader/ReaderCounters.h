#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace tivra_bus {

/// What all partitions of a reader have counted. @thread any
struct ReaderCounters {
    std::atomic<std::uint64_t> batches{0};
    std::atomic<std::uint64_t> duplicates{0}; ///< batches and records
    std::atomic<std::uint64_t> updates{0};    ///< handed out
    std::atomic<std::uint64_t> gaps{0};       ///< handed out
    std::atomic<std::uint64_t> problems{0};
    std::atomic<std::uint64_t> restarts{0}; ///< of consumers
    std::atomic<std::size_t> partitions{0}; ///< that are read
    std::atomic<std::uint64_t> closings{0}; ///< of subscriptions
};

} // namespace tivra_bus
