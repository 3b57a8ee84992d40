#pragma once

#include "kvnparse/DataMap.h"
#include "kvnparse/Exchange.h"
#include "kvnparse/ParserTestKit.h"

namespace fuzz {

/// The dictionary that all targets use: everything that the parser and the encoders treat specially, and
/// fields of each storage.
class Map : public kvnparse_test::TextMap {
public:
    Map() {
        addAll(KVNAPI::Token::TY_INT,
               "3 PERMISSION  4 ENUM.SRC.ID  7 REFRESH  8 ENUM.DISPLAY.PRECISION "
               "11 BID.SIZE  13 ASK.SIZE  15 TRADE.SIZE  19 CNF.TRADE.DATETIME "
               "5001 ENUM.QUERY.STATUS  5004 TOKEN.DEL  5005 RECORD.DEL  5026 QUERY.TAG");
        addAll(KVNAPI::Token::TY_DOUBLE, "6 TRADE.DATETIME  10 BID  12 ASK  14 TRADE.PRICE  17 TRADE.TIME "
                                         "18 SETTLE.DATE  2000000000 FAR.NUMBER");
        addAll(KVNAPI::Token::TY_STRING,
               "5 SYMBOL.TICKER  9 PART.CODE  16 TRADE.CONDITION  40 CUSIP  41 ISIN "
               "42 SEDOL  43 SYMBOL.BLOOMBERG.TICKER  44 SYMBOL.QUINTAL.TICKER "
               "45 PRODUCT.ROOT  45028 UNKNOWNTOKEN  45029 UNKNOWNSVALUE");
        static_cast<void>(setShortName(lookupTokenViaNum(10), "b"));
    }

protected:
    /// A map that grew for ever would end a long run, and some sources refused test that as well.
    KVNAPI::Exchange* newExchange(const KVNAPI::Exchange* exchange) override {
        return exchangeCount() < 50000 && exchange->id % 7 != 3 ? DataMap::newExchange(exchange) : nullptr;
    }
};

inline Map& dictionary() {
    static Map map;
    return map;
}

} // namespace fuzz
