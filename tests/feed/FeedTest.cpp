// A feed against the simulated hub: what an application sees, in the order in which it sees it.
#include "FeedFixture.h"

#include <atomic>
#include <future>
#include <optional>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tivra_sim/HubGroup.h>
#include <tivra_testkit/Gate.h>

#include "support/HeapControl.h"
#include "support/Sanitizers.h"

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using tivra::DataState;
using tivra::Error;
using tivra::Feed;
using tivra_sim::Record;
using tivra_testkit::StartedHub;
namespace token = tivra_sim::token;

namespace {

/// The error that a call throws, as "Code: cause".
template<class Call>
std::string thrownBy(Call&& call) {
    try {
        call();
    } catch (const Error& error) {
        return error.what();
    }
    return "nothing";
}

} // namespace

TEST_F(FeedTest, ASubscriptionBringsItsImageAndThenUpdatesUntilItGoes) {
    auto ibm = feed.subscribe({100, "IBM"}, writeTo(story, bid));
    ASSERT_TRUE(story.waitFor("Live"));
    EXPECT_EQ(ibm.state(), DataState::Live);
    pushBid(2);
    ASSERT_TRUE(story.waitFor("update 2"));
    EXPECT_EQ(story.lines().size(), 3U);
    EXPECT_THAT(story.lines(), ElementsAre(HasSubstr("image "), "Live", "update 2"));
    EXPECT_EQ(ibm.statistics().updates, 2U);
    ibm.close();
    ASSERT_TRUE(hub.waitForCommand("Unsubscribe"));
    pushBid(3);
    // What comes for another symbol comes later.
    auto aig = feed.subscribe({100, "AIG"}, writeTo(story, bid));
    ASSERT_TRUE(story.waitUntil([&] { return aig.state() == DataState::Live; }));
    EXPECT_THAT(story.lines(), testing::Not(testing::Contains("update 3")));
    EXPECT_EQ(feed.statistics().subscriptions, 1U);
}

TEST_F(FeedTest, ALossIsToldInTheStreamAndEndsWithAGapAndANewImage) {
    auto ibm = feed.subscribe({100, "IBM"}, writeTo(story, bid));
    ASSERT_TRUE(story.waitFor("Live"));
    pushBid(2);
    ASSERT_TRUE(story.waitFor("update 2"));
    hub.dropConnections();
    ASSERT_TRUE(
        story.waitUntil([&] { return ibm.state() == DataState::Live && ibm.statistics().gaps == 1; }));
    pushBid(4);
    ASSERT_TRUE(story.waitFor("update 4"));
    EXPECT_THAT(story.lines(), ElementsAre(HasSubstr("image "), "Live", "update 2", "Stale", "Recovering",
                                           "gap", "image 2", "Live", "update 4"));
}

TEST_F(FeedTest, TheTypeOfAFieldIsThatOfTheDictionary) {
    using Type = tivra::Value::Type;
    const std::vector<std::pair<const char*, std::optional<Type>>> cases{{"BID", Type::Double},
                                                                         {"BID.SIZE", Type::Integer},
                                                                         {"SYMBOL.NAME", Type::Text},
                                                                         {"TRADE.DATETIME", Type::Time},
                                                                         {"NO.SUCH.FIELD", std::nullopt}};
    for (const auto& [name, type] : cases)
        EXPECT_EQ(feed.typeOf(name), type) << name;
}

TEST_F(FeedTest, AHubThatStaysAwayLeavesItsDataStale) {
    auto ibm = feed.subscribe({100, "IBM"}, writeTo(story, bid));
    ASSERT_TRUE(story.waitFor("Live"));
    hub.stop();
    ASSERT_TRUE(story.waitFor("Stale"));
    hub.start();
    ASSERT_TRUE(story.waitFor("gap"));
    ASSERT_TRUE(story.waitUntil([&] { return ibm.state() == DataState::Live; }));
}

