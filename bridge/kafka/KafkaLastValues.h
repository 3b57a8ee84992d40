#pragma once

#include "kafka/KafkaReader.h"

#include <feed/Instrument.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tivra_bus {

/// Finds last values in their compacted topic. It has each symbol many times until it is compacted, and those
/// that change stand near its end: so it is read from there backwards until all are found, and what was read
/// for a symbol isn't read for it again.
/// @thread one at a time
class KafkaLastValues {
public:
    /// @param step  messages that are read at first; each step back is twice as long as the one before
    explicit KafkaLastValues(KafkaReader& reader, std::int64_t step = 2000)
        : m_reader(reader), m_step(step) {}

    /// Their messages; nothing for one that has none. @throws BusError
    [[nodiscard]] std::vector<std::optional<std::string>>
    find(const std::vector<tivra::Instrument>& instruments, unsigned partitions);

private:
    /// What is known of a symbol.
    struct Known {
        std::optional<std::string> message;
        std::uint64_t epoch = 0; ///< of the message, with its number: those of an old writer come later
        std::uint64_t number = 0;
        std::int64_t readTo = 0; ///< messages before this offset have been looked at
    };
    using Wanted = std::map<std::string, Known*>;

    void look(unsigned partition, Wanted wanted);
    static void take(Known& known, const rd_kafka_message_t& message);

    KafkaReader& m_reader;
    const std::int64_t m_step;
    std::map<std::string, Known> m_known; ///< by key
};

} // namespace tivra_bus
