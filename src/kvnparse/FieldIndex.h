#pragma once

#include "kvnparse/FieldRow.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace KVNAPI {

/// Finds the row of a field by the bytes that it starts with, without reading its number: a hash table that
/// grows until each row stands in one of two places. Rows that find none are read the longer way. Used by
/// one thread.
class FieldIndex {
public:
    /// @param noRow  matches no field
    explicit FieldIndex(FieldRow* noRow) : m_noRow(noRow) { clear(); }

    /// The row whose number and "=" these bytes start with, or one that matches no field.
    [[nodiscard]] FieldRow* find(std::uint64_t bytes) const noexcept {
        FieldRow* const* const place = m_places.data() + placeOf(startOf(bytes));
        return place[0]->startsWith(bytes) ? place[0] : place[1];
    }

    void add(FieldRow* row) {
        m_rows.push_back(row);
        bool found = enter(row);
        // At its largest it stays as it is, so that no dictionary makes adding slow.
        while (!found && m_size < kMostPlaces) {
            resize(m_size * 2);
            found = true;
            for (FieldRow* const known : m_rows)
                found = enter(known) && found;
        }
    }

    void clear() {
        m_rows.clear();
        resize(kFewestPlaces);
    }

private:
    static constexpr std::size_t kFewestPlaces = 256;
    static constexpr std::size_t kMostPlaces = 16384;

    /// The bytes up to the first "=", all eight when there is none.
    [[nodiscard]] static std::uint64_t startOf(std::uint64_t bytes) noexcept {
        constexpr std::uint64_t EACH = 0x0101010101010101;
        const std::uint64_t others = bytes ^ EACH * '=';
        // The high bit of the first byte that is "="; a borrow can only spoil bytes behind it.
        const std::uint64_t found = (others - EACH) & ~others & EACH * 0x80;
        return bytes & (found ^ (found - 1));
    }
    [[nodiscard]] std::size_t placeOf(std::uint64_t start) const noexcept {
        return static_cast<std::size_t>(start * 0x9E3779B97F4A7C15 >> m_shift);
    }

    void resize(std::size_t size) {
        m_size = size;
        m_shift = static_cast<unsigned>(64 - std::countr_zero(size));
        m_places.assign(size + 1, m_noRow);
    }
    [[nodiscard]] bool enter(FieldRow* row) {
        FieldRow** const place = m_places.data() + placeOf(row->start);
        FieldRow** const free = place[0] == m_noRow ? place : place + 1;
        if (*free != m_noRow)
            return false;
        *free = row;
        return true;
    }

    FieldRow* const m_noRow;
    std::vector<FieldRow*> m_rows;
    std::vector<FieldRow*> m_places; ///< one more than the hash can name
    std::size_t m_size = 0;
    unsigned m_shift = 0;
};

} // namespace KVNAPI