TEST_F(FeedTest, AGapBeginsWithTheLastThingThatWasReadHoweverLateTheLossIsNoticed) {
    tivra_testkit::Gate gate;
    std::chrono::system_clock::time_point read;
    std::optional<tivra::Gap> told;
    tivra::SubscriptionHandlers handlers;
    handlers.onUpdate = [&](const tivra::Update& update) {
        if (update.kind() != tivra::Update::Kind::Update)
            return;
        read = update.receivedAt();
        story.add("held");
        gate.wait();
    };
    handlers.onGap = [&](const tivra::SubscriptionView&, const tivra::Gap& gap) {
        told = gap;
        story.add("gap");
    };
    handlers.onState = writeTo(story, bid).onState;
    auto ibm = feed.subscribe({100, "IBM"}, std::move(handlers));
    ASSERT_TRUE(story.waitFor("Live"));
    pushBid(2);
    ASSERT_TRUE(story.waitFor("held"));
    hub.dropConnections();
    EXPECT_TRUE(hub.waitForConnections(0));
    const auto noticed = std::chrono::system_clock::now();
    gate.open();
    ASSERT_TRUE(story.waitFor("gap"));
    ibm.close();
    EXPECT_GE(told->from, read - 1ms);
    EXPECT_LT(told->from, noticed);
}

// While the application holds the thread that delivers up, a whole connection comes and goes.
TEST_F(FeedTest, TheLossOfAConnectionIsToldThoughNothingOfItHadBeenDelivered) {
    tivra_testkit::Gate gate;
    tivra::FeedOptions options = optionsFor(hub);
    options.onState = [&](const tivra::FeedStateChange& event) {
        if (event.to == tivra::FeedState::Connecting)
            gate.wait();
    };
    Feed held = Feed::open(std::move(options));
    auto ibm = held.subscribe({100, "IBM"}, writeTo(story, held.field("BID")));
    ASSERT_TRUE(story.waitFor("Live"));
    hub.dropConnections();
    ASSERT_TRUE(hub.waitForLogins(2) && hub.waitForSubscriptions(1));
    pushBid(9);
    hub.ignore("LoginUser");
    hub.halfClose();
    ASSERT_TRUE(hub.waitForConnections(0));
    gate.open();
    ASSERT_TRUE(story.waitFor("update 9"));
    EXPECT_TRUE(story.waitUntil([&] { return ibm.state() == DataState::Stale; }));
}

TEST_F(FeedTest, TheGapIsToldBeforeAnythingOfTheNextConnection) {
    auto ibm = feed.subscribe({100, "IBM"}, writeTo(story, bid));
    ASSERT_TRUE(story.waitFor("Live"));
    hub.ignore("QuerySnapAndSubscribe");
    hub.clearRequests();
    hub.dropConnections();
    ASSERT_TRUE(hub.waitForCommand("QuerySnapAndSubscribe"));
    hub.pushToAll(Record(100, "IBM").add(token::BID, 5));
    ASSERT_TRUE(story.waitFor("update 5"));
    EXPECT_THAT(story.lines(),
                ElementsAre(HasSubstr("image "), "Live", "Stale", "Recovering", "gap", "update 5"));
}

TEST_F(FeedTest, SubscriptionsOfOneSymbolShareItAndEachGetsAnImage) {
    Story later;
    auto first = feed.subscribe({100, "IBM"}, writeTo(story, bid));
    ASSERT_TRUE(story.waitFor("Live"));
    pushBid(2);
    ASSERT_TRUE(story.waitFor("update 2"));
    auto second = feed.subscribe({100, "IBM"}, writeTo(later, bid));
    ASSERT_TRUE(later.waitFor("Live"));
    EXPECT_THAT(later.lines(), ElementsAre("image 2", "Live"));
    first.close();
    pushBid(3);
    ASSERT_TRUE(later.waitFor("update 3"));
    EXPECT_THAT(story.lines(), testing::Not(testing::Contains("update 3")));
    EXPECT_EQ(hub.statistics().subscriptions, 1U);
}

