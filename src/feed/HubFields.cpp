#include "feed/HubFields.h"

#include <utility>

#include "dictionary/MetaToken.h"
#include "dictionary/MetaTokenMap.h"
#include "kvnparse/Message.h"

namespace tivra_internal {
namespace {

using tivra::Value;

[[nodiscard]] bool isTime(KVNType type) noexcept {
    switch (type) {
    case KVN_DATETIME:
    case KVN_DATE:
    case KVN_YEAR:
    case KVN_MONTHYEAR:
        return true;
    default:
        return false;
    }
}

[[nodiscard]] Value::Type typeOfToken(const KVNAPI::Token& token) noexcept {
    switch (token.storage) {
    case KVNAPI::Token::TY_INT:
        return Value::Type::Integer;
    case KVNAPI::Token::TY_DOUBLE:
        return isTime(MetaToken::cast(&token)->getKVNType()) ? Value::Type::Time : Value::Type::Double;
    default:
        return Value::Type::Text;
    }
}

} // namespace

HubFields::HubFields(const MetaTokenMap& dictionary, std::shared_ptr<FieldTable> table)
    : m_dictionary(dictionary), m_table(std::move(table)) {}

std::optional<Value::Type> HubFields::typeOf(std::string_view name) const {
    const KVNAPI::Token* const token = m_dictionary.lookupTokenViaName(name);
    return token != nullptr ? std::optional(typeOfToken(*token)) : std::nullopt;
}

std::uint64_t HubFields::numbering() const noexcept {
    return m_dictionary.fingerprint();
}

std::optional<tivra::FieldNumbers::Meaning> HubFields::meaningOf(int number) const noexcept {
    const KVNAPI::Token* const token = m_dictionary.lookupTokenViaNum(number);
    if (token == nullptr)
        return std::nullopt;
    return tivra::FieldNumbers::Meaning{token->name, typeOfToken(*token)};
}

const KVNAPI::Token* HubFields::tokenOf(const FieldEntry& field) {
    if (field.index >= m_tokens.size())
        m_tokens.resize(field.index + 1);
    Known& known = m_tokens[field.index];
    if (known.token == nullptr && !known.isMissing) {
        known.token = m_dictionary.lookupTokenViaName(std::string_view(field.name));
        known.isMissing = known.token == nullptr;
    }
    return known.token;
}

const FieldEntry& HubFields::enter(const KVNAPI::Token& token) {
    const FieldEntry& entry = m_table->internOfHub(token.name);
    const auto number = static_cast<std::size_t>(token.kvnid);
    if (number >= kMostNumbers)
        return entry;
    if (number >= m_entries.size())
        m_entries.resize(number + 1);
    m_entries[number] = {&token, &entry};
    return entry;
}

void HubFields::forgetMissing() {
    for (Known& known : m_tokens)
        known.isMissing = false;
}

Value HubFields::valueOf(const KVNAPI::Message& message, int index) {
    const KVNAPI::TVPair pair = message.readPair(index);
    switch (typeOfToken(*pair.token)) {
    case Value::Type::Integer:
        return Value::ofInteger(pair.i);
    case Value::Type::Double:
        return Value::ofDouble(pair.d);
    case Value::Type::Time:
        return Value::ofTime(pair.d);
    case Value::Type::Text:
        break;
    }
    return Value::ofText({pair.s.buf, pair.s.len});
}

} // namespace tivra_internal
