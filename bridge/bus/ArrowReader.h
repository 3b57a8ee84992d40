#pragma once

#include "bus/ArrowStream.h"
#include "bus/BatchHeader.h"
#include "bus/BusRecord.h"
#include "bus/RecordColumns.h"

#include <array>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace tivra_bus {

/// Reads the records of a batch that is an Arrow stream, which may be any bytes. @thread one at a time
class ArrowReader {
public:
    /// @param bytes  which have to stay
    /// @throws BatchError where it isn't a batch, or of another version
    explicit ArrowReader(std::string_view bytes);

    [[nodiscard]] const BatchHeader& header() const { return m_header; }
    /// As BatchReader::next().
    [[nodiscard]] bool next(BusRecord& record, const std::function<bool(int, std::string_view)>& isWanted);

private:
    static constexpr std::size_t kNone = ~std::size_t{0};

    void sortColumns();
    /// Goes on to the next row. @return false at the end
    [[nodiscard]] bool nextRow();
    [[noreturn]] void fail(const std::string& what) const;
    /// Null where the row has none.
    [[nodiscard]] const ArrowValues* find(RecordColumn column) const;
    [[nodiscard]] std::string textAt(std::size_t column, std::size_t value) const;
    [[nodiscard]] BusValue valueAt(std::size_t column, std::size_t value) const;
    [[nodiscard]] std::string textOr(RecordColumn column, const char* other) const;
    [[nodiscard]] std::string text(RecordColumn column) const;
    [[nodiscard]] std::string timeOr(RecordColumn column, const char* other) const;
    [[nodiscard]] RecordType typeOfRow() const;
    void readKey(BusRecord& record) const;
    void readGap(BusGap& gap) const;
    void readFields(BusFields& fields) const;

    ArrowStream m_stream;
    BatchHeader m_header;
    std::array<std::size_t, kRecordColumns.size()> m_record{}; ///< where their columns are, or kNone
    struct Field {
        std::string name;
        std::size_t column;
    };
    std::vector<Field> m_fields;
    std::size_t m_row = 0;   ///< of the stream's batch
    std::size_t m_count = 0; ///< of records
    bool m_hasBatch = false;
    bool m_isAtEnd = false;
};

} // namespace tivra_bus
