// What a queue hands out of a feed whose reader is slower than its hub.
#include "FeedFixture.h"

#include <future>
#include <memory>
#include <thread>
#include <utility>

#include <poll.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using tivra::QueueEvent;
using tivra::QueuePolicy;
using tivra_sim::Record;
namespace token = tivra_sim::token;

namespace {

class UpdateQueueTest : public FeedTest {
protected:
    void push(int number, int price) { hub.pushRecord(Record(100, "IBM").add(number, price)); }
    /// Everything that the hub has sent so far has been delivered.
    [[nodiscard]] bool waitForDelivery() {
        hub.pushRecord(Record(100, "AIG").add(token::BID, ++m_mark));
        return story.waitFor("update " + std::to_string(m_mark));
    }
    [[nodiscard]] bool loseAndRecover() {
        const auto gaps = aig.statistics().gaps;
        hub.dropConnections();
        return story.waitUntil([&] {
            return aig.state() == tivra::DataState::Live && aig.statistics().gaps > gaps;
        }) && hub.waitForSubscriptions(2);
    }
    /// One whose events go into a queue, so that the story doesn't hear of them.
    [[nodiscard]] static bool waitUntilLive(const tivra::Subscription& subscription) {
        const auto deadline = std::chrono::steady_clock::now() + 20s;
        while (subscription.state() != tivra::DataState::Live && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
        return subscription.state() == tivra::DataState::Live;
    }
    [[nodiscard]] std::string describe(const QueueEvent& event) const {
        std::ostringstream line;
        if (event.state != nullptr)
            line << nameOf(event.state->to);
        else if (event.gap != nullptr)
            line << "gap";
        else
            line << (event.kind == QueueEvent::Kind::Image ? "image " : "update ")
                 << event.get<double>(bid).value_or(-1.0);
        if (event.merged != 0)
            line << ", " << event.merged << " merged";
        if (event.dropped != 0)
            line << ", " << event.dropped << " dropped";
        return line.str();
    }
    std::vector<std::string> drain(tivra::UpdateQueue& queue) const {
        std::vector<std::string> lines;
        queue.poll(1000, [&](const QueueEvent& event) { lines.push_back(describe(event)); });
        return lines;
    }
    /// All events up to this one.
    std::vector<std::string> readTo(tivra::UpdateQueue& queue, const std::string& last) const {
        std::vector<std::string> lines;
        while ((lines.empty() || lines.back() != last) && queue.wait(20s))
            queue.poll(1, [&](const QueueEvent& event) { lines.push_back(describe(event)); });
        return lines;
    }

    const tivra::Field ask = feed.field("ASK");
    tivra::Subscription aig = feed.subscribe({100, "AIG"}, writeTo(story, bid));

private:
    int m_mark = 1000;
};

} // namespace

TEST(KeepersTest, WhatIsAssignedToItselfGoesOnTakingUpdates) {
    tivra::UpdateQueue queue;
    tivra::UpdateQueue& sameQueue = queue;
    queue = std::move(sameQueue);
    EXPECT_TRUE(queue.handlers().onUpdate);
    tivra::Board board;
    tivra::Board& sameBoard = board;
    board = std::move(sameBoard);
    EXPECT_TRUE(board.handlers().onUpdate);
}

TEST_F(UpdateQueueTest, StatesAndGapsComeOutInOrderWithTheDataAndTheEndIsTheLast) {
    tivra::UpdateQueue queue;
    auto ibm = feed.subscribe({100, "IBM"}, queue);
    static_cast<void>(readTo(queue, "Live"));
    pushBid(2);
    ASSERT_TRUE(waitForDelivery());
    ASSERT_TRUE(loseAndRecover());
    pushBid(4);
    ASSERT_TRUE(waitForDelivery());
    ibm.close();
    EXPECT_THAT(readTo(queue, "Closed"), ElementsAre("update 2", "Stale", "Recovering", "gap", "image 2",
                                                     "Live", "update 4", "Closed"));
}

// The thread that delivers may be the one that ends it, and be held up by what other handlers leave behind.
TEST_F(UpdateQueueTest, TheEndIsThereWhenCloseReturnsWhoeverHasTheSubscriptionInHand) {
    tivra::UpdateQueue queue;
    std::promise<void> isInCallback;
    std::promise<void> mayGo;
    tivra::Subscription ibm;
    tivra::Subscription other;
    auto held = std::shared_ptr<void>(nullptr, [gone = mayGo.get_future().share()](void*) {
        EXPECT_EQ(gone.wait_for(20s), std::future_status::ready);
    });
    tivra::SubscriptionHandlers handlers;
    handlers.onUpdate = [&, held = std::exchange(held, nullptr)](const tivra::Update& update) {
        if (update.get<double>(bid) != 2.0)
            return;
        isInCallback.set_value();
        const auto end = std::chrono::steady_clock::now() + 20s;
        while (ibm.state() != tivra::DataState::Closed && std::chrono::steady_clock::now() < end)
            std::this_thread::yield();
        update.subscription().close();
    };
    other = feed.subscribe({100, "IBM"}, std::move(handlers));
    ibm = feed.subscribe({100, "IBM"}, queue);
    static_cast<void>(readTo(queue, "Live"));
    pushBid(2);
    ASSERT_EQ(isInCallback.get_future().wait_for(20s), std::future_status::ready);
    ibm.close();
    EXPECT_THAT(drain(queue), testing::Contains("Closed"));
    mayGo.set_value();
}

TEST_F(UpdateQueueTest, ExactTimesAreThoseOfTheSocket) {
    tivra::QueueOptions options;
    options.exactTimes = true;
    tivra::UpdateQueue queue(options);
    const tivra::SubscriptionHandlers toQueue = queue.handlers();
    tivra::SubscriptionHandlers handlers = toQueue;
    std::vector<std::chrono::system_clock::time_point> received;
    handlers.onUpdate = [&](const tivra::Update& update) {
        received.push_back(update.receivedAt());
        toQueue.onUpdate(update);
    };
    auto ibm = feed.subscribe({100, "IBM"}, handlers);
    static_cast<void>(readTo(queue, "Live"));
    received.clear();
    for (int price = 1; price <= 5; ++price)
        pushBid(price);
    ASSERT_TRUE(waitForDelivery());
    std::size_t i = 0;
    queue.poll(10, [&](const QueueEvent& event) {
        EXPECT_LT(std::chrono::abs(event.time - received.at(i++)), 100us) << "of a millisecond";
    });
    EXPECT_EQ(i, 5U);
}

TEST_F(UpdateQueueTest, TheLatestHasEachFieldsLastValueAndSaysHowManyItStandsFor) {
    tivra::UpdateQueue queue({QueuePolicy::Latest});
    auto ibm = feed.subscribe({100, "IBM"}, queue);
    static_cast<void>(readTo(queue, "Live"));
    pushBid(2);
    push(token::ASK, 3);
    pushBid(4);
    ASSERT_TRUE(waitForDelivery());
    QueueEvent event;
    EXPECT_EQ(queue.poll(10, [&](const QueueEvent& one) { event = one; }), 1U);
    EXPECT_EQ(describe(event), "update 4, 2 merged");
    EXPECT_EQ(event.get<double>(ask), 3.0);
    ASSERT_EQ(queue.counts().size(), 1U);
    EXPECT_EQ(queue.counts().front().symbol, "IBM");
    EXPECT_EQ(queue.counts().front().merged, 2U);
}

TEST_F(UpdateQueueTest, TheLatestIsCutAtAGapAndGapsThatWaitComeToOne) {
    tivra::UpdateQueue queue({QueuePolicy::Latest});
    auto ibm = feed.subscribe({100, "IBM"}, queue);
    static_cast<void>(readTo(queue, "Live"));
    for (int price = 2; price <= 4; ++price) {
        pushBid(price);
        ASSERT_TRUE(waitForDelivery());
        if (price != 4) {
            ASSERT_TRUE(loseAndRecover());
            ASSERT_TRUE(waitForDelivery());
        }
    }
    // Of the first new image and the update after it nothing is left.
    EXPECT_THAT(drain(queue), ElementsAre("update 2", "Stale", "Recovering", "gap, 1 merged, 2 dropped",
                                          "image 3", "Live", "update 4"));
    const tivra::QueueStatistics figures = queue.statistics();
    EXPECT_EQ(figures.entered, figures.taken + figures.merged + figures.dropped);
    EXPECT_EQ(figures.bytes, 0U);
}

TEST_F(UpdateQueueTest, TheOldestMakeRoomAndAreCountedBeforeWhatFollowsThem) {
    tivra::UpdateQueue queue({QueuePolicy::DropOldest, 2});
    auto ibm = feed.subscribe({100, "IBM"}, queue);
    ASSERT_TRUE(waitUntilLive(ibm));
    for (int price = 1; price <= 5; ++price)
        pushBid(price);
    ASSERT_TRUE(waitForDelivery());
    EXPECT_THAT(drain(queue), ElementsAre("Live, 4 dropped", "update 4", "update 5"));
    EXPECT_EQ(queue.statistics().dropped, 4U);
    EXPECT_GT(queue.statistics().droppedBytes, 0U);
}

/// Whether it is the subscription that ends, or the queue.
class FullQueue : public UpdateQueueTest, public testing::WithParamInterface<bool> {};

INSTANTIATE_TEST_SUITE_P(Of, FullQueue, testing::Bool());

TEST_P(FullQueue, HoldsTheHubUntilItIsReadOrNobodyFillsIt) {
    auto queue = std::make_unique<tivra::UpdateQueue>(tivra::QueueOptions{QueuePolicy::Block, 2});
    auto ibm = feed.subscribe({100, "IBM"}, *queue);
    ASSERT_TRUE(waitUntilLive(ibm));
    for (int price = 1; price <= 50; ++price)
        pushBid(price);
    hub.pushRecord(Record(100, "AIG").add(token::BID, 7));
    for (int price = 1; price <= 20; ++price) {
        EXPECT_LE(queue->statistics().events, 3U) << "one update more than it has room for";
        const auto lines = readTo(*queue, "update " + std::to_string(price));
        EXPECT_LE(lines.size(), price == 1 ? 3U : 1U) << "nothing is left out";
    }
    EXPECT_THAT(story.lines(), testing::Not(testing::Contains("update 7")));
    if (GetParam())
        ibm.close(); // waits for nobody
    else
        queue.reset();
    EXPECT_TRUE(story.waitFor("update 7"));
}

TEST_F(UpdateQueueTest, AFeedClosesThoughAFullQueueHoldsIt) {
    tivra::UpdateQueue queue({QueuePolicy::Block, 1});
    auto ibm = feed.subscribe({100, "IBM"}, queue);
    for (int price = 1; price <= 5; ++price)
        pushBid(price);
    ASSERT_TRUE(queue.wait(20s));
    EXPECT_TRUE(feed.close(20s));
    EXPECT_EQ(drain(queue).back(), "Closed");
}

TEST_F(UpdateQueueTest, TheDescriptorCanBeReadAsLongAsEventsWait) {
    tivra::UpdateQueue queue;
    pollfd ready{queue.descriptor(), POLLIN, 0};
    EXPECT_EQ(::poll(&ready, 1, 0), 0);
    auto ibm = feed.subscribe({100, "IBM"}, queue);
    EXPECT_EQ(::poll(&ready, 1, 20'000), 1);
    ASSERT_TRUE(waitForDelivery());
    EXPECT_EQ(queue.poll(1, [](const QueueEvent&) {}), 1U);
    EXPECT_EQ(::poll(&ready, 1, 0), 1);
    static_cast<void>(drain(queue));
    EXPECT_EQ(::poll(&ready, 1, 0), 0);
    EXPECT_THROW(tivra::UpdateQueue({QueuePolicy::Block, 0}), tivra::Error);
}
