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
    /// One pass, since each step makes its value anew.
    using iterator_category = std::input_iterator_tag;
    /// A field and its value.
    using value_type = std::pair<Field, Value>;
    /// Of two positions; there is no operator for it.
    using difference_type = std::ptrdiff_t;
    /// There is nothing to point to.
    using pointer = void;
    /// A value: what an element refers to is made when it is asked for.
    using reference = value_type;

    /// The field here and its value, whose text lives as long as the owner. Not at the end.
    value_type operator*() const { return m_owner->entryAt(m_index); }
    /// Goes on to the next field. Not at the end.
    EntryIterator& operator++() noexcept {
        ++m_index;
        return *this;
    }
    /// Whether both are at the same place; compare those of one owner.
    friend bool operator==(const EntryIterator& a, const EntryIterator& b) noexcept {
        return a.m_index == b.m_index;
    }
    /// The opposite.
    friend bool operator!=(const EntryIterator& a, const EntryIterator& b) noexcept { return !(a == b); }

private:
    friend Owner;

    EntryIterator(const Owner& owner, std::size_t index) noexcept : m_owner(&owner), m_index(index) {}

    const Owner* m_owner;
    std::size_t m_index;
};

} // namespace tivra
