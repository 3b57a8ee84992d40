#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "TivraApi.h"
#include "feed/Field.h"

namespace tivra_internal {
struct EnumerationTexts;
} // namespace tivra_internal

namespace tivra {

class Snapshot;

/// What the numbers of enumerated fields stand for, as the dictionary of a hub has it: that
/// "ENUM.TRADING.STATUS" 3 is "HALTED", for example. Got from Feed::enumerations; a value that may be kept,
/// and whose copies share their texts. A hub that comes back with another dictionary changes nothing in it.
/// @thread any
class TIVRA_API Enumerations {
public:
    /// One that knows nothing.
    Enumerations();
    /// Out of the answers to Feed::list of ListOf::Fields and of ListOf::Enumerations: for who doesn't want
    /// to wait in Feed::enumerations. Records that aren't what such an answer has are left out.
    Enumerations(const Snapshot& fields, const Snapshot& values);
    /// Moving copies, so that one that was moved from still knows what it did.
    Enumerations(const Enumerations&) = default;
    /// Shares the texts of the other one; texts that textOf() gave of the former ones may go.
    Enumerations& operator=(const Enumerations&) = default;
    ~Enumerations() = default;

    /// How many fields are enumerated.
    std::size_t size() const noexcept;
    /// Whether a field is one of them.
    bool has(const Field& field) const;

    /// What a number stands for. It lives as long as this or a copy.
    /// @return empty for a number or a field that the dictionary has no text for
    std::string_view textOf(const Field& field, std::int64_t value) const;
    /// The number of a text, as the dictionary writes it.
    std::optional<std::int64_t> valueOf(const Field& field, std::string_view text) const;

    /// The text of the number that an Update, Record or Snapshot has in a field; the number itself where it
    /// has no text.
    /// @return nothing where the field isn't there
    /// @throws Error (WrongType) when the field is no integer
    template<class Values>
    std::optional<std::string> textIn(const Values& values, const Field& field) const {
        const std::optional<std::int64_t> value = values.template get<std::int64_t>(field);
        if (!value)
            return std::nullopt;
        const std::string_view text = textOf(field, *value);
        return text.empty() ? std::to_string(*value) : std::string(text);
    }

private:
    std::shared_ptr<const tivra_internal::EnumerationTexts> m_texts;
};

} // namespace tivra
