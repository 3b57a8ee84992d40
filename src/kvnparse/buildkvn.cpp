#include "kvnparse/buildkvn.h"

#include "kvnparse/EncodeText.h"
#include "kvnparse/Message.h"

#include <tp/te_error.h>

#include <cstdlib>
#include <string_view>

namespace KVNAPI {

namespace {

constexpr char kOptionsHelp[] = "\nAvailable options are:\n"
                                "  AppendHeader=0|1   : Toggle prepending of 6 byte header\n"
                                "  SuppressToken=<id> : Add token with kvnid <id> to suppress list\n"
                                "  SetEOL=<ascii #>   : Set the End-Of-Line character (default 3)";

/// What the header and its pairs take at most, but for the symbol.
constexpr bufref_len_t kHeaderRoom = 127;
constexpr bufref_len_t kHeaderRoomNoPermission = 87;

} // namespace

int buildkvn::setMetaMap(DataMap* map) {
    EncoderTokens tokens;
    if (const int result = tokens.lookUp(map); result != 0)
        return result;
    for (const KVNEncodeRule& rule : kvnEncodeRules()) {
        const Token* const token = map->lookupTokenViaName(rule.name);
        if (token != nullptr && token->storage != rule.storage) {
            tp::te_error("Type mismatch on encode rule token '%s'", rule.name);
            return -1;
        }
    }
    m_tokens = tokens;
    m_funcs.clear();
    for (const KVNEncodeRule& rule : kvnEncodeRules())
        if (Token* const token = map->lookupTokenViaName(rule.name); token != nullptr)
            m_funcs.set(*map, token, rule.encoder);
    for (const std::int32_t id : m_suppressed)
        if (Token* const token = map->lookupTokenViaNum(id); token != nullptr)
            m_funcs.set(*map, token, nullencoder);
    return 0;
}

bufref_len_t buildkvn::headerRoom(const Message& message) const noexcept {
    if (message.permission != nullptr)
        return kHeaderRoom;
    // The source stands there twice at most.
    const bool longId = message.exchange != nullptr && isLongId(*message.exchange);
    return kHeaderRoomNoPermission + (longId ? 2 * kLongIdExtra : 0);
}

char* buildkvn::putHeader(char* out, const Message& message) const noexcept {
    const auto putExchange = [&out](const Token* token, const Exchange& exchange) {
        out = putText(putId(putStart(out, token->sid), exchange), "|");
    };
    if (message.permission != nullptr)
        putExchange(m_tokens.T_PERM, *message.permission);
    if (message.exchange != nullptr) {
        if (addPermToken_ != 0)
            putExchange(m_tokens.T_PERM, *message.exchange);
        putExchange(m_tokens.T_SOURCE, *message.exchange);
    }
    if (message.market != 0)
        out = putText(putBytes(putStart(out, m_tokens.T_MARKET->sid), bufref(&message.market, 1)), "|");
    if (message.symbol.len != 0)
        out = putText(putBytes(putStart(out, m_tokens.T_SYMBOL->sid), message.symbol), "|");
    if (message.isRefresh)
        out = putText(putStart(out, m_tokens.T_REFRESH->sid), "1|");
    return out;
}

char* buildkvn::putPair(char* out, const char* end, const TVPair& pair) {
    if (end - out < kPairRoom)
        return nullptr;
    if (const kvnencoder_t encoder = m_funcs.find(*m_tokens.map, pair.token); encoder != nullptr)
        return encoder(this, out, &pair);
    out = putValue(putStart(out, pair.token->sid), end, pair);
    if (out != nullptr)
        *out++ = '|';
    return out;
}

int buildkvn::encode(bufref* out, const Message* msg) {
    if (!m_tokens.isBound(*this))
        return -1;
    const std::size_t lead = appendHeader_ != 0 ? kKvnHeaderSize : 0;
    const int result = encodeFields(*this, out, *msg, lead, terminator_);
    if (result == 0 && lead != 0)
        writeFrameHeader(out->room(), static_cast<std::uint32_t>(out->len - kKvnFrameExtra));
    return result;
}

int buildkvn::suppress(const char* id) {
    if (m_tokens.map == nullptr) {
        tp::te_seterror("Encoder has no token map");
        return -1;
    }
    Token* const token = m_tokens.map->lookupTokenViaId(id);
    if (token == nullptr) {
        tp::te_error("Token id %s not found", id);
        return -1;
    }
    m_suppressed.push_back(token->kvnid);
    m_funcs.set(*m_tokens.map, token, nullencoder);
    return 0;
}

int buildkvn::setOption(const char* name, const char* value) {
    const std::string_view option(name);
    if (option == "help") {
        tp::te_seterror(kOptionsHelp);
        return -1;
    }
    if (option == "SuppressToken")
        return suppress(value);
    const long number = std::strtol(value, nullptr, 10);
    if (option == "AppendHeader")
        appendHeader_ = static_cast<std::int32_t>(number);
    else if (option == "SetEOL")
        terminator_ = static_cast<char>(number);
    else if (option == "AddPermToken")
        addPermToken_ = static_cast<std::int32_t>(number);
    else {
        tp::te_seterror("Invalid option name");
        return -1;
    }
    return 0;
}

} // namespace KVNAPI
