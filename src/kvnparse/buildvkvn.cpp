#include "kvnparse/buildvkvn.h"

#include "kvnparse/DataMap.h"
#include "kvnparse/EncodeText.h"
#include "kvnparse/Message.h"

#include <tp/te_error.h>

#include <string_view>

namespace KVNAPI {

namespace {

/// What the pairs of the header take at most, but for the symbol and the ids that are long.
constexpr bufref_len_t kNamedHeaderRoom = 346;
constexpr bufref_len_t kNamedHeaderRoomNoPermission = 273;

bufref_len_t longIdRoom(const Exchange* exchange) noexcept {
    return exchange != nullptr && isLongId(*exchange) ? kLongIdExtra : 0;
}

} // namespace

bufref_len_t buildvkvn::headerRoom(const Message& message) noexcept {
    return (message.permission != nullptr ? kNamedHeaderRoom : kNamedHeaderRoomNoPermission) +
           longIdRoom(message.permission) + longIdRoom(message.exchange);
}

char* buildvkvn::putName(char* out, const Token* token) const noexcept {
    return putStart(out, m_tokens.map->getShortName(token));
}

char* buildvkvn::putHeader(char* out, const Message& message) const noexcept {
    const auto putExchange = [&](const Token* token, const Exchange* exchange) {
        if (exchange == nullptr)
            return;
        out = putId(putName(out, token), *exchange);
        *out++ = sep_;
    };
    const auto putField = [&](bool present, const Token* token, bufref value) {
        if (!present)
            return;
        out = putBytes(putName(out, token), value);
        *out++ = sep_;
    };
    putExchange(m_tokens.T_SOURCE, message.exchange);
    putExchange(m_tokens.T_PERM, message.permission);
    putField(message.market != 0, m_tokens.T_MARKET, bufref(&message.market, 1));
    putField(message.symbol.len != 0, m_tokens.T_SYMBOL, message.symbol);
    putField(message.isRefresh, m_tokens.T_REFRESH, bufref("1", 1));
    return out;
}

char* buildvkvn::putPair(char* out, const char* end, const TVPair& pair) const {
    if (end - out < kPairRoom)
        return nullptr;
    out = putValue(putName(out, pair.token), end, pair);
    if (out != nullptr)
        *out++ = sep_;
    return out;
}

int buildvkvn::encode(bufref* out, const Message* msg) {
    if (!m_tokens.isBound(*this))
        return -1;
    return encodeFields(*this, out, *msg, 0, eol_);
}

int buildvkvn::setOption(const char* name, const char*) {
    tp::te_seterror(std::string_view(name) == "help" ? "No options supported by this parser"
                                                     : "Invalid option name");
    return -1;
}

} // namespace KVNAPI
