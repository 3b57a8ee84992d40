#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tivra_bus {

/// What the values of a column are.
enum class ArrowKind {
    Int32,
    UInt64,
    Int64,
    Double,
    Time, ///< microseconds since 1970, in UTC
    Text
};

/// How a column is called, and what is in it.
struct ArrowColumnType {
    std::string name;
    std::string field; ///< that it is of, where its name is another; else empty
    ArrowKind kind = ArrowKind::Int64;
    bool isList = false; ///< all values of a record
};

/// The values of a column of a batch, in the order of the rows; those that a row doesn't have are null. The
/// memory stays for the next batch. @thread one at a time
class ArrowColumn {
public:
    explicit ArrowColumn(ArrowColumnType type) : m_type(std::move(type)) {}

    [[nodiscard]] const ArrowColumnType& type() const { return m_type; }
    /// A column of texts has bytes that aren't UTF-8.
    [[nodiscard]] bool isBinary() const { return m_isBinary; }

    // The value of a row, which comes after all others; in a column of lists one after another of the same
    // row.
    void add(std::size_t row, std::int64_t value) { addNumber(row, &value, sizeof value); }
    void add(std::size_t row, std::uint64_t value) { addNumber(row, &value, sizeof value); }
    void add(std::size_t row, double value) { addNumber(row, &value, sizeof value); }
    void add(std::size_t row, std::int32_t value) { addNumber(row, &value, sizeof value); }
    void add(std::size_t row, std::string_view text);
    /// Moves the value of this row, the last one, to a list of the same kind.
    void moveLast(std::size_t row, ArrowColumn& list);
    /// Takes out what there is of this row, the last one.
    void remove(std::size_t row);
    void clear();

    [[nodiscard]] bool has(std::size_t row) const { return m_rows == row + 1 && m_count > 0; }
    /// Of the rows that have a value.
    [[nodiscard]] std::size_t count() const { return m_count; }
    /// That each row takes, whether it has a value or not.
    [[nodiscard]] std::size_t rowBits() const;
    /// That values take besides.
    [[nodiscard]] std::size_t looseBytes() const {
        if (m_type.kind != ArrowKind::Text)
            return m_type.isList ? m_data.size() : 0;
        return m_data.size() + (m_type.isList ? values() * kOffsetBytes : 0);
    }
    /// Of what describes it to a reader, at most, and of what fills up its buffers.
    [[nodiscard]] std::size_t frameBytes() const;

    /// Makes up for the rows at the end that have no value.
    void fill(std::size_t rows);

    // What fill() has made ready.
    [[nodiscard]] std::string_view validity() const { return m_validity; }
    [[nodiscard]] const std::vector<std::int32_t>& listOffsets() const { return m_listOffsets; }
    [[nodiscard]] const std::vector<std::int32_t>& textOffsets() const { return m_textOffsets; }
    [[nodiscard]] std::string_view data() const { return m_data; }
    /// Of values, those of all lists together.
    [[nodiscard]] std::size_t values() const;

private:
    static constexpr std::size_t kBitsOfByte = 8;
    static constexpr std::size_t kOffsetBytes = sizeof(std::int32_t);

    [[nodiscard]] std::size_t width() const {
        return m_type.kind == ArrowKind::Int32 ? sizeof(std::int32_t) : sizeof(std::int64_t);
    }
    void addNumber(std::size_t row, const void* value, std::size_t bytes) {
        begin(row);
        m_data.append(static_cast<const char*>(value), bytes);
        end(row);
    }
    void begin(std::size_t row) {
        // A list that goes on has its offset already.
        if (m_rows != row + 1 && (m_rows != row || m_type.isList))
            pad(row);
    }
    void end(std::size_t row) {
        if (m_type.isList)
            endList(row);
        if (m_rows == row + 1)
            return;
        const std::size_t byte = row / kBitsOfByte;
        if (byte >= m_validity.size())
            m_validity.push_back('\0');
        m_validity[byte] = static_cast<char>(m_validity[byte] | (1 << (row % kBitsOfByte)));
        m_rows = row + 1;
        ++m_count;
    }
    void endList(std::size_t row);
    /// The values of rows up to there.
    void pad(std::size_t rows);

    const ArrowColumnType m_type;
    bool m_isBinary = false;
    std::size_t m_rows = 0; ///< up to the last that has a value
    std::size_t m_count = 0;
    std::string m_validity; ///< a bit for each row
    std::string m_data;
    std::vector<std::int32_t> m_textOffsets{0};
    std::vector<std::int32_t> m_listOffsets{0};
};

} // namespace tivra_bus
