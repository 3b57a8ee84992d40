#pragma once

#include "bus/ArrowColumn.h"
#include "bus/ArrowValues.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tivra_bus {

class FlatTable;

/// Reads an Arrow stream that may be any bytes, and checks all of it that is used. @thread one at a time
class ArrowStream {
public:
    /// Whether these bytes begin like one.
    [[nodiscard]] static bool isOne(std::string_view bytes);

    /// Reads the schema.
    /// @param bytes  which have to stay
    /// @throws BatchError where it isn't one of the columns that bridges write
    explicit ArrowStream(std::string_view bytes);

    /// The batch's header, from the metadata of the schema.
    [[nodiscard]] const std::string& header() const { return m_header; }
    [[nodiscard]] const std::vector<ArrowColumnType>& columns() const { return m_columns; }
    /// Whether the texts of that column may be any bytes; else they have to be UTF-8.
    [[nodiscard]] bool isBinary(std::size_t column) const { return m_isBinary[column]; }

    /// Goes on to the next batch of the stream. @return false at its end
    /// @throws BatchError where it isn't one of these columns, where something is missing, and where
    /// something is left over at the end
    [[nodiscard]] bool nextBatch();
    /// Of the batch.
    [[nodiscard]] std::size_t rows() const { return m_rows; }
    /// In the order of the columns.
    [[nodiscard]] const std::vector<ArrowValues>& values() const { return m_values; }

private:
    struct Message;
    struct Places;

    /// Nothing at the end of the stream.
    [[nodiscard]] std::optional<Message> nextMessage();
    void readSchema(const FlatTable& table);
    [[nodiscard]] ArrowValues valuesOf(const ArrowColumnType& column, Places& places) const;

    std::vector<std::uint64_t> m_copy; ///< of bytes that aren't where numbers can be read
    std::string_view m_rest;
    std::string m_header;
    std::vector<ArrowColumnType> m_columns;
    std::vector<bool> m_isBinary; ///< by column
    std::size_t m_rows = 0;
    std::vector<ArrowValues> m_values;
};

} // namespace tivra_bus
