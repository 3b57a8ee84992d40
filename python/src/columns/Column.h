#pragma once

#include "columns/Bitmap.h"
#include "columns/ColumnSpec.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tivra_python {

/// The values of one field, NULL where a row has none. Rows come in ascending order. One thread at a time.
class Column {
public:
    /// What became of a value.
    enum class Outcome {
        Kept,
        Repeated,  ///< the row has a value already, which stays
        Mismatched ///< a value of this type can't stand here: the row has NULL
    };

    explicit Column(ColumnSpec spec) : m_spec(std::move(spec)) {}

    /// An integer is taken by columns of any type; in one of times it counts nanoseconds.
    Outcome set(std::size_t row, std::int64_t value);
    /// Seconds since 1970-01-01 00:00 UTC in a column of times, to the nearest microsecond.
    Outcome set(std::size_t row, double value);
    /// Nanoseconds since 1970-01-01 00:00 UTC, for a column of times.
    Outcome setTime(std::size_t row, std::int64_t value);
    /// Bytes that are no UTF-8 become U+FFFD. Throws std::length_error when the texts of a column exceed what
    /// their 32-bit offsets can tell; isFull() says so long before.
    Outcome set(std::size_t row, std::string_view value);

    /// Gives the rows behind the last value NULL, and a column without values its type.
    void complete(std::size_t rows);

    [[nodiscard]] const ColumnSpec& spec() const noexcept { return m_spec; }
    [[nodiscard]] std::size_t nulls() const noexcept { return m_validity.size() - m_values; }
    /// Memory of the values.
    [[nodiscard]] std::size_t bytes() const noexcept {
        return m_text.size() + m_numbers.size() * sizeof(std::int64_t) +
               m_offsets.size() * sizeof(std::int32_t);
    }
    [[nodiscard]] bool isFull() const noexcept { return m_text.size() >= kFullText; }

    [[nodiscard]] const Bitmap& validity() const noexcept { return m_validity; }
    /// Integers, times, or the bits of doubles; empty in a column of texts.
    [[nodiscard]] const std::vector<std::int64_t>& numbers() const noexcept { return m_numbers; }
    /// Where each text begins, and the end of the last; for columns of texts.
    [[nodiscard]] const std::vector<std::int32_t>& offsets() const noexcept { return m_offsets; }
    [[nodiscard]] const std::string& text() const noexcept { return m_text; }

private:
    static constexpr std::size_t kFullText = std::size_t{1} << 30;

    [[nodiscard]] bool has(std::size_t row) const noexcept { return m_validity.size() > row; }
    void find(ColumnType type) noexcept {
        if (m_spec.type == ColumnType::Found)
            m_spec.type = type;
    }
    void padTo(std::size_t rows);
    Outcome keep(std::size_t row, std::int64_t bits);
    Outcome keepText(std::size_t row, std::string_view value);

    ColumnSpec m_spec;
    Bitmap m_validity;
    std::size_t m_values = 0; ///< rows that aren't NULL
    std::vector<std::int64_t> m_numbers;
    std::vector<std::int32_t> m_offsets{0};
    std::string m_text;
};

} // namespace tivra_python
