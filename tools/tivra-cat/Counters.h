#pragma once

#include <atomic>
#include <cstdint>

namespace tivra_cat {

/// What has come so far. Written by the callbacks and the writer, read by everybody.
struct Counters {
    std::atomic<std::uint64_t> received{0}; ///< messages with data
    std::atomic<std::uint64_t> updates{0};
    std::atomic<std::uint64_t> refreshes{0};
    std::atomic<std::uint64_t> imageParts{0};
    std::atomic<std::uint64_t> answers{0};
    std::atomic<std::uint64_t> outputDropped{0};   ///< messages that the output was too slow for
    std::atomic<std::int64_t> firstNanoseconds{0}; ///< steady time of the first message, 0 for none
    std::atomic<std::int64_t> lastNanoseconds{0};
};

} // namespace tivra_cat
