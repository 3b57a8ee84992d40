#pragma once

#include <cstddef>
#include <iterator>
#include <utility>

#include "feed/Field.h"
#include "feed/Value.h"

namespace tivra {

/// Walks over the fields of an Update or a Record, in their order, each with its value. It is valid as long
/// as what it walks over.
/// @thread as its owner
template<class Owner>
class EntryIterator {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = std::pair<Field, Value>;
    using difference_type = std::ptrdiff_t;
    using pointer = void;
    using reference = value_type;

    value_type operator*() const { return m_owner->entryAt(m_index); }
    EntryIterator& operator++() noexcept {
        ++m_index;
        return *this;
    }
    friend bool operator==(const EntryIterator& a, const EntryIterator& b) noexcept {
        return a.m_index == b.m_index;
    }
    friend bool operator!=(const EntryIterator& a, const EntryIterator& b) noexcept { return !(a == b); }

private:
    friend Owner;

    EntryIterator(const Owner& owner, std::size_t index) noexcept : m_owner(&owner), m_index(index) {}

    const Owner* m_owner;
    std::size_t m_index;
};

} // namespace tivra
