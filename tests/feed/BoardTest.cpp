// The last values that a board keeps of a feed.
#include "FeedFixture.h"

#include <atomic>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "feed/BoardState.h"

using testing::ElementsAre;
using tivra::BoardRow;
using tivra::DataState;
using tivra_sim::Record;
namespace token = tivra_sim::token;

namespace {

class BoardTest : public FeedTest {
protected:
    /// A subscription of its own hears of everything after the board has.
    tivra::SubscriptionHandlers onBoardAndStory() {
        tivra::SubscriptionHandlers handlers = writeTo(story, bid);
        handlers.onUpdate = [first = board.handlers().onUpdate,
                             then = handlers.onUpdate](const auto& update) {
            first(update);
            then(update);
        };
        handlers.onState = [first = board.handlers().onState,
                            then = handlers.onState](const auto& subscription, const auto& change) {
            first(subscription, change);
            then(subscription, change);
        };
        handlers.onGap = board.handlers().onGap;
        return handlers;
    }
    std::vector<std::string> changes(tivra::BoardCursor& cursor) const {
        std::vector<std::string> symbols;
        board.changedSince(cursor, [&](const BoardRow& row) { symbols.emplace_back(row.values.symbol()); });
        return symbols;
    }

    tivra::Board board;
};

} // namespace

TEST_F(BoardTest, ARowIsTheImageAndItsUpdatesAndStaleUntilTheNextImageReplacesIt) {
    const tivra::Field root = feed.field("PRODUCT.ROOT");
    auto ibm = feed.subscribe({100, "IBM"}, onBoardAndStory());
    ASSERT_TRUE(story.waitFor("Live"));
    // Texts that grow and shrink, past all others.
    for (const std::size_t length : {3U, 40U, 1U, 400U, 5U}) {
        hub.sendBody("4=100|5=IBM|3974=" + std::string(length, 'x'));
        pushBid(static_cast<int>(length));
        ASSERT_TRUE(story.waitFor("update " + std::to_string(length)));
        const auto row = board.find({100, "IBM"});
        ASSERT_TRUE(row);
        EXPECT_EQ(row->get<std::string_view>(root), std::string(length, 'x'));
        EXPECT_EQ(row->get<double>(bid), static_cast<double>(length));
    }
    EXPECT_FALSE(board.find(100, "IBM")->isStale());
    EXPECT_EQ(board.find(100, "IBM")->updates, 11U);
    hub.stop();
    ASSERT_TRUE(story.waitFor("Stale"));
    EXPECT_TRUE(board.find(100, "IBM")->isStale());
    EXPECT_EQ(board.find(100, "IBM")->get<double>(bid), 5.0) << "old, and still there";
    hub.start();
    ASSERT_TRUE(story.waitUntil([&] { return ibm.state() == DataState::Live; }));
    pushBid(77);
    ASSERT_TRUE(story.waitFor("update 77"));
    const auto row = board.find(100, "IBM");
    EXPECT_EQ(row->state, DataState::Live);
    EXPECT_EQ(row->gaps, 1U);
    EXPECT_EQ(row->get<std::string_view>(root), std::nullopt) << "the new image doesn't have it";
    ibm.close();
    // The thread that delivers may be at it.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (board.find(100, "IBM")->state != DataState::Closed && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    EXPECT_EQ(board.forgetClosed(), 1U);
    EXPECT_FALSE(board.find(100, "IBM"));
}

TEST_F(BoardTest, EachChangedSymbolIsSeenOnceInTheOrderOfTheLastChanges) {
    auto group = feed.subscribeAll({{100, "IBM"}, {100, "AIG"}, {100, "BAC"}}, onBoardAndStory());
    for (const char* symbol : {"IBM", "AIG", "BAC"})
        ASSERT_TRUE(story.waitUntil([&] {
            const auto row = board.find(100, symbol);
            return row && row->state == DataState::Live;
        }));
    tivra::BoardCursor cursor;
    EXPECT_EQ(changes(cursor).size(), 3U);
    EXPECT_THAT(changes(cursor), ElementsAre());
    int price = 0;
    for (const char* symbol : {"IBM", "BAC", "IBM", "BAC", "IBM"})
        hub.pushRecord(Record(100, symbol).add(token::BID, ++price));
    ASSERT_TRUE(story.waitFor("update 5"));
    EXPECT_THAT(changes(cursor), ElementsAre("BAC", "IBM"));
    EXPECT_THAT(changes(cursor), ElementsAre());
}

