#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include <feed/FieldNumbers.h>
#include <feed/Value.h>

#include "feed/FieldTable.h"
#include "kvnparse/Token.h"

namespace KVNAPI {
class Message;
} // namespace KVNAPI

namespace tivra_internal {

class MetaTokenMap;

/// The fields of one hub: which token of its dictionary is which field of the feed. @thread that delivers for
/// the hub, but for typeOf()
class HubFields {
public:
    HubFields(const MetaTokenMap& dictionary, std::shared_ptr<FieldTable> table);
    HubFields(const HubFields&) = delete;
    HubFields& operator=(const HubFields&) = delete;

    /// What a field of that name holds; nothing when the hub has none. @thread any
    [[nodiscard]] std::optional<tivra::Value::Type> typeOf(std::string_view name) const;
    /// See tivra::FieldNumbers. @thread any
    [[nodiscard]] std::uint64_t numbering() const noexcept;
    [[nodiscard]] std::optional<tivra::FieldNumbers::Meaning> meaningOf(int number) const noexcept;
    /// The token of a field, null when the hub has none of that name.
    [[nodiscard]] const KVNAPI::Token* tokenOf(const FieldEntry& field);
    [[nodiscard]] const FieldEntry& fieldOf(const KVNAPI::Token& token) {
        const auto number = static_cast<std::size_t>(token.kvnid);
        if (number < m_entries.size() && m_entries[number].token == &token)
            return *m_entries[number].entry;
        return enter(token);
    }
    /// The hub may have got new fields since.
    void forgetMissing();

    /// The value of one pair. A text lies in the message.
    [[nodiscard]] static tivra::Value valueOf(const KVNAPI::Message& message, int index);

    [[nodiscard]] const std::shared_ptr<FieldTable>& table() const noexcept { return m_table; }

private:
    /// A token that hasn't been looked up, or wasn't there.
    struct Known {
        const KVNAPI::Token* token = nullptr;
        bool isMissing = false;
    };

    struct Named {
        const KVNAPI::Token* token = nullptr;
        const FieldEntry* entry = nullptr;
    };
    /// Tokens of a higher number are looked up by name each time: a hub may choose any number.
    static constexpr std::size_t kMostNumbers = 65'536;

    [[nodiscard]] const FieldEntry& enter(const KVNAPI::Token& token);

    const MetaTokenMap& m_dictionary;
    const std::shared_ptr<FieldTable> m_table;
    std::vector<Known> m_tokens;  ///< by the field's index
    std::vector<Named> m_entries; ///< by the token's number
};

} // namespace tivra_internal
