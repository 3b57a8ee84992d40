#pragma once

#include <cstddef>
#include <iterator>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "TivraApi.h"
#include "feed/Field.h"
#include "feed/Value.h"

namespace tivra_internal {
class RecordData;
} // namespace tivra_internal

namespace tivra {

/// An update, or a part of an answer, that is kept: symbol, source and fields. It needs nothing of the feed
/// that it came from, and is never changed; copies share it.
/// @thread any
class TIVRA_API Record {
public:
    using Entry = std::pair<Field, Value>;
    class const_iterator;

    /// One without symbol and fields.
    Record() = default;

    std::string_view symbol() const noexcept;
    /// The number of the source; 0 when the message had none.
    int source() const noexcept;

    /// The value of a field, if the record has it. A text lives as long as any copy of the record. Value::as
    /// lists the types.
    /// @throws Error (WrongType) when the field holds another type
    template<class T>
    std::optional<T> get(const Field& field) const {
        Value value;
        if (!find(field, value))
            return std::nullopt;
        return value.as<T>();
    }
    std::optional<Value> get(const Field& field) const {
        Value value;
        if (!find(field, value))
            return std::nullopt;
        return value;
    }

    std::size_t size() const noexcept;
    const_iterator begin() const noexcept;
    const_iterator end() const noexcept;

private:
    friend class tivra_internal::RecordData;

    explicit Record(std::shared_ptr<const tivra_internal::RecordData> data) noexcept
        : m_data(std::move(data)) {}

    bool find(const Field& field, Value& value) const;
    Entry entryAt(std::size_t index) const;

    std::shared_ptr<const tivra_internal::RecordData> m_data;
};

class Record::const_iterator {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = Record::Entry;
    using difference_type = std::ptrdiff_t;
    using pointer = void;
    using reference = Record::Entry;

    Record::Entry operator*() const { return m_record->entryAt(m_index); }
    const_iterator& operator++() noexcept {
        ++m_index;
        return *this;
    }
    friend bool operator==(const const_iterator& a, const const_iterator& b) noexcept {
        return a.m_index == b.m_index;
    }
    friend bool operator!=(const const_iterator& a, const const_iterator& b) noexcept {
        return a.m_index != b.m_index;
    }

private:
    friend class Record;
    const_iterator(const Record& record, std::size_t index) noexcept : m_record(&record), m_index(index) {}

    const Record* m_record;
    std::size_t m_index;
};

inline Record::const_iterator Record::begin() const noexcept {
    return {*this, 0};
}
inline Record::const_iterator Record::end() const noexcept {
    return {*this, size()};
}

} // namespace tivra
