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

TEST(MetaToken, AWordThatIsNoTypeLeavesAStringThatIsStoredAsAnInteger) {
    for (const char* word : {"string", "FLOAT ", "DATETIM", ""}) {
        const auto token = makeToken(1, "X", word);
        EXPECT_EQ(token->getKVNType(), KVN_STRING) << word;
        EXPECT_EQ(token->storage, unsigned{TOK_INT}) << word;
    }
}

TEST(MetaTokenMap, StartsWithTheBootstrapTableAndCanBeEmptiedAndFilledAgain) {
    MetaTokenMap map;
    ASSERT_NE(map.lookupExchange(100), nullptr);
    map.cleanup();
    EXPECT_EQ(map.tokenCount() + map.exchangeCount(), 0U);
    EXPECT_EQ(map.lookupTokenViaName("QUERY.TAG"), nullptr);
    map.loadBootStrapDic();
    EXPECT_EQ(map.tokenCount(), 23U);
    for (const BootstrapToken& row : kBootstrapDictionary) {
        const MetaToken* const token = MetaToken::cast(map.lookupTokenViaNum(row.number));
        ASSERT_EQ(token != nullptr, row.number != 0) << row.number;
        if (token == nullptr)
            break; // the end of the table
        EXPECT_EQ(token, map.lookupTokenViaName(row.name));
        const unsigned storage = row.typeWord == "STRING" ? TOK_STR : TOK_INT;
        EXPECT_EQ(token->storage, storage) << row.name;
    }
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
    KVNAPI::Token foreign;
    foreign.kvnid = 200;
    foreign.name = "FOREIGN";
    EXPECT_EQ(map.addToken(&foreign), nullptr);
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

} // namespace
} // namespace tivra_internal
