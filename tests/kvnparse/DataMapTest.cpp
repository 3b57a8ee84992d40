#include "ParserTestKit.h"

#include "kvnparse/DataMap.h"
#include "kvnparse/DataMapTools.h"
#include "kvnparse/KVNParse.h"

#include <tp/te_error.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

using KVNAPI::DataMap;
using KVNAPI::DataMapTools;
using KVNAPI::Exchange;
using KVNAPI::Token;
using testing::HasSubstr;
using testing::StrEq;

Token tokenOf(int number, const char* name, Token::Storage storage = Token::TY_INT, bool price = false) {
    Token token;
    token.kvnid = number;
    token.name = name;
    token.storage = storage & 3U;
    token.priceNormalize = price ? 1 : 0;
    return token;
}

TEST(DataMap, RegistersCopiesThatAreFoundByEachKey) {
    DataMap map;
    std::string name(64, 'n');
    Token token = tokenOf(-2147483647 - 1, name.c_str(), Token::TY_DOUBLE, true);
    token.hidden = 1;
    token.passthrough = 1;
    Token* const added = map.addToken(&token);
    ASSERT_NE(added, nullptr);
    EXPECT_NE(added, &token);
    EXPECT_STREQ(added->sid, "-2147483648");
    EXPECT_TRUE(added->hidden && added->passthrough && added->priceNormalize);
    const std::string kept = name;
    name.assign(64, 'x');
    EXPECT_EQ(added->name, kept);
    EXPECT_EQ(map.lookupTokenViaNum(-2147483647 - 1), added);
    EXPECT_EQ(map.lookupTokenViaName(kept.c_str()), added);
    EXPECT_EQ(map.lookupTokenViaId("-2147483648"), added);
    EXPECT_EQ(map.lookupTokenViaNum(0), nullptr);
}

