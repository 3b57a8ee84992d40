#pragma once

#include <feed/Instrument.h>
#include <feed/Update.h>
#include <feed/Value.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace tivra {

/// What has come for a symbol from the bus: what an Update is for a feed, with fields by their names. Valid
/// during the callback that it is handed to; texts of its values too.
/// @thread reader
class BusUpdate {
public:
    /// A field's name and its value.
    using Entry = std::pair<std::string_view, Value>;

    /// Made by the reader; all that it refers to has to stay.
    BusUpdate(Update::Kind kind, const Instrument& instrument, std::uint64_t epoch, std::uint64_t number,
              std::chrono::system_clock::time_point writtenAt, const std::vector<Entry>& entries)
        : m_kind(kind)
        , m_instrument(instrument)
        , m_epoch(epoch)
        , m_number(number)
        , m_writtenAt(writtenAt)
        , m_entries(entries) {}

    /// What it says of its symbol.
    Update::Kind kind() const noexcept { return m_kind; }
    /// Source and symbol.
    const Instrument& instrument() const noexcept { return m_instrument; }
    /// The number of the source.
    int source() const noexcept { return m_instrument.source; }
    /// Which symbol it is.
    std::string_view symbol() const noexcept { return m_instrument.symbol; }
    /// Of the bridge that has written it; a higher one has taken over from a lower one.
    std::uint64_t epoch() const noexcept { return m_epoch; }
    /// Counts the symbol's updates, images and refreshes within the epoch, from 1.
    std::uint64_t number() const noexcept { return m_number; }
    /// When the bridge has closed the batch or, for the image at the beginning, had the last update in it; by
    /// the clock of its machine.
    std::chrono::system_clock::time_point writtenAt() const noexcept { return m_writtenAt; }

    /// The value of a field, if the update has it; the first one where it has several. Value::as lists the
    /// types.
    /// @throws Error (WrongType) when the field holds another type
    template<class T>
    std::optional<T> get(std::string_view field) const {
        const std::optional<Value> value = get(field);
        if (!value)
            return std::nullopt;
        return value->template as<T>();
    }
    /// The same without its type.
    std::optional<Value> get(std::string_view field) const {
        for (const Entry& entry : m_entries)
            if (entry.first == field)
                return entry.second;
        return std::nullopt;
    }

    /// How many fields it has.
    std::size_t size() const noexcept { return m_entries.size(); }
    /// The fields in the order of the message.
    std::vector<Entry>::const_iterator begin() const noexcept { return m_entries.begin(); }
    /// After the last field.
    std::vector<Entry>::const_iterator end() const noexcept { return m_entries.end(); }

private:
    Update::Kind m_kind;
    const Instrument& m_instrument;
    std::uint64_t m_epoch;
    std::uint64_t m_number;
    std::chrono::system_clock::time_point m_writtenAt;
    const std::vector<Entry>& m_entries;
};

} // namespace tivra
