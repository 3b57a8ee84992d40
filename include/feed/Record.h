#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "TivraApi.h"
#include "feed/EntryIterator.h"
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
    /// A field and its value.
    using Entry = std::pair<Field, Value>;
    /// Walks over the entries; valid as long as the record it came from.
    using const_iterator = EntryIterator<Record>;

    /// One without symbol and fields.
    Record() = default;

    /// Empty when the message had none. It lives as long as any copy of the record.
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
    /// The same without its type; for a field that is there several times, the first.
    std::optional<Value> get(const Field& field) const {
        Value value;
        if (!find(field, value))
            return std::nullopt;
        return value;
    }

    /// How many fields it has.
    std::size_t size() const noexcept;
    /// The fields in the order of the message.
    const_iterator begin() const noexcept { return {*this, 0}; }
    /// Behind the last field.
    const_iterator end() const noexcept { return {*this, size()}; }

private:
    friend class tivra_internal::RecordData;
    friend const_iterator;

    explicit Record(std::shared_ptr<const tivra_internal::RecordData> data) noexcept
        : m_data(std::move(data)) {}

    bool find(const Field& field, Value& value) const;
    Entry entryAt(std::size_t index) const;

    std::shared_ptr<const tivra_internal::RecordData> m_data;
};

} // namespace tivra
