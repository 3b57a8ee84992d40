#include "dictionary/DictionaryCache.h"

#include <gmock/gmock.h>

#include <string>
#include <thread>

#include "dictionary/MetaTokenMap.h"
#include "support/LogCapture.h"

namespace tivra_internal {
namespace {

/// Fills a row as far as the texts go; null ends it.
auto row(const char* name, const char* type = nullptr, std::size_t length = 0) {
    return [=](TmpToken& token) {
        if (name == nullptr)
            return;
        token.setTokenName(name, std::string(name).size());
        if (type == nullptr)
            return;
        token.setKVNType(type, std::string(type).size());
        token.setTokenLength(length);
    };
}

TEST(DictionaryCache, OnlyTheFirstDownloadersVersionEntersItUntilItIsReset) {
    DictionaryCache cache;
    EXPECT_EQ(cache.find("1.0").rows, nullptr);
    EXPECT_TRUE(cache.claimVersion("1.0"));
    EXPECT_FALSE(cache.claimVersion("1.1"));
    EXPECT_TRUE(cache.claimVersion("1.0"));
    EXPECT_EQ(cache.find("1.1").rows, nullptr);
    EXPECT_NE(cache.find("1.0").rows, nullptr);
    EXPECT_FALSE(cache.hasInitialDIC());
    cache.setInitialDIC();
    EXPECT_TRUE(cache.hasInitialDIC());
    cache.reset();
    EXPECT_FALSE(cache.hasInitialDIC());
    EXPECT_EQ(cache.find("1.0").rows, nullptr);
    EXPECT_TRUE(cache.claimVersion("2.0"));
}

TEST(DictionaryCache, TheFirstRowOfANumberStandsAndAnotherVersionLoadsFromItsOwnRows) {
    DictionaryCache cache;
    ASSERT_TRUE(cache.claimVersion("1.0"));
    EXPECT_EQ(cache.addRow("1.0", 100, row("PRICE", "FLOAT", 20)), TokenRows::Added::Row);
    EXPECT_EQ(cache.addRow("1.0", 100, row("OTHER", "STRING", 5)), TokenRows::Added::Duplicate);
    TokenRows local;
    ASSERT_EQ(local.add(100, row("LOCAL", "STRING")), TokenRows::Added::Row);

    MetaTokenMap shared, own;
    EXPECT_EQ(cache.loadDic("1.0", local, shared, "hub"), 1);
    const MetaToken* const token = MetaToken::cast(shared.lookupTokenViaNum(100));
    ASSERT_NE(token, nullptr);
    EXPECT_STREQ(token->name, "PRICE");
    EXPECT_EQ(token->getKVNType(), KVN_FLOAT);
    EXPECT_EQ(token->getTokenLength(), 20U);
    cache.loadDic("1.1", local, own, "hub");
    EXPECT_STREQ(own.tokenName(100), "LOCAL");
}

TEST(DictionaryCache, OddRowsBecomeTokensThatReadersCanTrustOrAreDropped) {
    DictionaryCache cache;
    ASSERT_TRUE(cache.claimVersion("1.0"));
    const std::string longName(200, 'L');
    const auto add = [&](int number, auto fill) {
        ASSERT_EQ(cache.addRow("1.0", number, fill), TokenRows::Added::Row);
    };
    add(5001, row("REDEFINED", "STRING", 9)); // a token of the bootstrap table keeps its definition
    add(100, row("BLOB.FIELD", "BLOB", 9));   // unknown type word: string by name, integer by storage
    add(101, row("HALF.FILLED"));             // the message ended early
    add(102, row(longName.c_str(), "FLOAT")); // the map refuses the name
    add(103, row("", "FLOAT"));               // the empty name is a name like any other
    add(104, row(nullptr));                   // taken by now
    add(-7, row("NEGATIVE", "INTEGER"));

    LogCapture log;
    MetaTokenMap map;
    const std::size_t before = map.tokenCount();
    EXPECT_EQ(cache.loadDic("1.0", TokenRows{}, map, "hub"), 7);
    EXPECT_EQ(map.tokenCount(), before + 4);
    EXPECT_STREQ(map.tokenName(5001), "ENUM.QUERY.STATUS");
    EXPECT_EQ(MetaToken::cast(map.lookupTokenViaNum(100))->getKVNType(), KVN_STRING);
    EXPECT_EQ(map.lookupTokenViaNum(100)->storage, unsigned{TOK_INT});
    EXPECT_EQ(map.lookupTokenViaNum(101)->storage, unsigned{TOK_INT});
    EXPECT_EQ(map.lookupTokenViaNum(102), nullptr);
    EXPECT_EQ(map.lookupTokenViaNum(104), nullptr);
    EXPECT_STREQ(map.tokenName(-7), "NEGATIVE");
    EXPECT_THAT(
        log.linesAboveDebug(),
        testing::Contains("WARN: MetaToken::setKVNType - invalid type: BLOB (100), (101); 2 rows in all"));
    log.forget();
    // Loading again, as a reconnect does, changes nothing.
    EXPECT_EQ(cache.loadDic("1.0", TokenRows{}, map, "hub"), 7);
    EXPECT_EQ(map.tokenCount(), before + 4);
    EXPECT_THAT(log.linesAboveDebug(), testing::SizeIs(1)) << "their faults are told once";
}

TEST(TokenRows, KeepsTextsAndCountWithinTheirLimits) {
    TokenRows rows;
    const std::string text(300, 'x');
    ASSERT_EQ(rows.add(1, row(text.c_str(), text.c_str())), TokenRows::Added::Row);
    EXPECT_EQ(rows.begin()->second.tokName.size(), 65U);
    EXPECT_EQ(rows.begin()->second.tokType.size(), 64U);
    for (int number = 2; number <= static_cast<int>(TokenRows::kMaxRows); ++number)
        ASSERT_EQ(rows.add(number, row(nullptr)), TokenRows::Added::Row);
    EXPECT_EQ(rows.add(-1, row(nullptr)), TokenRows::Added::Full);
    EXPECT_EQ(rows.add(2, row(nullptr)), TokenRows::Added::Duplicate);
    EXPECT_EQ(rows.size(), TokenRows::kMaxRows);
}

TEST(DictionaryCache, TwoHubsThatDownloadAtOnceBothEndUpComplete) {
    DictionaryCache cache;
    constexpr int kTokens = 2000;
    MetaTokenMap maps[2];
    const auto download = [&](MetaTokenMap& map) {
        for (int number = 20001; number <= 20000 + kTokens; ++number) {
            ASSERT_TRUE(cache.claimVersion("1.0"));
            const std::string name = "FIELD." + std::to_string(number);
            static_cast<void>(cache.addRow("1.0", number, row(name.c_str(), "INTEGER", 20)));
        }
        cache.setInitialDIC();
        cache.loadDic("1.0", TokenRows{}, map, "hub");
    };
    std::thread other([&] { download(maps[1]); });
    download(maps[0]);
    other.join();
    EXPECT_EQ(cache.find("1.0").size, static_cast<std::size_t>(kTokens));
    for (const MetaTokenMap& map : maps)
        EXPECT_EQ(map.tokenCount(), static_cast<std::size_t>(kTokens) + 23);
}

} // namespace
} // namespace tivra_internal
