#pragma once

#include "bus/LeaseTable.h"
#include "kafka/KafkaClient.h"
#include "kafka/KafkaReader.h"
#include "kafka/KafkaSends.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace tivra_bus {

/// The table of leases as a log that all bridges read from its beginning: a write names the revision that it
/// replaces, and counts if the entry has that revision at its place in the log. All see the same log, so all
/// agree who was first. A revision is the offset of a message and one.
///
/// The log is short, since what nobody writes again is of nobody who is alive: this bridge writes its own
/// entries again long before they are dropped.
class KafkaLeaseTable : public LeaseTable {
public:
    using Clock = std::chrono::steady_clock;

    /// How old its own entries become before they are written again.
    static constexpr std::chrono::milliseconds kKeepFor = std::chrono::minutes(5);

    /// @param writer  of this process, which no other has. @throws BusError
    KafkaLeaseTable(const KafkaAddress& address, const std::string& writer,
                    std::chrono::milliseconds keepFor = kKeepFor);

    [[nodiscard]] std::vector<LeaseEntry> entries() override;
    [[nodiscard]] std::optional<std::uint64_t> write(const std::string& key, const std::string& value,
                                                     std::uint64_t revision) override;
    void remove(const std::string& key) override;

private:
    struct Entry {
        std::string value;
        std::uint64_t revision = 0;
        /// Up to which its revisions are over. Below the present one where that has come after one that isn't
        /// in the log: a later one may have been the first to replace that.
        std::uint64_t over = 0;
        bool isOwn = false;
        Clock::time_point read{};
    };

    /// Begins with the log's first message when there is nothing to go on from.
    void followExtent(const KafkaReader::Extent& extent);
    /// Takes in the log up to an offset that it has. @throws BusError
    void readTo(std::int64_t end);
    void take(const rd_kafka_message_t& message);
    /// @param replaces  empty for whatever is there
    /// @return the message's revision. @throws BusError
    [[nodiscard]] std::uint64_t append(const std::string& key, std::string_view value,
                                       const std::string& replaces);
    void keepOwn();
    /// Reads all of the log again, as one who begins now.
    void beginAgain();

    const std::string m_writer;
    const std::chrono::milliseconds m_keepFor;
    KafkaReader m_ends; ///< asks where the log begins and ends
    KafkaClient m_log;
    KafkaSends m_sends;
    std::map<std::string, Entry> m_entries;
    std::int64_t m_first = 0;           ///< offsets below it aren't in the log, or weren't when it was begun
    std::optional<std::int64_t> m_next; ///< offset of the first message that hasn't been read
    std::int64_t m_readBefore = 0;      ///< offsets below it were read before the log was begun again
    bool m_isDoubtful = false;          ///< somebody has seen a revision that isn't known here
    Clock::time_point m_begun{};
};

} // namespace tivra_bus
