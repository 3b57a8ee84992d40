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
#include <utility>
#include <vector>

namespace {

using namespace KVNAPI;
using namespace kvnparse_test;

Token tokenOf(int number, const char* name, Token::Storage storage = Token::TY_INT, bool price = false) {
    Token token;
    token.kvnid = number;
    token.name = name;
    token.storage = storage & 3U;
    token.priceNormalize = price ? 1 : 0;
    return token;
}

/// Registers a token of that number, which is in its name, too.
Token* addNumbered(DataMap& map, int number) {
    const std::string name = "T" + std::to_string(number);
    const Token token = tokenOf(number, name.c_str());
    return map.addToken(&token);
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
        EXPECT_STREQ(tp::te_geterror(), row.error);
    }
    EXPECT_EQ(map.tokenCount(), 1U);
}

TEST(DataMap, TextOfANumberIsReadWithItsSign) {
    TestMap map;
    EXPECT_EQ(map.lookupTokenViaId("5026"), map.lookupTokenViaNum(5026));
    EXPECT_EQ(map.lookupTokenViaId("+7x"), map.lookupTokenViaNum(7));
    for (const char* const text : {"-7", "abc", "4294967301"}) // the last would wrap to a token in 32 bits
        EXPECT_EQ(map.lookupTokenViaId(text), nullptr) << text;
    Token* const zero = map.add(0, "ZERO", Token::TY_INT);
    for (const char* const text : {"", "abc", "+", "-", "0"})
        EXPECT_EQ(map.lookupTokenViaId(text), zero) << text;
}

TEST(DataMap, TypedAndManyLookUpsSayWhatIsMissing) {
    TestMap map;
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
    TestMap map;
    Token* const bid = map.lookupTokenViaNum(8);
    EXPECT_STREQ(map.getShortName(bid), "BID");
    EXPECT_EQ(map.setShortName(bid, std::string(65, 's').c_str()), -1);
    EXPECT_STREQ(tp::te_geterror(), "Short name too large");
    EXPECT_EQ(map.setShortName(bid, std::string(64, 's').c_str()), 0);
    EXPECT_EQ(map.getShortName(bid), std::string(64, 's'));
    // Neither a nameless token nor one of another map that has the same name.
    Token stranger = tokenOf(8, "BID");
    EXPECT_STREQ(map.getShortName(&stranger), "BID");
    EXPECT_EQ(map.setShortName(&stranger, "b"), -1);
    stranger.name = nullptr;
    EXPECT_EQ(map.setShortName(&stranger, "b"), -1);
    EXPECT_STREQ(tp::te_geterror(), "Token not registered");
    EXPECT_STREQ(map.getShortName(&stranger), "");
}

TEST(DataMap, CopyTakesTokensAndSerialIdsButStartsItsCounterAgain) {
    TestMap source;
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
        added.insert(addNumbered(map, i * 64));
        exchanges.insert(map.lookupExchange(i - 1500));
    }
    ASSERT_EQ(added.size(), 3000U);
    ASSERT_EQ(exchanges.size(), 3000U);
    // Each is struck off once, so none is met twice.
    DataMap::iterator tokens(&map);
    while (Token* const token = tokens.next())
        EXPECT_EQ(added.erase(token), 1U);
    DataMap::exchangeIterator iterator(&map);
    while (Exchange* const exchange = iterator.next())
        EXPECT_EQ(exchanges.erase(exchange), 1U);
    EXPECT_TRUE(added.empty() && exchanges.empty());
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
        if (token->kvnid == 2 && !std::exchange(m_inside, true))
            return addToken(token);
        return DataMap::newToken(token);
    }
    Exchange* newExchange(const Exchange* exchange) override {
        if (exchange->id == 1)
            return nullptr;
        if (exchange->id == 2 && !std::exchange(m_inside, true))
            (void)lookupExchange(2);
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
        addNumbered(map, i);
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
                        map.lookupTokenViaName("T" + std::to_string(i)) != token)
                        ++missed;
                    // Both insert exchanges; all must agree on one object for each.
                    if (map.lookupExchange(KNOWN + i) != map.lookupExchange(KNOWN + i))
                        ++missed;
                }
            } while (!done.load());
        });
    for (int i = 0; i < ADDED; ++i) {
        (void)map.createTokenSerialId(addNumbered(map, KNOWN + i));
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
    } rows[] = {{31, false, true},     {5, false, true},       {6, true, false},    {32, false, false},
                {33, true, false},     {58, true, false},      {59, false, false},  {1018, true, false},
                {1025, false, false},  {4096, false, false},   {4097, false, true}, {50752, false, true},
                {50753, false, false}, {-999999, false, false}};
    for (const auto& row : rows) {
        const Exchange exchange(row.id);
        EXPECT_EQ(exchange.lgcyFinance != 0, row.finance) << row.id;
        EXPECT_EQ(exchange.lgcyNews != 0, row.news) << row.id;
        EXPECT_EQ(exchange.sid, std::to_string(row.id));
    }
    EXPECT_STREQ(Exchange(10000000).sid, "") << "too long for its text";
}

TEST(Exchange, LegacyTextIsTwoDigitsAndPerhapsALetter) {
    DataMap map;
    const struct {
        const char* text;
        int id; // -1: refused
    } rows[] = {{"0x21", 33}, {"0X21", 33}, {"21", 33},   {"21a", 1057}, {"21z", 1082},
                {"05", 5},    {"7f", 127},  {"80", -1},   {"5", -1},     {"", -1},
                {"0x", -1},   {"21A", -1},  {"21ab", -1}, {"zz", -1},    {"-1", -1}};
    for (const auto& row : rows) {
        Exchange* exchange = nullptr;
        EXPECT_EQ(DataMapTools::parseExch(row.text, &map, exchange), row.id < 0 ? -1 : 0) << row.text;
        EXPECT_EQ(exchange != nullptr ? exchange->id : -1, row.id) << row.text;
    }
    EXPECT_STREQ(tp::te_geterror(), "Exchange ID '-1' out of range.");
    EXPECT_EQ(map.lookupLegacyExchange("-1"), nullptr);
    EXPECT_STREQ(tp::te_geterror(), "Invalid exchange id (-1)");
}

TEST(DataMapTools, ReadNumbersAndNames) {
    TestMap map;
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
}

} // namespace
