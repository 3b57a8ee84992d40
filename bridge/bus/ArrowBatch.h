#pragma once

#include "bus/ArrowColumns.h"
#include "bus/ArrowEncoder.h"
#include "bus/OpenBatch.h"
#include "bus/RecordColumns.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tivra_bus {

/// A batch as an Arrow stream: a row for each record, and a column for each field that one of them has.
/// @thread one at a time
class ArrowBatch : public OpenBatch {
public:
    /// @param bytes  that a batch is expected to have
    explicit ArrowBatch(std::size_t bytes);

    void add(const ValuesRecord& record) override;
    void addState(const RecordKey& key, std::string_view state, std::string_view cause) override;
    void addGap(const RecordKey* key, const BusGap& gap) override;
    void removeLast() override;

    [[nodiscard]] std::size_t count() const override { return m_rows; }
    [[nodiscard]] std::size_t bytes() const override;
    [[nodiscard]] std::size_t messageBytes() const override;
    [[nodiscard]] std::optional<std::string_view> lastLine() const override { return std::nullopt; }

    [[nodiscard]] ClosedBatch close(BatchHeader header) override;
    void reuse(std::string buffer) override;

private:
    void reset();
    void begin(RecordType type, const RecordKey* key);
    template<class Value>
    void put(std::size_t column, const Value& value);
    template<class Value>
    void putIn(RecordColumn column, const Value& value) {
        put(static_cast<std::size_t>(column), value);
    }
    void putTime(RecordColumn column, std::string_view text);
    void putEntry(const SymbolImage& image, const SymbolImage::Entry& entry);
    void putValue(const std::string& name, const tivra::Value& value);
    /// Whether the batch has this column.
    [[nodiscard]] bool isUsed(std::size_t column) const {
        return column < kAlwaysThere || m_columns[column].count() > 0;
    }
    /// Calls change(column), and counts what the batch has got by that.
    template<class Change>
    void change(std::size_t column, const Change& change);
    void use(std::size_t column);

    const std::size_t m_expected;
    ArrowColumns m_columns;
    ArrowEncoder m_encoder;
    std::string m_spare; ///< memory for the next batch

    std::size_t m_rows = 0;
    std::vector<std::size_t> m_inLast; ///< the columns of the last row
    // Of the columns that are used.
    std::size_t m_used = 0;
    std::size_t m_rowBits = 0;
    std::size_t m_looseBytes = 0;
    std::size_t m_frameBytes = 0;
};

} // namespace tivra_bus