TEST_F(FeedTest, ALatecomerWhoseImageIsRefusedSaysSoAndLeavesTheOthersAlone) {
    Story later;
    auto first = feed.subscribe({100, "IBM"}, writeTo(story, bid));
    ASSERT_TRUE(story.waitFor("Live"));
    hub.refuse("QuerySnap", -5);
    auto second = feed.subscribe({100, "IBM"}, writeTo(later, bid));
    ASSERT_TRUE(later.waitFor("Refused"));
    EXPECT_EQ(second.error()->status(), -5);
    pushBid(3);
    ASSERT_TRUE(story.waitFor("update 3"));
    EXPECT_THAT(later.lines(), ElementsAre("Refused"));
}

TEST_F(FeedTest, NothingIsKeptForALatecomerThatIsGone) {
    std::shared_ptr<Story> inside(&story, [](Story* told) { told->add("let go"); });
    {
        tivra::FeedOptions options = optionsFor(hub);
        options.onError = [kept = std::move(inside)](const Error&) {};
        Feed other = Feed::open(std::move(options));
        auto first = other.subscribe({100, "IBM"}, writeTo(story, other.field("BID")));
        ASSERT_TRUE(story.waitFor("Live"));
        hub.ignore("QuerySnap");
        auto second = other.subscribe({100, "IBM"}, writeTo(story, bid));
        const auto request = hub.waitForCommand("QuerySnap");
        ASSERT_TRUE(request);
        second.close();
        hub.sendBody("5026=" + std::to_string(request->tag) + "|4=100|5=IBM");
        pushBid(8);
        ASSERT_TRUE(story.waitFor("update 8"));
        EXPECT_EQ(other.statistics().lateAnswers, 1U);
        second = other.subscribe({100, "IBM"}, writeTo(story, bid));
    }
    EXPECT_TRUE(story.waitFor("let go"));
}

TEST_F(FeedTest, ASubscriptionThatCantBeSentIsNotUnsubscribed) {
    tivra::FeedOptions options = optionsFor(hub);
    options.parameters = {{"MAX_WATCHLIST_SIZE_LONG", "1"}};
    Feed small = Feed::open(std::move(options));
    auto ibm = small.subscribe({100, "IBM"}, writeTo(story, bid));
    EXPECT_THAT(thrownBy([&] {
                    auto aig = small.subscribe({100, "AIG"}, writeTo(story, bid));
                }),
                HasSubstr("QueueFull"));
    ibm.close();
    const auto request = hub.waitForCommand("Unsubscribe");
    ASSERT_TRUE(request);
    EXPECT_EQ(request->value(token::SYMBOL), "IBM");
}

TEST_F(FeedTest, ASubscriptionMayEndInItsOwnCallback) {
    std::atomic<int> calls{0};
    tivra::Subscription ibm;
    std::atomic<bool> isReady{false};
    ibm = feed.subscribe({100, "IBM"}, [&](const tivra::Update&) {
        isReady.wait(false);
        ++calls;
        ibm = {};
        story.add("gone");
    });
    isReady = true;
    isReady.notify_all();
    ASSERT_TRUE(story.waitFor("gone"));
    ASSERT_TRUE(hub.waitForCommand("Unsubscribe"));
    pushBid(1);
    auto aig = feed.subscribe({100, "AIG"}, writeTo(story, bid));
    ASSERT_TRUE(story.waitFor("Live"));
    EXPECT_EQ(calls, 1);
}

TEST_F(FeedTest, ACallbackMaySubscribeItsOwnSymbolForAMoment) {
    auto ibm = feed.subscribe({100, "IBM"}, [&](const tivra::Update&) {
        auto brief = feed.subscribe({100, "IBM"}, [](const tivra::Update&) {});
    });
    auto aig = feed.subscribe({100, "AIG"}, writeTo(story, bid));
    ASSERT_TRUE(story.waitFor("Live"));
    EXPECT_EQ(feed.statistics().subscriptions, 2U);
}

