#pragma once

#include "bus/BusPublisher.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace tivra_bus {

/// Finds out who may go on writing a partition, from its last messages in their order.
/// @thread one at a time
class KafkaTail {
public:
    /// @param writer  of this process, which has to stay
    explicit KafkaTail(std::string_view writer) : m_writer(writer) {}

    /// A message, which may be any bytes, and who its header says has written it. One that isn't a batch
    /// counts for nothing.
    void take(std::string_view message, std::string_view writer);

    /// The highest epoch, and its last batch. Where another process has written in it as well as this one,
    /// nobody may go on in it, so the epoch is one higher.
    [[nodiscard]] StreamEnd end(std::uint64_t position) const;

private:
    const std::string_view m_writer;
    std::uint64_t m_epoch = 0;
    std::uint64_t m_batch = 0;
    std::string m_batchWriter;
    std::string m_time; ///< of the last batch of the epoch
    bool m_isOurs = false;
    bool m_isAnothers = false;
};

} // namespace tivra_bus
