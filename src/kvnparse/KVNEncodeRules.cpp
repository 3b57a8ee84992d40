#include "kvnparse/KVNEncodeRules.h"

#include "kvnparse/EncodeText.h"
#include "kvnparse/buildkvn.h"

namespace KVNAPI {

namespace {

constexpr KVNEncodeRule kRules[] = {
    {"ACTIVITY.DATETIME", Token::TY_DOUBLE, dateencoder},
    {"QUOTE.DATETIME", Token::TY_DOUBLE, dateencoder},
    {"TRADE.DATETIME", Token::TY_DOUBLE, dateencoder},
    {"SETTLE.DATE", Token::TY_DOUBLE, dateencoder},
    {"PREV.TRADE.DATE", Token::TY_DOUBLE, dateencoder},
    {"CURRENT.DATETIME", Token::TY_DOUBLE, dateencoder},
    {"RECORD.DEL", Token::TY_INT, recdeleteencoder},
    {"CNF.ACTIVITY.DATETIME", Token::TY_INT, intdateencoder},
    {"CNF.QUOTE.DATETIME", Token::TY_INT, intdateencoder},
    {"CNF.TRADE.DATETIME", Token::TY_INT, intdateencoder},
    {"TOKEN.DEL", Token::TY_INT, deleteencoder},
};

} // namespace

std::span<const KVNEncodeRule> kvnEncodeRules() noexcept {
    return kRules;
}

char* nullencoder(buildkvn*, char* out, const TVPair*) {
    return out;
}

char* recdeleteencoder(buildkvn*, char* out, const TVPair* pair) {
    return putText(putStart(out, pair->token->sid), "1|");
}

char* deleteencoder(buildkvn*, char* out, const TVPair* pair) {
    return putText(i64toa(out, pair->i), "=|");
}

char* dateencoder(buildkvn* build, char* out, const TVPair* pair) {
    return putText(build->lastTimestamp.put(putStart(out, pair->token->sid), pair->d), "|");
}

char* intdateencoder(buildkvn* build, char* out, const TVPair* pair) {
    return putText(build->lastIntTimestamp.put(putStart(out, pair->token->sid), pair->i), "|");
}

} // namespace KVNAPI
