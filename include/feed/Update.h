#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

#include "TivraApi.h"
#include "feed/EntryIterator.h"
#include "feed/Field.h"
#include "feed/FieldNumbers.h"
#include "feed/Value.h"

namespace tivra_internal {
struct UpdateData;
} // namespace tivra_internal

namespace tivra {

class Record;
class SubscriptionView;

/// What has come for a subscription: some fields of one symbol. Handed to a callback and valid during that
/// call only; copy() keeps it.
///
/// A field of the wrong type throws, which ends in FeedOptions::onError if the callback doesn't catch it.
///
/// @thread user
class TIVRA_API Update {
public:
    /// What an update says of its symbol.
    enum class Kind {
        Image,  ///< a part of the present state, after subscribing and after each gap
        Update, ///< what has changed
        Refresh ///< the present state, sent without being asked for
    };

    /// A field and its value.
    using Entry = std::pair<Field, Value>;
    /// Walks over the entries; valid during the callback.
    using const_iterator = EntryIterator<Update>;

    Update(const Update&) = delete;
    Update& operator=(const Update&) = delete;

    /// What the update says of its symbol.
    Kind kind() const noexcept;
    /// Which symbol it is, also for a subscription by pattern. It lives as long as the update.
    std::string_view symbol() const noexcept;
    /// The number of the source; 0 when the message has none.
    int source() const noexcept;
    /// The permission number; 0 when the message has none.
    int permission() const noexcept;
    /// The subscription that this is for.
    SubscriptionView subscription() const noexcept;

    /// When the read from the socket returned that completed the message, by this machine's clock. While the
    /// application is more than a thousand reads late it may be that of a message before. A look at the clock
    /// is all that it costs, and nothing where it isn't called. With the parameter KERNEL_TIMESTAMPS_BOOL it
    /// is when the kernel got the last packet of that read.
    std::chrono::system_clock::time_point receivedAt() const;
    /// When the message was decoded, if it is one of those that are measured (FeedOptions::latencySampling: 1
    /// for all of them); else when this was called first for the message.
    std::chrono::system_clock::time_point decodedAt() const;

    /// The value of a field, if the update has it; the first one where it has several. Value::as lists the
    /// types.
    /// @throws Error (WrongType) when the field holds another type; (InvalidArgument) for a field of another
    /// feed
    template<class T>
    std::optional<T> get(const Field& field) const {
        Value value;
        if (!find(field, value))
            return std::nullopt;
        return value.as<T>();
    }
    /// The same without its type.
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

    /// The message as the hub has sent it: the bytes between the header and the end of its frame, before
    /// anything was taken out of them, with a hub's numbers in place of names. Nothing is copied. Empty where
    /// the update isn't what one such message says. Valid during the callback, as the update is.
    std::string_view body() const noexcept;
    /// What the numbers in body() mean.
    FieldNumbers numbers() const noexcept;

    /// A copy to keep, in one block of memory, which is taken from those of records that have gone.
    Record copy() const;

private:
    friend struct tivra_internal::UpdateData;
    friend const_iterator;

    explicit Update(const tivra_internal::UpdateData& data) noexcept : m_data(data) {}

    bool find(const Field& field, Value& value) const;
    Entry entryAt(std::size_t index) const;

    const tivra_internal::UpdateData& m_data;
};

} // namespace tivra
