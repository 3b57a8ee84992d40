// What a subscription hears of losses that hubs have one by one, and when its gaps begin and end.
#include "FeedFixture.h"

#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tp/Clock.h>

#include "dictionary/MetaTokenMap.h"
#include "feed/FeedImpl.h"
#include "feed/FeedSender.h"
#include "feed/FeedStream.h"
#include "kvnparse/Message.h"
#include "receive/Queue.h"

using testing::ElementsAre;
using namespace tivra_internal;

namespace {

class CountingSender : public FeedSender {
public:
    int64_t nextTag() override { return ++m_last; }
    bool send(tivra::Commands, const tivra::Instrument&, int64_t, int64_t) override { return true; }

private:
    int64_t m_last = 0;
};

[[nodiscard]] long lengthOf(const tivra::Gap& gap) {
    return std::chrono::round<std::chrono::seconds>(gap.to - gap.from).count();
}

/// A pattern that two hubs serve, which the test has say what it likes, while the clocks stand.
class GapTest : public testing::Test {
protected:
    GapTest() {
        for (const auto& hub : {&one, &other})
            sendImage(**hub);
        finishImage(*one);
        lines.clear();
    }
    ~GapTest() override { owner->close(std::chrono::seconds(20)); }

    [[nodiscard]] std::unique_ptr<FeedStream> open(const char* hub) {
        return std::make_unique<FeedStream>(registry, *owner, dictionary, hub, queue);
    }
    void sendImage(FeedStream& stream) { stream.deliver({message, item->tag()}); }
    void finishImage(FeedStream& stream) { stream.deliver({message, item->tag(), 0, true}); }
    /// With the last thing read so many seconds ago.
    static void lose(FeedStream& stream, double ago) { stream.connectionLost(tp::Clock::monotonic() - ago); }
    void comeBack(FeedStream& stream) {
        stream.connectionBegins();
        sendImage(stream);
        finishImage(stream);
    }

    const std::shared_ptr<FeedImpl> owner = FeedImpl::make([] {
        tivra::FeedOptions options;
        options.hosts = {"127.0.0.1:1"};
        options.user = "demo";
        options.password = "demo";
        return options;
    }());
    const tp::ManualClock clock;
    CountingSender sender;
    const std::shared_ptr<FeedRegistry> registry = std::make_shared<FeedRegistry>(sender, nullptr);
    const MetaTokenMap dictionary;
    const Queue queue{1, false, nullptr, 70};
    const KVNAPI::Message message;
    tivra::UpdateQueue waiting{{tivra::QueuePolicy::Latest}}; ///< has the gaps
    std::vector<std::string> lines;                           ///< "Stale", "image", "gap of 30 s"
    const std::shared_ptr<SubscriptionState> subscription = subscribe("I*");
    const std::shared_ptr<FeedItem> item = subscription->item();
    std::unique_ptr<FeedStream> one = open("127.0.0.1:1");
    std::unique_ptr<FeedStream> other = open("127.0.0.2:1");

    std::shared_ptr<SubscriptionState> subscribe(const char* pattern) {
        tivra::SubscriptionHandlers handlers;
        handlers.onUpdate = [this](const tivra::Update&) { lines.emplace_back("image"); };
        handlers.onState = [this](const tivra::SubscriptionView&, const tivra::StateChange& change) {
            lines.emplace_back(nameOf(change.to));
        };
        handlers.onGap = [this, enter = waiting.handlers().onGap](const tivra::SubscriptionView& view,
                                                                  const tivra::Gap& gap) {
            lines.push_back("gap of " + std::to_string(lengthOf(gap)) + " s");
            enter(view, gap);
        };
        return registry->subscribe(ItemKind::Pattern, {100, pattern},
                                   std::make_shared<const tivra::SubscriptionHandlers>(std::move(handlers)));
    }
};

} // namespace

TEST_F(GapTest, BeginsWithTheEarliestLossInWhicheverOrderTheyAreNoticed) {
    for (const auto& [first, second] : {std::pair(10.0, 30.0), std::pair(30.0, 10.0)}) {
        lines.clear();
        lose(*one, first);
        lose(*other, second);
        sendImage(*one);
        EXPECT_THAT(lines, ElementsAre("Stale", "Recovering", "gap of 30 s", "image")) << first;
        comeBack(*other);
        finishImage(*one);
    }
}

