#include "kvnparse/KVNFields.h"

#include "kvnparse/Denom.h"
#include "kvnparse/KVNParse.h"
#include "kvnparse/Message.h"

namespace KVNAPI {

namespace {

const char* parseAltIndex(KVNParse* parse, Token* token, const char* position) {
    parse->m_msg->isAltIndexPresent = 1;
    return parse->pullDefaultField(token, position);
}

} // namespace

const char* parseExchange(KVNParse* parse, const char* position) {
    Message& message = *parse->m_msg;
    // The header keeps the first source; another one is a field like any other.
    if (message.exchange != nullptr)
        return parse->pullDefaultField(parse->m_ExchangeToken, position);
    std::int64_t number = 0;
    position = parse->readSigned(position, number);
    message.exchange = parse->exchange(number);
    return position;
}

const char* parsePermission(KVNParse* parse, const char* position) {
    Message& message = *parse->m_msg;
    if (message.permission != nullptr)
        return parse->pullDefaultField(parse->m_PermissionToken, position);
    std::int64_t number = 0;
    position = parse->readSigned(position, number);
    message.permission = parse->exchange(number);
    return position;
}

const char* parseSymbol(KVNParse* parse, const char* position) {
    Message& message = *parse->m_msg;
    if (message.symbol.len != 0)
        return parse->pullDefaultField(parse->m_SymbolToken, position);
    const char* const end = parse->valueEnd(position);
    message.symbol = parse->keepText(position, end);
    return end;
}

const char* parseRefresh(KVNParse* parse, const char* position) {
    if (!parse->isValueEnd(position) && *position == '1' && parse->isValueEnd(position + 1)) {
        parse->m_msg->isRefresh = 1;
        return position + 1;
    }
    return parse->pullDefaultField(parse->m_RefreshToken, position);
}

const char* parseDenom(KVNParse* parse, const char* position) {
    std::int64_t code = 0;
    position = parse->readSigned(position, code);
    parse->m_msg->denomcode = Denom::lookupKVNcode(static_cast<std::int32_t>(code));
    return position;
}

const char* parseMarket(KVNParse* parse, const char* position) {
    // The part code is one byte whatever it is, but not the one that ends the frame.
    if (position + 1 >= parse->m_frame.end()) {
        parse->abortAt(position, "Invalid value");
        return nullptr;
    }
    parse->m_msg->market = *position;
    return position + 1;
}

const char* parseRetCode(KVNParse* parse, const char* position) {
    parse->m_msg->isRetCodePresent = 1;
    return parse->pullDefaultField(parse->m_RetCodeToken, position);
}

const char* parseTag(KVNParse* parse, const char* position) {
    parse->m_msg->isTagPresent = 1;
    return parse->pullDefaultField(parse->m_TagToken, position);
}

const char* parseCusip(KVNParse* parse, const char* position) {
    return parseAltIndex(parse, parse->m_CusipToken, position);
}

const char* parseIsin(KVNParse* parse, const char* position) {
    return parseAltIndex(parse, parse->m_IsinToken, position);
}

const char* parseSedol(KVNParse* parse, const char* position) {
    return parseAltIndex(parse, parse->m_SedolToken, position);
}

const char* parseSymBbgTicker(KVNParse* parse, const char* position) {
    return parseAltIndex(parse, parse->m_SymBbgTickerToken, position);
}

const char* parseSymQuinTicker(KVNParse* parse, const char* position) {
    return parseAltIndex(parse, parse->m_SymQuinTickerToken, position);
}

const char* parseProdRoot(KVNParse* parse, const char* position) {
    return parseAltIndex(parse, parse->m_ProdRootToken, position);
}

} // namespace KVNAPI
