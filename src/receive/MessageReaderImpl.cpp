#include "receive/MessageReaderImpl.h"

#include "dictionary/MetaTokenMap.h"

namespace tivra_internal {
namespace {

tivra::ValueTypes valueTypeOf(KVNType type) noexcept {
    switch (type) {
    case KVN_STRING:
        return tivra::STRING;
    case KVN_BOOL:
    case KVN_INTEGER:
        return tivra::INT64;
    case KVN_FLOAT:
        return tivra::DOUBLE;
    case KVN_DATETIME:
    case KVN_DATE:
    case KVN_YEAR:
    case KVN_MONTHYEAR:
        return tivra::DATETIME;
    }
    return tivra::UNKNOWN;
}

} // namespace

bool MessageReaderImpl::find(int token) noexcept {
    if (msg == nullptr || m_dicMap == nullptr)
        return false;
    const KVNAPI::Token* const field = m_dicMap->lookupTokenViaNum(token);
    if (field == nullptr)
        return false;
    const int position = msg->findPosition(field);
    if (position < 0)
        return false;
    pos = position;
    return true;
}

std::string_view MessageReaderImpl::getTokenName() const noexcept {
    const KVNAPI::Token* const token = currentToken();
    return token != nullptr ? token->name : "UNKNOWN";
}

tivra::ValueTypes MessageReaderImpl::getValueType() const noexcept {
    const KVNAPI::Token* const token = currentToken();
    return token != nullptr ? valueTypeOf(MetaToken::cast(token)->getKVNType()) : tivra::UNKNOWN;
}

int64_t MessageReaderImpl::getValueAsInteger() const noexcept {
    return isReadable() ? integerOf(currentPair()) : -1;
}

double MessageReaderImpl::getValueAsDouble() const noexcept {
    return isReadable() ? doubleOf(currentPair()) : -1.0;
}

std::string_view MessageReaderImpl::getValueAsString(NumberText& room) const noexcept {
    return isReadable() ? textOf(currentPair(), room) : std::string_view();
}

tivra::DateTime MessageReaderImpl::getValueAsDateTime() const noexcept {
    return tivra::DateTime(currentToken() != nullptr ? getValueAsDouble() : 0.0);
}

} // namespace tivra_internal