TEST(BoardStateTest, MoreChangesThanAreRememberedOneByOneAreFoundAllTheSame) {
    auto state = std::make_shared<tivra_internal::BoardState>(tivra::BoardOptions{3});
    const auto ibm = state->join(100, "IBM"), aig = state->join(100, "AIG"), bac = state->join(100, "BAC");
    EXPECT_EQ(state->join(100, "SPY"), nullptr) << "full";
    tivra::BoardCursor cursor;
    state->enterChange(*bac);
    EXPECT_THAT(state->changedSince(cursor), ElementsAre(bac));
    state->enterChange(*aig);
    for (int i = 0; i < 70'000; ++i)
        state->enterChange(*ibm);
    EXPECT_THAT(state->changedSince(cursor), ElementsAre(aig, ibm));
    EXPECT_THAT(state->changedSince(cursor), ElementsAre());
}

TEST(BoardStateTest, WhatAForgottenRowHasTakenIsFreeForOthers) {
    constexpr std::size_t kSmall = std::size_t{64} << 10;
    auto state = std::make_shared<tivra_internal::BoardState>(tivra::BoardOptions(), kSmall);
    std::vector<std::shared_ptr<tivra_internal::BoardLine>> lines;
    const auto fill = [&](const char* prefix) {
        const std::size_t before = lines.size();
        while (auto line = state->join(100, prefix + std::to_string(lines.size())))
            lines.push_back(line);
        return lines.size() - before;
    };
    const std::size_t rows = fill("OLD");
    EXPECT_GT(rows, 100U);
    EXPECT_LE(state->statistics().bytes, kSmall);
    for (const auto& line : lines)
        EXPECT_TRUE(line->removeSubscription());
    EXPECT_EQ(state->forgetClosed(), rows);
    EXPECT_EQ(state->statistics().bytes, 0U);
    EXPECT_EQ(fill("NEW"), rows);
    EXPECT_THROW(tivra::Board({}, 1000), tivra::Error);
}

TEST_F(BoardTest, AReaderSeesEachUpdateWholeHoweverOftenItLooks) {
    const tivra::Field ask = feed.field("ASK");
    const tivra::Field cusip = feed.field("CUSIP");
    auto ibm = feed.subscribe({100, "IBM"}, onBoardAndStory());
    ASSERT_TRUE(story.waitFor("Live"));
    std::atomic<bool> isOver{false};
    std::atomic<int> torn{0};
    const auto send = [this](int price) {
        const std::string text = std::to_string(price);
        hub.sendBody(
            "4=100|5=IBM|101=" + text + "|103=" + text + "|3123=" +
            std::string(static_cast<std::size_t>(price % 50 + 1), static_cast<char>('a' + price % 26)));
    };
    send(1);
    ASSERT_TRUE(story.waitFor("update 1"));
    std::thread reader([&] {
        while (!isOver) {
            const auto row = board.find(100, "IBM");
            const std::string_view text = row->get<std::string_view>(cusip).value_or("");
            const auto price = static_cast<int>(row->get<double>(bid).value_or(0.0));
            if (row->get<double>(bid) != row->get<double>(ask) ||
                text.find_first_not_of(text.front()) != text.npos || text.front() != 'a' + price % 26)
                ++torn;
        }
    });
    for (int price = 2; price <= 3000; ++price)
        send(price);
    EXPECT_TRUE(story.waitFor("update 3000"));
    isOver = true;
    reader.join();
    EXPECT_EQ(torn, 0);
}