TEST_F(GapTest, GoesOnForWhatAHubCarriesThatIsNotBack) {
    lose(*one, 30.0);
    lose(*other, 10.0);
    comeBack(*one);
    EXPECT_THAT(lines, ElementsAre("Stale", "Recovering", "gap of 30 s", "image", "Stale"));
    lines.clear();
    tp::Clock::advance(5.0);
    comeBack(*other);
    EXPECT_THAT(lines, ElementsAre("Recovering", "gap of 15 s", "image", "Live"));
}

// The answer of both ends with the other hub's: nobody would hear that the first one is away.
TEST_F(GapTest, IsNoneBeforeAllHubsHaveAnsweredOfWhichOneIsLostMeanwhile) {
    const std::shared_ptr<SubscriptionState> young = subscribe("J*");
    const int64_t tag = young->item()->tag();
    const auto answer = [&](FeedStream& stream) {
        stream.deliver({message, tag});
        stream.hubAnswered(tag);
    };
    answer(*one);
    lose(*one, 10.0);
    answer(*other);
    other->deliver({message, tag, 0, true});
    EXPECT_EQ(young->state(), tivra::DataState::Pending);
    one->connectionBegins();
    lines.clear();
    answer(*one);
    one->deliver({message, tag, 0, true});
    EXPECT_THAT(lines, ElementsAre("image", "Live"));
}

TEST_F(GapTest, EndsForAHubThatAnswersWithoutARecord) {
    lose(*one, 30.0);
    lose(*other, 10.0);
    one->connectionBegins();
    one->hubAnswered(item->tag()); // and has been restarted, empty
    EXPECT_THAT(lines, ElementsAre("Stale", "Recovering", "gap of 30 s"));
    comeBack(*other);
    EXPECT_EQ(lines.back(), "Live");
    lines.clear();
    lose(*one, 5.0);
    EXPECT_THAT(lines, ElementsAre("Stale")) << "it may have had some of it since";
}

TEST_F(GapTest, EndsForAHubThatRefusesWhatItCarriedBefore) {
    lose(*one, 30.0);
    one->connectionBegins();
    one->hubRefused(item->tag(), -12);
    finishImage(*other);
    EXPECT_THAT(lines, ElementsAre("Stale", "Recovering", "gap of 30 s", "Live"));
}

TEST_F(GapTest, EndsWithWhoeverTakesOverFromAHubThatHasGoneForGood) {
    lose(*one, 30.0);
    lose(*other, 10.0);
    comeBack(*one);
    const std::unique_ptr<FeedStream> third = open("127.0.0.3:1");
    other.reset();
    lines.clear();
    comeBack(*third);
    EXPECT_THAT(lines, ElementsAre("Recovering", "gap of 10 s", "image", "Live"));
}

TEST_F(GapTest, IsAsLongAsItWasThoughTheClockIsSetMeanwhile) {
    lose(*one, 10.0);
    tp::Clock::stepWallClock(-3600.0);
    tp::Clock::advance(5.0);
    comeBack(*one);
    EXPECT_THAT(lines, ElementsAre("Stale", "Recovering", "gap of 15 s", "image", "Live"));
}

TEST_F(GapTest, OfAHubsOwnIsToldWhileAnImageComesAndWhileAnotherHubIsLost) {
    lose(*one, 10.0);
    lose(*other, 10.0);
    one->connectionBegins();
    sendImage(*one);
    lines.clear();
    one->hubDropped(500, tp::Clock::monotonic() - 2.0);
    finishImage(*one);
    one->hubDropped(500, tp::Clock::monotonic() - 3.0);
    EXPECT_THAT(lines, ElementsAre("gap of 2 s", "Stale", "gap of 3 s"));
}

TEST_F(GapTest, OfConflationEndsWhereThatOfALossBegins) {
    one->conflationChanged(true, tp::Clock::monotonic() - 40.0);
    lose(*one, 30.0);
    comeBack(*one);
    EXPECT_THAT(lines, ElementsAre("gap of 10 s", "Stale", "Recovering", "gap of 30 s", "image", "Live"));
}

TEST_F(GapTest, OfSeveralThatWaitInAQueueBeginsWithTheEarliest) {
    lose(*one, 10.0);
    comeBack(*one);
    lose(*other, 30.0);
    comeBack(*other);
    EXPECT_EQ(waiting.poll(10, [](const tivra::QueueEvent& event) { EXPECT_EQ(lengthOf(*event.gap), 30); }),
              1U);
}
