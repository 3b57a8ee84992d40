#pragma once

#include "bus/BatchHeader.h"
#include "bus/BusRecord.h"
#include "bus/ClosedBatch.h"
#include "bus/RecordWriter.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tivra_bus {

/// Whose record it is.
struct RecordKey {
    int source = 0;
    std::string_view symbol;
    std::uint64_t number = 0; ///< see BusRecord::number
};

/// Collects records until the batch is closed. @thread one at a time
class BatchWriter {
public:
    /// Room in front of the records, which any header fits into.
    static constexpr std::size_t kHeaderRoom = 512;

    /// @param bytes  that a batch is expected to have
    explicit BatchWriter(std::size_t bytes = 0);

    void add(const RecordWriter& writer, const ValuesRecord& record);
    void addState(const RecordKey& key, std::string_view state, std::string_view cause);
    /// @param key  null for a gap of all symbols of the partition
    void addGap(const RecordKey* key, const BusGap& gap);

    /// A record as lastRecord() gave it.
    void addAgain(std::string_view record);

    /// Takes the last record out again. Only once after each.
    void removeLast();

    /// Of the records.
    [[nodiscard]] std::size_t bytes() const { return m_records.size() - kHeaderRoom; }
    /// Of the message, but for its header.
    [[nodiscard]] std::size_t messageBytes() const { return bytes() + m_fields.lineBytes(); }
    [[nodiscard]] std::size_t lastBytes() const { return m_records.size() - m_last; }
    /// The last record, its line end included; valid until the next.
    [[nodiscard]] std::string_view lastRecord() const { return std::string_view(m_records).substr(m_last); }
    [[nodiscard]] std::size_t count() const { return m_count; }

    /// The message, whose header gets the number of records. The writer is empty again.
    /// @throws BatchError for a header that no room is kept for
    [[nodiscard]] ClosedBatch close(BatchHeader header);
    /// Gives the memory of a batch that is done with to the next one.
    void reuse(std::string buffer);

private:
    void reset();
    void begin(RecordType type, const RecordKey* key);
    void end();

    std::size_t m_expected;
    std::string m_records;
    std::string m_spare;              ///< memory for the next batch
    std::size_t m_last = kHeaderRoom; ///< where the last record begins
    std::size_t m_count = 0;
    BatchFields m_fields;
};

} // namespace tivra_bus