TEST_F(FeedTest, CloseWaitsForTheCallbackThatRuns) {
    std::promise<void> closed;
    std::atomic<bool> isTooEarly{false};
    auto ibm = feed.subscribe({100, "IBM"}, [&](const tivra::Update&) {
        story.add("entered");
        isTooEarly = closed.get_future().wait_for(200ms) == std::future_status::ready;
        story.add("left");
    });
    ASSERT_TRUE(story.waitFor("entered"));
    ibm.close();
    closed.set_value();
    ASSERT_TRUE(story.waitFor("left"));
    EXPECT_FALSE(isTooEarly);
}

// A time-out is told on another thread than an image.
TEST_F(FeedTest, CallbacksThatEndEachOthersRequestsDontWaitForEachOther) {
    tivra_testkit::Gate isReady, isImage, isAnswer;
    hub.ignore("QuerySnap");
    tivra::FeedOptions options = optionsFor(hub);
    options.requestTimeout = 50ms;
    Feed impatient = Feed::open(std::move(options));
    tivra::Answer aig = impatient.query({100, "AIG"});
    tivra::Subscription ibm;
    aig.then([&](const tivra::Result<tivra::Snapshot>&) {
        isAnswer.open();
        isImage.wait();
        ibm.close();
        story.add("closed");
    });
    ibm = impatient.subscribe({100, "IBM"}, [&](const tivra::Update&) {
        isReady.wait();
        isAnswer.wait();
        isImage.open();
        aig.cancel();
        story.add("cancelled");
    });
    isReady.open();
    EXPECT_TRUE(story.waitFor("closed"));
    EXPECT_TRUE(story.waitFor("cancelled"));
}

TEST_F(FeedTest, ARefusedSymbolSaysWhy) {
    hub.refuse("QuerySnapAndSubscribe", -5);
    auto nothing = feed.subscribe({100, "IBM"}, writeTo(story, bid));
    ASSERT_TRUE(story.waitFor("Refused"));
    ASSERT_TRUE(nothing.error());
    EXPECT_EQ(nothing.error()->code(), Error::Code::Refused);
    EXPECT_EQ(nothing.error()->status(), -5);
    EXPECT_FALSE(nothing.error()->statusName().empty());
    // Another one asks anew.
    hub.clearRefusals();
    auto something = feed.subscribe({100, "IBM"}, writeTo(story, bid));
    EXPECT_TRUE(story.waitFor("Live"));
}

TEST_F(FeedTest, AnAnswerCanBeWaitedForOrHandedToACallback) {
    pushBid(7);
    const tivra::Snapshot ibm = feed.query({100, "IBM"}).get(20s);
    ASSERT_EQ(ibm.records().size(), 1U);
    EXPECT_EQ(ibm.records().front().symbol(), "IBM");
    EXPECT_EQ(ibm.get<double>(bid), 7.0);
    EXPECT_THAT(thrownBy([&] { static_cast<void>(ibm.get<std::string_view>(bid)); }), HasSubstr("WrongType"));
    feed.query({100, "AIG"}).then([&](tivra::Result<tivra::Snapshot> result) {
        story.add(std::string(result->records().front().symbol()));
    });
    EXPECT_TRUE(story.waitFor("AIG"));
    EXPECT_GT(feed.queryWildcard(100, "*").get(20s).records().size(), 2U);
    EXPECT_THAT(thrownBy([&] {
                    static_cast<void>(feed.query({100, "NOPE"}).get(20s));
                }),
                HasSubstr("Refused"));
    EXPECT_EQ(feed.statistics().requests, 0U);
}

