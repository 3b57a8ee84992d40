#pragma once

#include "bus/BatchFields.h"
#include "bus/JsonRecords.h"
#include "bus/OpenBatch.h"
#include "bus/RecordWriter.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace tivra_bus {

/// A batch of lines. @thread one at a time
class BatchWriter : public OpenBatch {
public:
    /// Room in front of the records, which any header fits into.
    static constexpr std::size_t kHeaderRoom = 512;

    /// @param bytes  that a batch is expected to have
    explicit BatchWriter(std::unique_ptr<const RecordWriter> records = std::make_unique<JsonRecords>(),
                         std::size_t bytes = 0);

    void add(const ValuesRecord& record) override;
    void addState(const RecordKey& key, std::string_view state, std::string_view cause) override;
    void addGap(const RecordKey* key, const BusGap& gap) override;
    /// A record that is written already, its line end included.
    void addLine(std::string_view line);

    void removeLast() override;

    [[nodiscard]] std::size_t count() const override { return m_count; }
    [[nodiscard]] std::size_t bytes() const override { return m_lines.size() - kHeaderRoom; }
    [[nodiscard]] std::size_t messageBytes() const override { return bytes() + m_fields.lineBytes(); }
    [[nodiscard]] std::optional<std::string_view> lastLine() const override;

    [[nodiscard]] ClosedBatch close(BatchHeader header) override;
    void reuse(std::string buffer) override;

private:
    void reset();
    void begin(RecordType type, const RecordKey* key);
    void end();

    const std::unique_ptr<const RecordWriter> m_records;
    const std::size_t m_expected;
    std::string m_lines;
    std::string m_spare;              ///< memory for the next batch
    std::size_t m_last = kHeaderRoom; ///< where the last record begins
    std::size_t m_count = 0;
    BatchFields m_fields;
};

} // namespace tivra_bus
