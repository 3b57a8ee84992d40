#include "dictionary/MetaTokenMap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>

#include "dictionary/BootstrapDictionary.h"

namespace tivra_internal {
namespace {

std::unique_ptr<MetaToken> makeToken(int number, const std::string& name, const std::string& type) {
    auto token = std::make_unique<MetaToken>();
    token->setKVNToken(number);
    token->setTokenName(name.data(), static_cast<long>(name.size()));
    static_cast<void>(token->setKVNType(type.data(), static_cast<long>(type.size())));
    return token;
}

TEST(MetaToken, TypeWordsDecideMeaningAndStorageOthersChangeNothing) {
    struct Case {
        const char* word;
        KVNType type;
        unsigned storage;
    };
    const Case cases[] = {
        {"STRING", KVN_STRING, TOK_STR},        {"BOOL", KVN_BOOL, TOK_INT},
        {"DATETIME", KVN_DATETIME, TOK_DOUBLE}, {"FLOAT", KVN_FLOAT, TOK_DOUBLE},
        {"INTEGER", KVN_INTEGER, TOK_INT},      {"DATE", KVN_DATE, TOK_DOUBLE},
        {"YEAR", KVN_YEAR, TOK_DOUBLE},         {"MONTHYEAR", KVN_MONTHYEAR, TOK_DOUBLE},
        {"string", KVN_STRING, TOK_INT},        {"FLOAT ", KVN_STRING, TOK_INT},
        {"DATETIM", KVN_STRING, TOK_INT},       {"", KVN_STRING, TOK_INT},
    };
    for (const Case& c : cases) {
        const auto token = makeToken(1, "X", c.word);
        EXPECT_EQ(token->getKVNType(), c.type) << c.word;
        EXPECT_EQ(token->storage, c.storage) << c.word;
    }
}

TEST(MetaTokenMap, StartsWithTheBootstrapTableInAscendingNumber) {
    MetaTokenMap map;
    int previous = 0;
    size_t rows = 0;
    for (const BootstrapToken& row : BOOTSTRAP_DICTIONARY) {
        if (row.number == 0)
            break;
        ++rows;
        EXPECT_GT(row.number, previous);
        previous = row.number;
        const MetaToken* const token = MetaToken::cast(map.lookupTokenViaNum(row.number));
        ASSERT_NE(token, nullptr) << row.number;
        EXPECT_EQ(token, map.lookupTokenViaName(row.name));
        EXPECT_STREQ(token->name, std::string(row.name).c_str());
        EXPECT_EQ(token->getTokenLength(), row.length);
        const unsigned storage = row.typeWord == "STRING" ? TOK_STR : TOK_INT;
        EXPECT_EQ(token->storage, storage) << row.name;
    }
    EXPECT_EQ(rows, 23U);
    EXPECT_EQ(map.tokenCount(), rows);
}

TEST(MetaTokenMap, AdoptsATokenOrLeavesItWithTheCaller) {
    MetaTokenMap map;
    auto token = makeToken(100, "TRADE.PRICE", "FLOAT");
    const MetaToken* const identity = token.get();
    ASSERT_TRUE(map.addMetaToken(token));
    EXPECT_EQ(token, nullptr);
    EXPECT_EQ(map.lookupTokenViaNum(100), identity);

    struct Case {
        int number;
        std::string name;
    };
    const Case refused[] = {
        {100, "OTHER"},               // number taken
        {101, "TRADE.PRICE"},         // name taken
        {102, std::string(65, 'N')},  // name too long
        {5001, "ENUM.QUERY.STATUS2"}, // a hub can't redefine what the library relies on
    };
    for (const Case& c : refused) {
        auto other = makeToken(c.number, c.name, "STRING");
        EXPECT_FALSE(map.addMetaToken(other)) << c.number;
        EXPECT_NE(other, nullptr) << c.number;
    }
    EXPECT_EQ(map.lookupTokenViaNum(5001)->storage, unsigned{TOK_INT});
    auto longest = makeToken(std::numeric_limits<int>::min(), std::string(64, 'N'), "STRING");
    EXPECT_TRUE(map.addMetaToken(longest));
}

TEST(MetaTokenMap, RefusesATokenThatIsNoMetaToken) {
    MetaTokenMap map;
    KVNAPI::Token plain;
    plain.kvnid = 200;
    plain.name = "PLAIN";
    EXPECT_EQ(map.addToken(&plain), nullptr);
    EXPECT_EQ(map.lookupTokenViaNum(200), nullptr);
}

TEST(MetaTokenMap, FindkvnFallsBackToTheDownloadedTokenForUnknownNumbers) {
    MetaTokenMap map;
    EXPECT_EQ(map.findkvn(5026), map.findkvn("QUERY.TAG"));
    EXPECT_STREQ(map.tokenName(5026), "QUERY.TAG");
    EXPECT_STREQ(map.tokenName(999999), "");

    auto unknown = makeToken(45027, "KVN.TOKEN.UNKNOWN.NUM", "STRING");
    const MetaToken* const identity = unknown.get();
    ASSERT_TRUE(map.addMetaToken(unknown));
    EXPECT_EQ(map.findkvn(999999), identity);
    EXPECT_EQ(map.findkvn("NO.SUCH.NAME"), identity);
}

TEST(MetaTokenMapDeathTest, FindkvnEndsTheProcessWithoutADownloadedDictionary) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            MetaTokenMap map;
            static_cast<void>(map.findkvn(999999));
        },
        testing::ExitedWithCode(1), "KVN.TOKEN.UNKNOWN.NUM not defined cannot continue");
}

TEST(MetaTokenMap, SourcesAreRefusedBeyondTheLimitAndKnownOnesStay) {
    MetaTokenMap map;
    constexpr int kLimit = static_cast<int>(MetaTokenMap::kMaxExchanges);
    for (int id = 0; id < kLimit; ++id)
        ASSERT_NE(map.lookupExchange(id), nullptr);
    EXPECT_EQ(map.lookupExchange(kLimit), nullptr);
    EXPECT_NE(map.lookupExchange(kLimit - 1), nullptr);
}

TEST(MetaTokenMap, CleanupLeavesAnEmptyMapThatCanBeFilledAgain) {
    MetaTokenMap map;
    ASSERT_NE(map.lookupExchange(100), nullptr);
    map.cleanup();
    EXPECT_EQ(map.tokenCount(), 0U);
    EXPECT_EQ(map.exchangeCount(), 0U);
    EXPECT_EQ(map.lookupTokenViaName("QUERY.TAG"), nullptr);
    map.loadBootStrapDic();
    EXPECT_NE(map.lookupTokenViaName("QUERY.TAG"), nullptr);
}

} // namespace
} // namespace tivra_internal