TEST_F(FeedTest, ListsHaveARecordForEachEntry) {
    const tivra::Snapshot fields = feed.list(tivra::ListOf::Fields).get(20s);
    EXPECT_GT(fields.records().size(), 100U);
    EXPECT_TRUE(fields.isComplete());
    // The only message of this one has its record beside the status.
    EXPECT_EQ(feed.list(tivra::ListOf::Clients).get(20s).records().size(), 1U);
    EXPECT_FALSE(feed.list(tivra::ListOf::Sources).get(20s).isEmpty());
}

TEST_F(FeedTest, EnumeratedValuesHaveTheTextsOfTheDictionary) {
    const tivra::Enumerations texts = feed.enumerations();
    const tivra::Field type = feed.field("ENUM.INSTRUMENT.TYPE");
    const tivra::Field trading = feed.field("ENUM.TRADING.STATUS");
    EXPECT_GE(texts.size(), 4U);
    EXPECT_FALSE(texts.has(bid));
    const tivra::Snapshot ibm = feed.query({100, "IBM"}).get(20s);
    EXPECT_EQ(texts.textIn(ibm, type), "EQUITY");
    EXPECT_EQ(texts.textIn(ibm, trading), std::nullopt);
    EXPECT_EQ(texts.textOf(trading, 0), "CLOSED");
    EXPECT_EQ(texts.valueOf(trading, "HALTED"), 3);
    EXPECT_EQ(texts.valueOf(trading, "EQUITY"), std::nullopt);
    // A number that the dictionary doesn't list is shown as it is.
    hub.pushRecord(Record(100, "IBM").add(158, 77));
    std::optional<std::string> shown;
    auto subscription = feed.subscribe({100, "IBM"}, [&](const tivra::Update& update) {
        if (auto text = texts.textIn(update, trading))
            shown = text;
        story.add("seen");
    });
    ASSERT_TRUE(story.waitFor("seen"));
    subscription.close();
    EXPECT_EQ(shown, "77");
}

TEST(FeedAnswerTest, OfSeveralHubsThoseThatFailAreNamed) {
    tivra_sim::GroupConfig config = tivra_sim::GroupConfig::realistic(2);
    config.splits[100] = {{"^A", 0}, {"^[^A]", 1}};
    tivra_sim::HubGroup group(std::move(config));
    group.start();
    Feed feed = Feed::open(optionsFor(group.hub(0)));
    EXPECT_TRUE(feed.queryWildcard(100, "*").get(20s).isComplete());
    group.hub(1).refuse("QueryWildCard", -5);
    const tivra::Snapshot part = feed.queryWildcard(100, "*").get(20s);
    ASSERT_EQ(part.failures().size(), 1U);
    EXPECT_EQ(part.failures()[0].hub(), group.hub(1).hostString());
    EXPECT_EQ(part.failures()[0].status(), -5);
    EXPECT_FALSE(part.isEmpty());
    // With nothing from anybody it is an error.
    group.hub(0).refuse("QueryWildCard", -4);
    const auto nothing = feed.queryWildcard(100, "*").wait(20s);
    ASSERT_FALSE(nothing);
    EXPECT_EQ(nothing.error().status(), -5);
    EXPECT_EQ(nothing.error().hub(), group.hub(1).hostString());
}

TEST_F(FeedTest, ARequestEndsByItselfWhateverTheHubDoes) {
    hub.ignore("QuerySnap");
    tivra::Answer lost = feed.query({100, "IBM"});
    ASSERT_TRUE(hub.waitForCommand("QuerySnap"));
    hub.dropConnections();
    EXPECT_EQ(lost.wait(20s).error().code(), Error::Code::ConnectionLost);

    tivra::Answer cancelled = feed.query({100, "IBM"});
    EXPECT_EQ(cancelled.wait(0s).error().code(), Error::Code::TimedOut);
    cancelled.cancel();
    EXPECT_EQ(cancelled.wait(20s).error().code(), Error::Code::Cancelled);

    tivra::Answer closed = feed.query({100, "IBM"});
    EXPECT_TRUE(feed.close(20s));
    EXPECT_EQ(closed.wait(20s).error().code(), Error::Code::Closed);
    EXPECT_THAT(thrownBy([&] { static_cast<void>(feed.query({100, "IBM"})); }), HasSubstr("Closed"));
    EXPECT_THAT(thrownBy([&] { static_cast<void>(feed.field("NEVER.ASKED.FOR")); }), HasSubstr("Closed"));
}

