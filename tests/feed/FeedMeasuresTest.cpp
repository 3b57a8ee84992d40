// What a feed measures, and the texts that show it.
#include <pthread.h>

#include <atomic>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tivra_testkit/Gate.h>

#include "feed/FeedMetrics.h"
#include "feed/LatencyHistogram.h"

#include "FeedFixture.h"

using testing::HasSubstr;
using tivra::Feed;
using tivra_internal::feedJson;
using tivra_internal::feedOpenMetrics;
using tivra_internal::LatencyHistogram;

namespace {

tivra::FeedStatistics twoHubs() {
    tivra::FeedStatistics figures;
    figures.updates = 7;
    figures.requests = 2;
    figures.hubs.resize(2);
    figures.hubs[0].hub = "a:1";
    figures.hubs[0].updates = 3;
    figures.hubs[0].queueFill = 0.25;
    figures.hubs[0].callback = {1, std::chrono::nanoseconds(1'500'000'002), {}, {}, {}, {}, {}};
    figures.hubs[1].hub = "b\"\n:2";
    figures.hubs[1].updates = 4;
    return figures;
}

} // namespace

TEST(LatencyHistogram, FiguresOfAnySizeAreOffByOnePercentAtMost) {
    for (const double unit : {1e-9, 1e-7, 1e-6, 1e-3, 0.1}) {
        LatencyHistogram first, second;
        for (int i = 1; i <= 1000; ++i)
            (i % 2 == 0 ? first : second).record(i * unit);
        const tivra::LatencySummary both = LatencyHistogram::summaryOf({&first, &second});
        const auto isAbout = [unit](double count) {
            return testing::DoubleNear(count * unit * 1e9, count * unit * 1e7 + 1.0);
        };
        EXPECT_EQ(both.count, 1000U);
        const std::pair<std::chrono::nanoseconds, double> expected[] = {{both.min, 1},    {both.p50, 500},
                                                                        {both.p90, 900},  {both.p99, 990},
                                                                        {both.p999, 999}, {both.max, 1000}};
        for (const auto& [figure, count] : expected)
            EXPECT_THAT(static_cast<double>(figure.count()), isAbout(count)) << count << " times " << unit;
    }
    LatencyHistogram extremes;
    EXPECT_EQ(extremes.summary().count, 0U);
    extremes.record(-1.0);
    extremes.record(1e9);
    EXPECT_EQ(extremes.summary().min, std::chrono::nanoseconds(1));
    EXPECT_EQ(extremes.summary().max, std::chrono::hours(1));
}

TEST(FeedMetrics, HubsAreToldApartByALabelThatNobodyElseHas) {
    const std::string text = feedOpenMetrics(twoHubs(), {{"hub", "x"}, {"app", "pricer"}});
    EXPECT_THAT(text, HasSubstr("# TYPE tivra_feed_updates counter\n"
                                "# HELP tivra_feed_updates Updates handed to subscriptions.\n"
                                "tivra_feed_updates_total{app=\"pricer\",hub=\"a:1\"} 3\n"
                                "tivra_feed_updates_total{app=\"pricer\",hub=\"b\\\"\\n:2\"} 4\n# TYPE "));
    EXPECT_THAT(text,
                HasSubstr("# TYPE tivra_feed_callback_seconds summary\n# UNIT tivra_feed_callback_seconds "
                          "seconds\n"));
    EXPECT_THAT(text, HasSubstr("\ntivra_feed_callback_seconds{app=\"pricer\",hub=\"a:1\",quantile=\"0.0\"} "
                                "1.500000002\n"));
    EXPECT_THAT(text, HasSubstr("\ntivra_feed_open_requests{app=\"pricer\"} 2\n"));
    EXPECT_THAT(text,
                testing::EndsWith("tivra_feed_request_to_answer_seconds_count{app=\"pricer\"} 0\n# EOF\n"));
    EXPECT_THAT(text, HasSubstr("\ntivra_feed_queue_fill_ratio{app=\"pricer\",hub=\"a:1\"} 0.25\n"));
    EXPECT_THAT(feedJson(twoHubs(), {}),
                HasSubstr("\"hubs\":[{\"hub\":\"a:1\",\"updates_total\":3,\"queue_fill_ratio\":0.25,"));
}

TEST(FeedMeasures, EachStageOfAMessageAndOfARequestIsMeasured) {
    tivra_testkit::StartedHub hub;
    tivra::FeedOptions options = optionsFor(hub);
    options.latencySampling = 1;
    Story story;
    Feed feed = Feed::open(std::move(options));
    const auto before = std::chrono::system_clock::now() - std::chrono::milliseconds(1);
    auto ibm = feed.subscribe({100, "IBM"}, [&](const tivra::Update& update) {
        const auto received = update.receivedAt(), decoded = update.decodedAt();
        const bool isInOrder = before <= received && received <= decoded + std::chrono::microseconds(1) &&
                               decoded <= std::chrono::system_clock::now() + std::chrono::milliseconds(1);
        story.add(isInOrder ? "in order" : "out of order");
    });
    ASSERT_TRUE(story.waitFor("in order"));
    static_cast<void>(feed.query({100, "AIG"}).get(std::chrono::seconds(10)));
    const tivra::FeedStatistics figures = feed.statistics();
    ASSERT_EQ(figures.hubs.size(), 1U);
    EXPECT_EQ(figures.hubs[0].hub, hub.hostString());
    EXPECT_EQ(figures.hubs[0].callback.count, 1U);
    EXPECT_EQ(figures.decodeToCallback.count, 1U);
    EXPECT_GE(figures.socketToDecode.count, 3U) << "the image, its end and the answer";
    EXPECT_GT(figures.socketToDecode.min.count(), 1);
    EXPECT_EQ(figures.requestToAnswer.count, 1U);
}

TEST(FeedMeasures, TheQueueFillsBehindACallbackThatTakesItsTimeAndEmptiesAfterIt) {
    tivra_testkit::StartedHub hub;
    tivra::FeedOptions options = optionsFor(hub);
    options.parameters = {{"COMPRESSION_BOOL", "false"}, {"QUEUE_SIZE_LONG", "1"}};
    Feed feed = Feed::open(std::move(options));
    tivra_testkit::Gate gate;
    auto ibm = feed.subscribe({100, "IBM"}, [&gate](const tivra::Update&) { gate.wait(); });
    const auto waitForFill = [&feed](double least, double most) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        double fill = -1.0;
        while ((fill < least || fill > most) && std::chrono::steady_clock::now() < end) {
            std::this_thread::yield();
            fill = feed.statistics().hubs.at(0).queueFill;
        }
        return fill;
    };
    const std::string text(10'000, 'x');
    for (int i = 0; i < 40; ++i)
        hub.sendBody("4=100|5=IBM|3974=" + text);
    EXPECT_GE(waitForFill(0.2, 1.0), 0.2);
    gate.open();
    EXPECT_EQ(waitForFill(0.0, 0.0), 0.0);
}

TEST(FeedMeasures, ACallbackThatStandsStillLosesNothingOverAPlainConnectionEither) {
    for (const char* isCompressed : {"false", "true"}) {
        SCOPED_TRACE(isCompressed);
        tivra_testkit::StartedHub hub;
        tivra::FeedOptions options = optionsFor(hub);
        options.parameters = {{"COMPRESSION_BOOL", isCompressed}, {"QUEUE_SIZE_LONG", "1"}};
        Story story;
        Feed feed = Feed::open(std::move(options));
        tivra_testkit::Gate gate;
        constexpr int kUpdates = 4'000; // of 1,000 bytes, four times what the queue holds
        int received = 0;
        auto ibm = feed.subscribe({100, "IBM"}, [&](const tivra::Update& update) {
            gate.wait();
            if (update.kind() == tivra::Update::Kind::Update && ++received == kUpdates)
                story.add("all");
        });
        ASSERT_TRUE(hub.waitForSubscriptions(1));
        for (int i = 0; i < kUpdates; ++i)
            hub.sendBody("4=100|5=IBM|3974=" + std::string(1'000, static_cast<char>('a' + i % 26)));
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (feed.statistics().hubs.at(0).queueFill < 0.7 && std::chrono::steady_clock::now() < end)
            std::this_thread::yield();
        gate.open();
        EXPECT_TRUE(story.waitFor("all"));
        EXPECT_EQ(hub.statistics().accepted, 1U);
    }
}

// The thread that reads is in the callback while the second update of a pair comes. Where it isn't, since
// callbacks have been handed over, the pair says nothing; and the kernel takes a moment to begin with stamps.
TEST(FeedMeasures, WithKernelTimeStampsWaitingInTheSocketShows) {
    tivra_testkit::StartedHub hub;
    tivra::FeedOptions options = optionsFor(hub);
    options.parameters = {
        {"COMPRESSION_BOOL", "false"}, {"INLINE_CALLBACKS_BOOL", "true"}, {"KERNEL_TIMESTAMPS_BOOL", "true"}};
    Story story;
    Feed feed = Feed::open(std::move(options));
    const tivra::Field bid = feed.field("BID");
    const auto push = [&hub](int price) {
        hub.pushRecord(tivra_sim::Record(100, "IBM").add(tivra_sim::token::BID, price));
    };
    std::chrono::system_clock::time_point sent;
    bool isReader = false;
    std::atomic<int> pairs{0};
    std::atomic<bool> isStamped{false};
    auto ibm = feed.subscribe({100, "IBM"}, [&](const tivra::Update& update) {
        const double price = update.get<double>(bid).value_or(0.0);
        if (price == 1.0) {
            char name[16] = "";
            pthread_getname_np(pthread_self(), name, sizeof name);
            isReader = std::string_view(name).find("hub") != std::string_view::npos;
            const std::uint64_t before = hub.statistics().updatesSent;
            push(2);
            EXPECT_TRUE(hub.waitFor([&](const auto& figures) { return figures.updatesSent > before; }));
            sent = std::chrono::system_clock::now();
            while (std::chrono::system_clock::now() < sent + std::chrono::milliseconds(20)) {
            }
        } else if (price == 2.0) {
            const bool isEarly = update.receivedAt() < sent + std::chrono::milliseconds(10);
            isStamped = isStamped || (isReader && isEarly);
            ++pairs;
            story.add("a pair");
        }
    });
    ASSERT_TRUE(hub.waitForSubscriptions(1));
    while (!isStamped && pairs < 100) {
        const int before = pairs;
        push(1);
        ASSERT_TRUE(story.waitUntil([&] { return pairs > before; }));
    }
    EXPECT_TRUE(isStamped) << "the kernel's times are not those of the updates";
}

// One callback stands at a gate, the other in its answer: both are seen from outside.
TEST(FeedMeasures, ASlowCallbackIsReportedWhileItRunsAndWhenItHasReturned) {
    tivra_testkit::StartedHub hub;
    tivra_testkit::Gate gate;
    tivra_testkit::Gate answered;
    Story story;
    tivra::FeedOptions options = optionsFor(hub);
    options.slowCallback = std::chrono::milliseconds(20);
    options.onSlowCallback = [&](const tivra::SlowCallback& slow) {
        story.add(std::string(slow.function) + " " + std::string(slow.symbol) +
                  (slow.isRunning ? " runs" : " has returned") +
                  (slow.duration.count() >= 19 ? "" : " too early"));
    };
    // A gate opens whatever was seen, or the feed would wait for its callback for ever.
    const auto expect = [&story](const char* line) {
        EXPECT_TRUE(story.waitFor(line)) << testing::PrintToString(story.lines());
    };
    Feed feed = Feed::open(std::move(options));
    auto ibm = feed.subscribe({100, "IBM"}, [&](const tivra::Update&) { gate.wait(); });
    expect("a subscription's callback IBM runs");
    gate.open();
    expect("a subscription's callback IBM has returned");
    // An answer that has come would call back from here.
    hub.setSilent(true);
    tivra::Answer answer = feed.query({100, "AIG"});
    answer.then([&](const tivra::Result<tivra::Snapshot>&) { answered.wait(); });
    hub.setSilent(false);
    expect("an answer's callback query of AIG at source 100 runs");
    answered.open();
    expect("an answer's callback query of AIG at source 100 has returned");
    EXPECT_GE(feed.statistics().slowCallbacks, 2U); // a busy machine may hold up others
}

TEST(FeedMeasures, EachThreadOfAFeedAndNoOtherStartsWithItsHook) {
    tivra_testkit::StartedHub hub;
    Story story;
    tivra::FeedOptions options = optionsFor(hub);
    Feed other = Feed::open(options);
    options.onThreadStart = [&](const std::string& name) { story.add(name); };
    Feed feed = Feed::open(options);
    for (const char* name : {"tivra-feed", "tivra-master", "tivra-hub0", "tivra-user0"})
        EXPECT_TRUE(story.waitFor(name)) << name;
    const std::size_t count = story.lines().size();
    options.onThreadStart = nullptr;
    const Feed third = Feed::open(options);
    EXPECT_EQ(story.lines().size(), count);
}
