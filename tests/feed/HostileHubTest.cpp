// One hub that pushes what it may name or send to the end of each limit: the memory of the process stays
// bounded, the log says what is left out, and the feed goes on.
#include <malloc.h>

#include <algorithm>
#include <functional>
#include <map>
#include <string>

#include <gmock/gmock.h>

#include "FeedFixture.h"

namespace {

using tivra_sim::HubConfig;

constexpr std::size_t kMegabyte = 1U << 20;
constexpr int kFirstText = 70'000; ///< of the fields that only this hub has
constexpr int kTexts = 60;

[[nodiscard]] std::size_t heapInUse() {
    const struct mallinfo2 counts = ::mallinfo2();
    return counts.uordblks + counts.hblkhd;
}

/// Each update brings another field, as long as a frame allows.
void pushTexts(tivra_sim::Hub& hub) {
    const std::string text(250'000, 'x');
    for (int i = 0; i < kTexts; ++i)
        hub.sendBody("4=100|5=IBM|" + std::to_string(kFirstText + i) + "=" + text);
}

/// What one kind of excess does to a feed, and what must be true of it.
struct Excess {
    const char* name;
    const char* line; ///< of the log; null for none
    std::size_t mostBytes;
    std::function<void(HubConfig&)> configure;
    std::function<void(tivra_sim::Hub&, tivra::Feed&, const std::function<void()>& settle)> push;
};

void addTexts(HubConfig& config) {
    for (int i = 0; i < kTexts; ++i)
        config.dictionary.push_back({kFirstText + i, "HOSTILE.TEXT." + std::to_string(i), "STRING", 100});
}

std::map<int, std::string>& statusNames(HubConfig& config) {
    return std::find_if(config.enumerations.begin(), config.enumerations.end(),
                        [](const auto& one) { return one.token == tivra_sim::token::STATUS; })
        ->values;
}

class HostileHub : public testing::TestWithParam<Excess> {};

TEST_P(HostileHub, TakesNoMoreMemoryThanItsLimitAndTheFeedGoesOn) {
    const Excess& excess = GetParam();
    Story log;
    tivra::Log::setSink([&](const tivra::LogLine& line) {
        if (excess.line != nullptr && line.text.find(excess.line) != std::string_view::npos)
            log.add("said");
    });
    HubConfig config = HubConfig::realistic();
    if (excess.configure)
        excess.configure(config);
    tivra_testkit::StartedHub hub(config);
    tivra::FeedOptions options = optionsFor(hub);
    options.openTimeout = options.requestTimeout = std::chrono::seconds(100);
    options.set("read_timeout", "60").set("hold_reads", "true");
    const std::size_t before = heapInUse();
    {
        tivra::Feed feed = tivra::Feed::open(options);
        // An answer that has come, all before it has been delivered.
        const auto settle = [&] {
            EXPECT_NO_THROW(static_cast<void>(feed.query({100, "IBM"}).get()));
            EXPECT_LT(heapInUse(), before + excess.mostBytes);
        };
        if (excess.push)
            excess.push(hub, feed, settle);
        settle();
        if (excess.line != nullptr) {
            EXPECT_TRUE(log.waitFor("said"));
        }
        EXPECT_EQ(hub.statistics().accepted, 1U);
    }
    tivra::Log::setSink(nullptr);
}

void pushLongSymbols(tivra_sim::Hub& hub, tivra::Feed& feed, const std::function<void()>& settle) {
    tivra::QueueOptions few;
    few.policy = tivra::QueuePolicy::DropOldest;
    few.maxUpdates = 10;
    const tivra::UpdateQueue queue(few);
    const tivra::Subscription all = feed.subscribeWildcard(100, "*", queue.handlers());
    for (int i = 0; i < 3000; ++i)
        hub.sendBody("4=100|5=" + std::to_string(i) + std::string(50'000, 'x') + "|6=1");
    settle();
}

/// Nobody takes anything: all of it is merged into one update.
void pushMerged(tivra_sim::Hub& hub, tivra::Feed& feed, const std::function<void()>& settle) {
    tivra::QueueOptions latest;
    latest.policy = tivra::QueuePolicy::Latest;
    latest.maxBytes = kMegabyte;
    const tivra::UpdateQueue queue(latest);
    const tivra::Subscription ibm = feed.subscribe({100, "IBM"}, queue);
    settle();
    pushTexts(hub);
    settle();
    EXPECT_LE(queue.statistics().bytes, 2 * kMegabyte);
    EXPECT_GT(queue.statistics().dropped, 0U);
}

void pushRow(tivra_sim::Hub& hub, tivra::Feed& feed, const std::function<void()>& settle) {
    const tivra::Board board;
    const tivra::Subscription ibm = feed.subscribe({100, "IBM"}, board);
    settle(); // the image, which replaces whatever came before it
    pushTexts(hub);
    settle();
    const std::optional<tivra::BoardRow> row = board.find(100, "IBM");
    ASSERT_TRUE(row);
    EXPECT_GT(row->gaps, 0U);
    EXPECT_EQ(row->get<std::string>(feed.field("HOSTILE.TEXT.0")), std::string(250'000, 'x'));
    EXPECT_EQ(row->get<std::string>(feed.field("HOSTILE.TEXT.59")), "");
}

/// A board as a whole: one row that takes most of it, and then one row after another.
void pushBoard(tivra_sim::Hub& hub, tivra::Feed& feed, const std::function<void()>& settle) {
    const tivra::Board board({}, kMegabyte);
    const tivra::Subscription all = feed.subscribeWildcard(100, "*", board.handlers());
    settle();
    pushTexts(hub);
    for (int i = 0; i < 3000; ++i)
        hub.sendBody("4=100|5=S" + std::to_string(i) + "|6=1");
    settle();
    const tivra::BoardStatistics figures = board.statistics();
    EXPECT_LE(figures.bytes, kMegabyte);
    EXPECT_GT(board.leftOut(), 0U);
    EXPECT_GT(figures.refused, 0U);
    EXPECT_GT(figures.symbols, 100U);
    EXPECT_GT(board.find(100, "IBM").value_or(tivra::BoardRow()).gaps, 0U);
}

INSTANTIATE_TEST_SUITE_P(
    Feed, HostileHub,
    testing::Values(
        Excess{
            "Dictionary", "the dictionary has more than 200000 rows", 300 * kMegabyte,
            [](HubConfig& config) {
                for (int i = 0; i < 201'000; ++i)
                    config.dictionary.push_back({100'000 + i, "HOSTILE." + std::to_string(i), "INTEGER", 8});
            },
            nullptr},
        Excess{"ReturnCodes", "lists more than 10000 return codes", 20 * kMegabyte,
               [](HubConfig& config) {
                   for (int i = 0; i < 11'000; ++i)
                       statusNames(config)[-100'000 - i] = "HOSTILE." + std::to_string(i);
               },
               nullptr},
        Excess{"Symbols", "is longer than any may be", 40 * kMegabyte, nullptr, pushLongSymbols},
        Excess{"MergedUpdates", nullptr, 20 * kMegabyte, addTexts, pushMerged},
        Excess{"BoardRow", "has no room for the field", 40 * kMegabyte, addTexts, pushRow},
        Excess{"Board", "has no room for the field", 20 * kMegabyte, addTexts, pushBoard}),
    [](const auto& test) { return std::string(test.param.name); });

} // namespace