TEST_F(FeedTest, AnAnswerThatNobodyWantsGoesThoughThereIsNoMemory) {
    hub.ignore("QuerySnap");
    for (long allocations = 0; allocations < 4; ++allocations) {
        std::optional<tivra::Answer> answer = feed.query({100, "IBM"});
        const FailedAllocation fails(allocations);
        answer.reset();
    }
    EXPECT_EQ(feed.statistics().requests, 0U);
}

TEST_F(FeedTest, ARequestTimesOut) {
    hub.ignore("QuerySnap");
    tivra::FeedOptions options = optionsFor(hub);
    options.requestTimeout = 50ms;
    Feed impatient = Feed::open(std::move(options));
    EXPECT_EQ(impatient.query({100, "IBM"}).wait(20s).error().code(), Error::Code::TimedOut);
}

TEST_F(FeedTest, AnExceptionOfACallbackIsReportedAndNothingElseHappens) {
    tivra::FeedOptions options = optionsFor(hub);
    options.onError = [&](const Error& error) { story.add(error.cause()); };
    Feed other = Feed::open(std::move(options));
    pushBid(7);
    tivra::SubscriptionHandlers handlers = writeTo(story, other.field("BID"));
    handlers.onUpdate = [&](const tivra::Update& update) {
        static_cast<void>(update.get<std::string_view>(other.field("BID")));
    };
    auto ibm = other.subscribe({100, "IBM"}, std::move(handlers));
    ASSERT_TRUE(story.waitFor("Live"));
    EXPECT_THAT(story.lines(), testing::Contains(HasSubstr("the field holds a double")));
    EXPECT_EQ(other.statistics().failedCallbacks, 1U);
}

TEST_F(FeedTest, ALoginThatIsRefusedLaterIsReported) {
    tivra::FeedOptions options = optionsFor(hub);
    options.onError = [&](const Error& error) { story.add(error.phaseName()); };
    Feed other = Feed::open(std::move(options));
    hub.refuseLogin(-4);
    hub.dropConnections();
    EXPECT_TRUE(story.waitFor("Login"));
}

TEST_F(FeedTest, ClosingMayTakeAnyTime) {
    EXPECT_TRUE(feed.close(std::chrono::milliseconds::max()));
}

TEST_F(FeedTest, AForkedChildMayUseNothingOfItAndEndsAtOnce) {
    if (kHasAddressSanitizer)
        GTEST_SKIP()
            << "a child inherits the mutexes of this sanitizer's allocator as they are, locked ones too";
    hub.ignore("QuerySnap");
    auto ibm = feed.subscribe({100, "IBM"}, writeTo(story, bid));
    ASSERT_TRUE(story.waitFor("Live"));
    tivra::Answer answer = feed.query({100, "AIG"});
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(5);
        bool isRefused = thrownBy([&] {
                             static_cast<void>(feed.query({100, "IBM"}));
                         }).find("parent") != std::string::npos;
        isRefused = isRefused && answer.wait(1s).error().code() == Error::Code::Closed;
        ibm = {};
        answer = {};
        { const Feed gone = std::move(feed); }
        ::_exit(isRefused ? 0 : 1);
    }
    int result = -1;
    ASSERT_EQ(::waitpid(child, &result, 0), child);
    EXPECT_EQ(result, 0);
    pushBid(5);
    EXPECT_TRUE(story.waitFor("update 5")) << "the parent goes on";
}

