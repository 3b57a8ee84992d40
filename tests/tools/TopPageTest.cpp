// What tivra-top's page gets: all at first, then changes, of a bounded past.
#include <tivra-top/PageFeed.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace tivra_top;
using namespace std::chrono_literals;
using nlohmann::json;

namespace {

const TimePoint kPageNow{1'700'000'000s};

Picture pictureOf(std::size_t symbols, std::uint64_t updates, std::chrono::milliseconds after) {
    Picture picture;
    picture.time = kPageNow + after;
    picture.columns = {"BID"};
    for (std::size_t i = 0; i < symbols; ++i) {
        Row row;
        row.name = "1:" + std::to_string(10000 + i);
        row.updates = updates;
        row.cells = {{std::to_string(updates), static_cast<double>(updates), 0}};
        picture.rows.push_back(row);
    }
    HubLine hub;
    hub.status.hub = "hub:1";
    hub.status.cause = "said \xff";
    picture.hubs = {hub};
    return picture;
}

TEST(TopPageFeed, SendsWhatHasChangedAndNothingWhenNothingHas) {
    PageFeed feed;
    EXPECT_EQ(json::parse(feed.next(pictureOf(3, 1, 0ms)))["rows"].size(), 3U);
    EXPECT_EQ(feed.next(pictureOf(3, 1, 500ms)), "");
    Picture next = pictureOf(3, 1, 1000ms);
    next.rows[1].updates = 2;
    const json change = json::parse(feed.next(next));
    ASSERT_EQ(change["rows"].size(), 1U);
    EXPECT_EQ(change["rows"][0]["name"], "1:10001");
    next.rows[1].state = tivra::DataState::Stale;
    EXPECT_EQ(json::parse(feed.next(next))["rows"][0]["isStale"], true);
}

TEST(TopPageFeed, GaugesChangeWithoutACountAndVanishedRowsGo) {
    PageFeed feed;
    Picture picture = pictureOf(2, 0, 0ms);
    EXPECT_NE(feed.next(picture), "");
    picture.rows[0].cells = {{"7", 7.0, 0}};
    EXPECT_EQ(json::parse(feed.next(picture))["rows"].size(), 1U);
    EXPECT_EQ(json::parse(feed.symbol("1:10000"))["points"].size(), 2U);
    picture.columns = {"BID", "ASK"};
    EXPECT_EQ(json::parse(feed.next(picture))["rows"].size(), 2U) << "with the new column's cells";
    picture.rows.erase(picture.rows.begin());
    const json change = json::parse(feed.next(picture));
    EXPECT_EQ(change["gone"], json({"1:10000"}));
    EXPECT_EQ(json::parse(feed.everything())["rows"].size(), 1U);
    EXPECT_EQ(json::parse(feed.symbol("1:10000"))["points"].size(), 0U);
    EXPECT_EQ(feed.next(picture), "");
}

TEST(TopPageFeed, RowsOnThePageStayThereWhenNamesBeforeThemCome) {
    PageFeed feed;
    Picture picture = pictureOf(PageFeed::kMostRows, 1, 0ms);
    EXPECT_NE(feed.next(picture), "");
    Row early = picture.rows.front();
    early.name = "1:00000";
    picture.rows.insert(picture.rows.begin(), early);
    picture.rows.back().updates = 2;
    const std::string last = picture.rows.back().name;
    const json change = json::parse(feed.next(picture));
    ASSERT_EQ(change["rows"].size(), 1U);
    EXPECT_EQ(change["rows"][0]["name"], last);
    EXPECT_EQ(json::parse(feed.everything())["rows"].back()["name"], last);
}

TEST(TopPageFeed, KeepsABoundedPast) {
    PageFeed feed;
    for (std::uint64_t i = 0; i < History::kMostFigures + 10; ++i) {
        Picture picture =
            pictureOf(i == 0 ? PageFeed::kMostRows + 5 : 1, i + 1, std::chrono::milliseconds(i * 500));
        picture.hubs[0].status.to = i % 2 == 0 ? tivra::HubState::Ready : tivra::HubState::Lost;
        EXPECT_NE(feed.next(std::move(picture)), "");
        if (i == 0) {
            EXPECT_EQ(json::parse(feed.everything())["rows"].size(), PageFeed::kMostRows);
            EXPECT_EQ(json::parse(feed.symbol("1:10499"))["points"].size(), 1U);
            EXPECT_EQ(json::parse(feed.symbol("1:10500"))["points"].size(), 0U)
                << "beyond those that are kept";
        }
    }
    const json all = json::parse(feed.everything());
    EXPECT_EQ(all["history"].size(), History::kMostFigures);
    EXPECT_EQ(all["changes"].size(), History::kMostChanges);
    EXPECT_EQ(all["changes"].back()[2], "lost");
    const json symbol = json::parse(feed.symbol("1:10000"));
    EXPECT_EQ(symbol["points"].size(), History::kMostValues);
    EXPECT_EQ(symbol["points"].back()[1], static_cast<double>(History::kMostFigures + 10));
}

} // namespace
