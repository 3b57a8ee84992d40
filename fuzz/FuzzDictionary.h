#pragma once

#include "kvnparse/DataMap.h"

namespace fuzz {

/// One field of the dictionary that all targets use: everything that the parser treats specially, and fields
/// of each storage.
struct Field {
    int id;
    const char* name;
    unsigned storage;
};

inline constexpr Field FIELDS[] = {
    {3, "PERMISSION", KVNAPI::Token::TY_INT},
    {4, "ENUM.SRC.ID", KVNAPI::Token::TY_INT},
    {5, "SYMBOL.TICKER", KVNAPI::Token::TY_STRING},
    {7, "REFRESH", KVNAPI::Token::TY_INT},
    {8, "ENUM.DISPLAY.PRECISION", KVNAPI::Token::TY_INT},
    {9, "PART.CODE", KVNAPI::Token::TY_STRING},
    {10, "BID", KVNAPI::Token::TY_DOUBLE},
    {11, "BID.SIZE", KVNAPI::Token::TY_INT},
    {12, "ASK", KVNAPI::Token::TY_DOUBLE},
    {13, "ASK.SIZE", KVNAPI::Token::TY_INT},
    {14, "TRADE.PRICE", KVNAPI::Token::TY_DOUBLE},
    {15, "TRADE.SIZE", KVNAPI::Token::TY_INT},
    {16, "TRADE.CONDITION", KVNAPI::Token::TY_STRING},
    {17, "TRADE.TIME", KVNAPI::Token::TY_DOUBLE},
    {40, "CUSIP", KVNAPI::Token::TY_STRING},
    {41, "ISIN", KVNAPI::Token::TY_STRING},
    {42, "SEDOL", KVNAPI::Token::TY_STRING},
    {43, "SYMBOL.BLOOMBERG.TICKER", KVNAPI::Token::TY_STRING},
    {44, "SYMBOL.QUINTAL.TICKER", KVNAPI::Token::TY_STRING},
    {45, "PRODUCT.ROOT", KVNAPI::Token::TY_STRING},
    {5001, "ENUM.QUERY.STATUS", KVNAPI::Token::TY_INT},
    {5004, "TOKEN.DEL", KVNAPI::Token::TY_INT},
    {5026, "QUERY.TAG", KVNAPI::Token::TY_INT},
    {45028, "UNKNOWNTOKEN", KVNAPI::Token::TY_STRING},
    {45029, "UNKNOWNSVALUE", KVNAPI::Token::TY_STRING},
    {2000000000, "FAR.NUMBER", KVNAPI::Token::TY_DOUBLE},
};

/// Whether the map below takes that source: a map that grew for ever would end a long run, and some sources
/// refused tests that road as well.
[[nodiscard]] constexpr bool isAcceptedSource(int id) noexcept {
    return id >= -100 && id <= 5000 && id % 7 != 3;
}

class Map final : public KVNAPI::DataMap {
public:
    /// Fills the map; false when a field was refused.
    [[nodiscard]] bool fill() {
        for (const Field& field : FIELDS) {
            KVNAPI::Token token;
            token.kvnid = field.id;
            token.name = field.name;
            token.storage = field.storage & 3;
            if (addToken(&token) == nullptr)
                return false;
        }
        return true;
    }

protected:
    KVNAPI::Exchange* newExchange(const KVNAPI::Exchange* exchange) override {
        return isAcceptedSource(exchange->id) ? DataMap::newExchange(exchange) : nullptr;
    }
};

} // namespace fuzz