TEST_F(FeedTest, WhatCantBeAskedForIsRefusedAtTheCall) {
    for (const char* symbol : {"", "IBM|5022=LogoutUser", "A|B", "A=B", "IBM\n", " IBM", "IBM\x03",
                               "a symbol that is longer than it may be"})
        EXPECT_THAT(thrownBy([&] {
                        static_cast<void>(feed.query({100, symbol}));
                    }),
                    HasSubstr("InvalidArgument"))
            << symbol;
    EXPECT_THAT(thrownBy([&] { static_cast<void>(feed.query({0, "IBM"})); }), HasSubstr("isn't above 0"));
    EXPECT_THAT(thrownBy([&] { static_cast<void>(feed.field("BIDD")); }), HasSubstr("no hub has a field"));
    for (const tivra_sim::Request& request : hub.requests())
        EXPECT_NE(request.command, "QuerySnap");
}

TEST(FeedOpenTest, OptionsThatCantBeMeantAndHubsThatRefuseAreErrors) {
    StartedHub hub;
    const auto failureOf = [](const tivra::FeedOptions& options) {
        return thrownBy([&] { static_cast<void>(Feed::open(options)); });
    };
    const tivra::FeedOptions good = optionsFor(hub);
    tivra::FeedOptions options = good;
    options.hosts = {"127.0.0.1"};
    EXPECT_THAT(failureOf(options), HasSubstr("names no hub"));
    options = good;
    options.parameters = {{"READ_TIMEOUT_LNG", "5"}};
    EXPECT_THAT(failureOf(options), HasSubstr("the nearest is READ_TIMEOUT_LONG"));
    options.parameters = {{"READ_TIMEOUT_LONG", "5s"}};
    EXPECT_THAT(failureOf(options), HasSubstr("\"5s\" is no value for READ_TIMEOUT_LONG"));
    options = good;
    options.password = "wrong";
    const tivra::Result<Feed> refused = Feed::tryOpen(options);
    ASSERT_FALSE(refused.hasValue());
    EXPECT_EQ(refused.error().code(), Error::Code::Refused);
    EXPECT_EQ(refused.error().phase(), Error::Phase::Login);
    EXPECT_NE(refused.error().status(), 0);
    options = good;
    hub.ignore("LoginUser");
    for (const auto timeout : {0ms, 100ms}) {
        options.openTimeout = timeout;
        EXPECT_THAT(failureOf(options), HasSubstr("TimedOut"));
    }
    hub.stop();
    options.openTimeout = 20s;
    options.parameters = {{"CONNECTION_RETRY_LIMIT_LONG", "0"}};
    EXPECT_EQ(Feed::tryOpen(options).error().phase(), Error::Phase::Connect);
}

TEST(FeedOpenTest, FeedsWorkSideBySide) {
    constexpr std::size_t kFeeds = 50;
    std::vector<std::unique_ptr<StartedHub>> hubs;
    std::vector<Feed> feeds;
    Story story;
    std::vector<tivra::Subscription> subscriptions;
    for (std::size_t i = 0; i < kFeeds; ++i) {
        hubs.push_back(std::make_unique<StartedHub>());
        feeds.push_back(Feed::open(optionsFor(*hubs.back())));
        subscriptions.push_back(
            feeds.back().subscribe({100, "IBM"}, writeTo(story, feeds.back().field("BID"))));
    }
    for (const tivra::Subscription& subscription : subscriptions)
        ASSERT_TRUE(story.waitUntil([&] { return subscription.state() == DataState::Live; }));
    feeds.erase(feeds.begin());
    hubs[1]->pushRecord(Record(100, "IBM").add(token::BID, 77));
    EXPECT_TRUE(story.waitFor("update 77"));
    EXPECT_EQ(subscriptions.front().state(), DataState::Closed);
}
