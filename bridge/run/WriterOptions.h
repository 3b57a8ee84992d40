#pragma once

#include "bus/BatchHeader.h"

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace tivra_bus {

/// How a partition is written.
struct WriterOptions {
    std::size_t batchBytes = 32U << 10;  ///< a batch is closed when its records have that many
    std::chrono::milliseconds linger{5}; ///< or the first of them is so old
    std::size_t bufferBytes = 64U << 20; ///< of records that wait for the engine, of all partitions together
    std::size_t maxMessage = 1U << 20;   ///< that the engine takes
    bool sendsLive = false;              ///< single records too
    Payload payload = Payload::Json;     ///< of batches
};

} // namespace tivra_bus