TEST(DataMap, RefusesTokensInTheOrderOfItsRules) {
    DataMap map;
    const Token first = tokenOf(1, "A");
    ASSERT_NE(map.addToken(&first), nullptr);
    const std::string longName(65, 'n');
    const struct {
        Token token;
        const char* error;
    } rows[] = {
        {tokenOf(1, "A"), "Duplicate token id 1"},
        {tokenOf(1, longName.c_str(), Token::TY_STRING, true), "Duplicate token id 1"},
        {tokenOf(2, "A", Token::TY_STRING, true), "Duplicate token name A"},
        {tokenOf(2, longName.c_str(), Token::TY_STRING, true), "Token name too large"},
        {tokenOf(2, "B", Token::TY_STRING, true), "Token B set to normalize but not double"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(map.addToken(&row.token), nullptr);
        EXPECT_THAT(tp::te_geterror(), StrEq(row.error));
    }
    EXPECT_EQ(map.tokenCount(), 1U);
}

TEST(DataMap, TextOfANumberIsReadWithItsSign) {
    kvnparse_test::TestMap map;
    const auto numberOf = [&map](const char* text) {
        const Token* const token = map.lookupTokenViaId(text);
        return token != nullptr ? token->kvnid : -1;
    };
    EXPECT_EQ(numberOf("5026"), 5026);
    EXPECT_EQ(numberOf("+7x"), 7);
    EXPECT_EQ(numberOf("-7"), -1);
    EXPECT_EQ(numberOf("4294967301"), -1) << "a number of more than 32 bits must not wrap to a token";
    EXPECT_EQ(numberOf("abc"), -1);
    Token* const zero = map.add(0, "ZERO", Token::TY_INT);
    for (const char* const text : {"", "abc", "+", "-", "0"})
        EXPECT_EQ(map.lookupTokenViaId(text), zero) << text;
}

TEST(DataMap, TypedAndManyLookUpsSayWhatIsMissing) {
    kvnparse_test::TestMap map;
    EXPECT_EQ(map.lookupTypedTokenViaName("BID", Token::TY_INT), nullptr);
    EXPECT_STREQ(tp::te_geterror(), "Token BID has type 1 not 0");
    EXPECT_NE(map.lookupTypedTokenViaName("BID", DataMap::TY_ANY), nullptr);
    Token* first = nullptr;
    Token* second = nullptr;
    const DataMap::lookup rows[] = {{"BID", Token::TY_DOUBLE, &first}, {"NONE", DataMap::TY_ANY, &second}};
    EXPECT_EQ(map.lookupMany(rows, 2), -1);
    EXPECT_STREQ(tp::te_geterror(), "Token NONE not found");
    EXPECT_EQ(first, map.lookupTokenViaNum(8));
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(map.lookupMany(rows, 0), 0);
}

TEST(DataMap, ShortNamesBelongToRegisteredTokens) {
    kvnparse_test::TestMap map;
    Token* const bid = map.lookupTokenViaNum(8);
    EXPECT_STREQ(map.getShortName(bid), "BID");
    EXPECT_EQ(map.setShortName(bid, std::string(65, 's').c_str()), -1);
    EXPECT_STREQ(tp::te_geterror(), "Short name too large");
    EXPECT_EQ(map.setShortName(bid, std::string(64, 's').c_str()), 0);
    EXPECT_EQ(map.getShortName(bid), std::string(64, 's'));
    // Neither a nameless token nor one of another map that has the same name.
    Token stranger = tokenOf(8, "BID");
    EXPECT_STREQ(map.getShortName(&stranger), "BID");
    for (const char* const name : {static_cast<const char*>("BID"), static_cast<const char*>(nullptr)}) {
        stranger.name = name;
        EXPECT_EQ(map.setShortName(&stranger, "b"), -1);
        EXPECT_STREQ(tp::te_geterror(), "Token not registered");
    }
    EXPECT_STREQ(map.getShortName(&stranger), "");
}

TEST(DataMap, CopyTakesTokensAndSerialIdsButStartsItsCounterAgain) {
    kvnparse_test::TestMap source;
    Token* const bid = source.lookupTokenViaNum(8);
    ASSERT_EQ(source.createTokenSerialId(source.lookupTokenViaNum(1)), 0);
    ASSERT_EQ(source.createTokenSerialId(bid), 1);
    ASSERT_EQ(source.setShortName(bid, "b"), 0);
    (void)source.lookupExchange(5);
    DataMap map;
    const Token gone = tokenOf(999, "GONE");
    ASSERT_NE(map.addToken(&gone), nullptr);
    const auto generation = map.generation();
    map.copy(&source);
    EXPECT_NE(map.generation(), generation);
    EXPECT_EQ(map.tokenCount(), source.tokenCount());
    EXPECT_EQ(map.exchangeCount(), 0U);
    EXPECT_EQ(map.lookupTokenViaNum(999), nullptr);
    Token* const copied = map.lookupTokenViaNum(8);
    ASSERT_NE(copied, bid);
    EXPECT_EQ(map.createTokenSerialId(copied), 1);
    EXPECT_STREQ(map.getShortName(copied), "BID");
    EXPECT_EQ(map.createTokenSerialId(map.lookupTokenViaNum(2)), 0);
    map.copy(&map);
    EXPECT_EQ(map.lookupTokenViaNum(8), copied);
}

TEST(DataMap, IteratorsSeeEachObjectOnceAcrossGrowth) {
    DataMap map;
    std::set<Token*> added;
    std::set<Exchange*> exchanges;
    for (int i = 0; i < 3000; ++i) {
        const std::string name = "T" + std::to_string(i);
        const Token token = tokenOf(i * 64, name.c_str());
        added.insert(map.addToken(&token));
        exchanges.insert(map.lookupExchange(i - 1500));
    }
    std::set<Token*> seen;
    DataMap::iterator tokens(&map);
    while (Token* const token = tokens.next())
        EXPECT_TRUE(seen.insert(token).second);
    EXPECT_EQ(seen, added);
    std::set<Exchange*> exchangesSeen;
    DataMap::exchangeIterator iterator(&map);
    while (Exchange* const exchange = iterator.next())
        EXPECT_TRUE(exchangesSeen.insert(exchange).second);
    EXPECT_EQ(exchangesSeen, exchanges);
    EXPECT_EQ(exchanges.size(), 3000U);
    char report[1024];
    map.hashStats(report, sizeof report);
    EXPECT_THAT(report, testing::MatchesRegex("Tokens: found=3000(.|\n)*Token names: found=3000(.|\n)*"
                                              "Source ids: found=3000(.|\n)*"));
    map.hashStats(report, 10);
    EXPECT_STREQ(report, "Tokens: f");
}

/// A map that registers and refuses by itself, as derived maps may.
class WilfulMap : public DataMap {
public:
    Token* newToken(const Token* token) override {
        if (token->kvnid == 1)
            return nullptr;
        if (token->kvnid == 2 && !m_inside) {
            m_inside = true;
            return addToken(token);
        }
        return DataMap::newToken(token);
    }
    Exchange* newExchange(const Exchange* exchange) override {
        if (exchange->id == 1)
            return nullptr;
        if (exchange->id == 2 && !m_inside) {
            m_inside = true;
            (void)lookupExchange(2);
            return DataMap::newExchange(exchange);
        }
        return DataMap::newExchange(exchange);
    }
    bool m_inside = false;
};

TEST(DataMap, HooksMayRefuseOrRegisterByThemselves) {
    WilfulMap map;
    const Token refused = tokenOf(1, "A");
    EXPECT_EQ(map.addToken(&refused), nullptr);
    const Token own = tokenOf(2, "B");
    Token* const added = map.addToken(&own);
    EXPECT_EQ(added, map.lookupTokenViaName("B"));
    EXPECT_EQ(map.tokenCount(), 1U);
    map.m_inside = false;
    EXPECT_EQ(map.lookupExchange(1), nullptr);
    Exchange* permission = nullptr;
    EXPECT_EQ(DataMapTools::parsePerm("1", &map, permission), -1);
    EXPECT_STREQ(tp::te_geterror(), "Permission '1' out of range.");
    Exchange* const exchange = map.lookupExchange(2);
    EXPECT_EQ(map.lookupExchange(2), exchange);
    EXPECT_EQ(map.exchangeCount(), 1U);
}

TEST(DataMap, ReadersFindWhatIsThereWhileAnotherThreadInserts) {
    constexpr int KNOWN = 50;
    constexpr int ADDED = 20000;
    DataMap map;
    for (int i = 0; i < KNOWN; ++i) {
        const std::string name = "K" + std::to_string(i);
        const Token token = tokenOf(i, name.c_str());
        ASSERT_NE(map.addToken(&token), nullptr);
        (void)map.lookupExchange(i);
    }
    std::atomic<bool> done{false};
    std::atomic<int> missed{0};
    std::vector<std::thread> readers;
    for (int thread = 0; thread < 2; ++thread)
        readers.emplace_back([&] {
            do {
                for (int i = 0; i < KNOWN; ++i) {
                    const Token* const token = map.lookupTokenViaNum(i);
                    if (token == nullptr || token->kvnid != i ||
                        map.lookupTokenViaName(std::string("K" + std::to_string(i))) != token)
                        ++missed;
                    // Both insert exchanges; all must agree on one object for each.
                    if (map.lookupExchange(KNOWN + i) != map.lookupExchange(KNOWN + i))
                        ++missed;
                }
            } while (!done.load());
        });
    for (int i = 0; i < ADDED; ++i) {
        const std::string name = "N" + std::to_string(i);
        const Token token = tokenOf(KNOWN + i, name.c_str());
        Token* const added = map.addToken(&token);
        (void)map.createTokenSerialId(added);
        (void)map.lookupExchange(i);
    }
    done.store(true);
    for (std::thread& reader : readers)
        reader.join();
    EXPECT_EQ(missed.load(), 0);
    EXPECT_EQ(map.exchangeCount(), static_cast<std::size_t>(ADDED));
}

TEST(Exchange, RangesOfTheOlderNumberingAndText) {
    const struct {
        int id;
        bool finance;
        bool news;
        const char* sid;
    } rows[] = {{37, true, false, "37"},        {64, false, false, "64"},
                {31, false, true, "31"},        {5, false, true, "5"},
                {6, true, false, "6"},          {32, false, false, "32"},
                {33, true, false, "33"},        {58, true, false, "58"},
                {59, false, false, "59"},       {1018, true, false, "1018"},
                {1025, false, false, "1025"},   {4096, false, false, "4096"},
                {4097, false, true, "4097"},    {50752, false, true, "50752"},
                {50753, false, false, "50753"}, {-999999, false, false, "-999999"},
                {10000000, false, false, ""}};
    for (const auto& row : rows) {
        const Exchange exchange(row.id);
        EXPECT_EQ(exchange.lgcyFinance != 0, row.finance) << row.id;
        EXPECT_EQ(exchange.lgcyNews != 0, row.news) << row.id;
        EXPECT_STREQ(exchange.sid, row.sid);
    }
}

TEST(Exchange, LegacyTextIsTwoDigitsAndPerhapsALetter) {
    DataMap map;
    const struct {
        const char* text;
        int id; // -1: refused
    } rows[] = {{"0x21", 33}, {"0X21", 33}, {"21", 33}, {"21a", 1057}, {"21z", 1082}, {"05", 5},
                {"2g", 48},   {"7f", 127},  {"80", -1}, {"5", -1},     {"", -1},      {"0x", -1},
                {"21A", -1},  {"21ab", -1}, {"zz", -1}, {"-1", -1}};
    for (const auto& row : rows) {
        const Exchange* const exchange = map.lookupLegacyExchange(row.text);
        EXPECT_EQ(exchange != nullptr ? exchange->id : -1, row.id) << row.text;
        if (row.id < 0) {
            ASSERT_EQ(std::string("Invalid exchange id (") + row.text + ")", tp::te_geterror());
        }
    }
}

TEST(DataMapTools, ReadNumbersNamesAndExchanges) {
    kvnparse_test::TestMap map;
    const struct {
        const char* text;
        int result;
        int out;
    } rows[] = {{"7", 0, 7},  {"+7", 0, 7},  {"-7", -1, -7}, {"0", -1, 0},
                {"-", -1, 0}, {"7x", -1, 7}, {"", -1, 0},    {"99999999999", -1, 2147483647}};
    for (const auto& row : rows) {
        int out = -100;
        EXPECT_EQ(DataMapTools::parseId(row.text, &map, nullptr, out), row.result) << row.text;
        EXPECT_EQ(out, row.out) << row.text;
        Exchange* exchange = nullptr;
        EXPECT_EQ(DataMapTools::parsePerm(row.text, &map, exchange), row.result) << row.text;
        EXPECT_EQ(exchange != nullptr, row.result == 0);
    }
    EXPECT_STREQ(tp::te_geterror(), "Permission '99999999999' out of range.");
    int out = 0;
    EXPECT_EQ(DataMapTools::parseToken("QUERY.TAG", &map, nullptr, out), 0);
    EXPECT_EQ(out, 5026);
    EXPECT_EQ(DataMapTools::parseToken("NONE", &map, nullptr, out), -1);
    EXPECT_STREQ(tp::te_geterror(), "Token name 'NONE' is unknown.");
    Exchange* exchange = nullptr;
    EXPECT_EQ(DataMapTools::parseExch("21a", &map, exchange), 0);
    EXPECT_EQ(exchange, map.lookupExchange(1057));
    EXPECT_EQ(DataMapTools::parseExch("5", &map, exchange), -1);
    EXPECT_STREQ(tp::te_geterror(), "Exchange ID '5' out of range.");
}

} // namespace
