#pragma once

#include "kafka/KafkaReader.h"

#include <feed/Instrument.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tivra_bus {

/// Finds last values in their compacted topic. It has each symbol many times until it is compacted, and those
/// that change stand near its end: so it is read from there backwards until all are found, and what was read
/// for a symbol isn't read for it again. A symbol that nobody publishes is looked for in all of the topic,
/// over several questions where that takes long, since whoever asks waits.
/// @thread one at a time
class KafkaLastValues {
public:
    using Clock = std::chrono::steady_clock;

    /// @param patience  after which no more is read for one question
    /// @param step  messages that are read at first; each step back is twice as long as the one before
    KafkaLastValues(KafkaReader& reader, std::chrono::milliseconds patience, std::int64_t step = 2000)
        : m_reader(reader), m_patience(patience), m_step(step) {}

    /// Their messages; nothing for one that has none, or that hasn't been found yet: asked again, the search
    /// for it goes on. Those of a bridge that has been replaced are none either. @throws BusError
    /// @param epochs  of the present writers, by partition, as far as they are known
    [[nodiscard]] std::vector<std::optional<std::string>>
    find(const std::vector<tivra::Instrument>& instruments, unsigned partitions,
         const std::map<unsigned, std::uint64_t>& epochs, Clock::time_point now);

private:
    /// What is known of a symbol.
    struct Known {
        std::optional<std::string> message;
        /// Of the message, with its number: those of an old writer come later. 0 of one that can't be read.
        std::uint64_t epoch = 0;
        std::uint64_t number = 0;
        std::int64_t from = 0; ///< offsets from this up to the next needn't be read for it
        std::int64_t to = 0;
        bool isFound = false; ///< or isn't there: the message is the answer to this question
        Clock::time_point asked{};

        /// Whether a writer of that epoch has left it so.
        [[nodiscard]] bool isOf(std::uint64_t present) const {
            return !message || epoch == 0 || epoch >= present;
        }
        [[nodiscard]] bool knows(std::int64_t offset) const { return offset >= from && offset < to; }
        /// What was read, if that leaves no hole.
        void add(std::int64_t readFrom, std::int64_t readTo) {
            if (readFrom > to || readTo < from)
                return;
            from = std::min(from, readFrom);
            to = std::max(to, readTo);
        }
    };
    /// What a question looks for in a partition.
    struct Search {
        unsigned partition = 0;
        std::uint64_t epoch = 0;              ///< of its present writer; 0 for not known
        std::map<std::string, Known*> wanted; ///< by key
        std::optional<KafkaReader::Extent> extent{};
        std::int64_t step = 0;
    };

    /// Drops what nobody has asked for of late.
    void forget(Clock::time_point now);
    void run(std::vector<Search>& searches, std::chrono::milliseconds patience);
    void begin(Search& search);
    /// Reads on backwards or, when that has come to its end, what has come since that was begun. So each step
    /// is one for good, however much comes meanwhile.
    void step(Search& search);
    static void dropFound(Search& search);
    static void take(Known& known, const rd_kafka_message_t& message);

    KafkaReader& m_reader;
    const std::chrono::milliseconds m_patience;
    const std::int64_t m_step;
    std::map<std::string, Known> m_known; ///< by key
    unsigned m_next = 0;                  ///< the partition that the next question begins with
};

} // namespace tivra_bus
