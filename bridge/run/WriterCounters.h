#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace tivra_bus {

/// What all partitions of a bridge have counted. @thread any
struct WriterCounters {
    std::atomic<std::uint64_t> updates{0};     ///< taken from the feed
    std::atomic<std::uint64_t> batches{0};     ///< acknowledged
    std::atomic<std::uint64_t> records{0};     ///< of those
    std::atomic<std::uint64_t> bytes{0};       ///< of those
    std::atomic<std::uint64_t> resent{0};      ///< batches, after a failure
    std::atomic<std::uint64_t> conflicts{0};   ///< batches that met another end of the stream
    std::atomic<std::uint64_t> dropped{0};     ///< updates for which there was no room
    std::atomic<std::uint64_t> gaps{0};        ///< that stand in the streams
    std::atomic<std::uint64_t> lastValues{0};  ///< acknowledged
    std::atomic<std::uint64_t> lastRefused{0}; ///< failed or overtaken, and sent again
    std::atomic<std::uint64_t> liveDropped{0}; ///< single records that nobody was sent
    std::atomic<std::uint64_t> takeovers{0};
    std::atomic<std::uint64_t> fenced{
        0}; ///< partitions that were given up, since the stream wasn't as it was left
    std::atomic<std::size_t> waitingBytes{0}; ///< of records that aren't acknowledged
};

} // namespace tivra_bus
