#include "columns/Column.h"

#include "columns/TextCheck.h"

#include <bit>
#include <charconv>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace tivra_python {

namespace {

constexpr std::size_t kMaxText = std::numeric_limits<std::int32_t>::max();

/// Doubles of this size hold microseconds no finer than this; anything smaller would be noise.
constexpr double kMicroseconds = 1e6;
constexpr std::int64_t kNanosecondsOfMicrosecond = 1000;

} // namespace

Column::Outcome Column::set(std::size_t row, std::int64_t value) {
    find(ColumnType::Int64);
    if (m_spec.type == ColumnType::Double)
        return keep(row, std::bit_cast<std::int64_t>(static_cast<double>(value)));
    if (m_spec.type != ColumnType::Text)
        return keep(row, value);
    char room[24];
    const auto result = std::to_chars(room, room + sizeof room, value);
    return keepText(row, {room, static_cast<std::size_t>(result.ptr - room)});
}

Column::Outcome Column::set(std::size_t row, double value) {
    find(ColumnType::Double);
    switch (m_spec.type) {
    case ColumnType::Double:
        return keep(row, std::bit_cast<std::int64_t>(value));
    case ColumnType::Time: {
        const double micros = std::round(value * kMicroseconds);
        constexpr auto kMost =
            static_cast<double>(std::numeric_limits<std::int64_t>::max() / kNanosecondsOfMicrosecond);
        if (!(micros > -kMost && micros < kMost)) // nor for NaN
            return Outcome::Mismatched;
        return keep(row, static_cast<std::int64_t>(micros) * kNanosecondsOfMicrosecond);
    }
    case ColumnType::Text: {
        char room[32];
        const auto result = std::to_chars(room, room + sizeof room, value);
        return keepText(row, {room, static_cast<std::size_t>(result.ptr - room)});
    }
    case ColumnType::Found:
    case ColumnType::Int64:
        break;
    }
    return Outcome::Mismatched;
}

Column::Outcome Column::setTime(std::size_t row, std::int64_t value) {
    find(ColumnType::Time);
    return m_spec.type == ColumnType::Time ? keep(row, value) : Outcome::Mismatched;
}

Column::Outcome Column::set(std::size_t row, std::string_view value) {
    find(ColumnType::Text);
    if (m_spec.type != ColumnType::Text)
        return Outcome::Mismatched;
    return keepText(row, value);
}

void Column::complete(std::size_t rows) {
    find(ColumnType::Text);
    padTo(rows);
}

void Column::padTo(std::size_t rows) {
    if (m_validity.size() >= rows)
        return;
    m_validity.padTo(rows);
    if (m_spec.type == ColumnType::Text)
        m_offsets.resize(rows + 1, m_offsets.back());
    else
        m_numbers.resize(rows, 0);
}

Column::Outcome Column::keep(std::size_t row, std::int64_t bits) {
    if (has(row))
        return Outcome::Repeated;
    padTo(row);
    m_validity.append(true);
    m_numbers.push_back(bits);
    ++m_values;
    return Outcome::Kept;
}

Column::Outcome Column::keepText(std::size_t row, std::string_view value) {
    if (has(row))
        return Outcome::Repeated;
    std::string valid;
    value = utf8Of(value, valid);
    if (value.size() > kMaxText - m_text.size())
        throw std::length_error("the texts of \"" + m_spec.name + "\" exceed what one batch can hold");
    padTo(row);
    m_text.append(value);
    m_offsets.push_back(static_cast<std::int32_t>(m_text.size()));
    m_validity.append(true);
    ++m_values;
    return Outcome::Kept;
}

} // namespace tivra_python
