#include "bus/ArrowColumn.h"

#include "bus/ValidText.h"

#include <utility>

namespace tivra_bus {

namespace {

/// What is kept for the next batch.
constexpr std::size_t kMostKept = 64U << 10;
// What a column takes in the schema and in front of a batch's values: tables, names with their lengths,
// places of its buffers, and what fills these up.
constexpr std::size_t kColumnFrame = 208;
constexpr std::size_t kListFrame = 192;
constexpr std::size_t kFieldFrame = 64;

std::int32_t offset(std::size_t size) {
    return static_cast<std::int32_t>(size);
}

} // namespace

std::size_t ArrowColumn::values() const {
    return m_type.kind == ArrowKind::Text ? m_textOffsets.size() - 1 : m_data.size() / width();
}

void ArrowColumn::pad(std::size_t rows) {
    m_validity.resize((rows + kBitsOfByte - 1) / kBitsOfByte);
    if (m_type.isList)
        m_listOffsets.resize(rows + 1, offset(values()));
    else if (m_type.kind == ArrowKind::Text)
        m_textOffsets.resize(rows + 1, offset(m_data.size()));
    else
        m_data.resize(rows * width());
}

void ArrowColumn::endList(std::size_t row) {
    m_listOffsets.resize(row + 2);
    m_listOffsets.back() = offset(values());
}

void ArrowColumn::add(std::size_t row, std::string_view text) {
    begin(row);
    m_data += text;
    m_textOffsets.push_back(offset(m_data.size()));
    m_isBinary = m_isBinary || (!isAscii(text) && validText(text) != text);
    end(row);
}

void ArrowColumn::moveLast(std::size_t row, ArrowColumn& list) {
    if (m_type.kind == ArrowKind::Text) {
        list.add(row, std::string_view(m_data).substr(static_cast<std::size_t>(m_textOffsets[row])));
    } else {
        list.addNumber(row, m_data.data() + row * width(), width());
    }
    remove(row);
}

void ArrowColumn::remove(std::size_t row) {
    if (!has(row))
        return;
    if (m_type.isList) {
        const auto values = static_cast<std::size_t>(m_listOffsets[row]);
        if (m_type.kind == ArrowKind::Text) {
            m_textOffsets.resize(values + 1);
            m_data.resize(static_cast<std::size_t>(m_textOffsets.back()));
        } else {
            m_data.resize(values * width());
        }
    } else if (m_type.kind == ArrowKind::Text) {
        m_data.resize(static_cast<std::size_t>(m_textOffsets[row]));
    }
    m_rows = row;
    --m_count;
    pad(row);
    // The byte may have bits of rows that stay.
    if (row % kBitsOfByte != 0)
        m_validity.back() = static_cast<char>(m_validity.back() & ~(1 << (row % kBitsOfByte)));
}

void ArrowColumn::clear() {
    m_isBinary = false;
    m_rows = 0;
    m_count = 0;
    m_validity.clear();
    m_data.clear();
    if (m_data.capacity() > kMostKept)
        m_data.shrink_to_fit();
    m_textOffsets.resize(1);
    m_listOffsets.resize(1);
}

std::size_t ArrowColumn::rowBits() const {
    const bool hasOffsets = m_type.isList || m_type.kind == ArrowKind::Text;
    return 1 + kBitsOfByte * (hasOffsets ? kOffsetBytes : width());
}

std::size_t ArrowColumn::frameBytes() const {
    return kColumnFrame + m_type.name.size() + (m_type.isList ? kListFrame : 0) +
           (m_type.field.empty() ? 0 : kFieldFrame + m_type.field.size());
}

void ArrowColumn::fill(std::size_t rows) {
    pad(rows);
}

} // namespace tivra_bus
