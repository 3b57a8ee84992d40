#include <event/MessageEvent.h>

#include <session/HostConfig.h>

#include "ReadHandlerFixture.h"
#include "config/HostConfigImpl.h"

namespace tivra_internal {
namespace {

class MessageEventTest : public ReadHandlerTest {
protected:
    /// Has the application look at each event, which then counts as seen.
    void onEvent(const std::function<void(const tivra::MessageEvent&)>& look) {
        application.onEvent = [this, look](const tivra::MessageEvent& event) {
            look(event);
            application.lines.emplace_back("seen");
        };
    }
};

TEST_F(MessageEventTest, HeadersAreReadWithoutTouchingThePairs) {
    onEvent([&](const tivra::MessageEvent& event) {
        EXPECT_EQ(event.getPermission(), 7);
        EXPECT_EQ(event.getStatusStringView(), "NOT.FOUND");
        EXPECT_EQ(event.getTag(), 4711000000001);
        EXPECT_EQ(event.getReader().peek(), 5026);
    });
    EXPECT_EQ(receive("5026=4711000000001|5001=-12|3=7|4=100|5=IBM|8=1"), "seen");
}

TEST_F(MessageEventTest, AlternateIndexesAreNamedByTheDictionaryOrNotAtAll) {
    session.altIndexes[20] = {index(3101, "A", tivra::QUERYSNAP)};
    onEvent([&](const tivra::MessageEvent& event) {
        EXPECT_EQ(event.getAlternateIndexTokenNameView(0), "CUSIP");
        for (const std::size_t outside : {std::size_t{1}, static_cast<std::size_t>(-1)}) {
            EXPECT_EQ(event.getAlternateIndexTokenNumber(outside), -1);
            EXPECT_EQ(event.getAlternateIndexTokenName(outside), "");
            EXPECT_EQ(event.getAlternateIndexValue(outside), "");
        }
    });
    EXPECT_EQ(receive("5026=20|4=100|5=IBM|3101=A"), "seen");
}

TEST_F(MessageEventTest, BodyIsWhatTheHubSentWhateverTheLibraryTakesOut) {
    session.altIndexes[20] = {index(3101, "A", tivra::QUERYSNAP)};
    for (const std::string body :
         {"5026=20|4=100|5=IBM|3101=A|8=1.50", "4=100|5=IBM|77777=x|8=", "5026=21|5001=0"}) {
        onEvent([&](const tivra::MessageEvent& event) { EXPECT_EQ(event.getBody(), body); });
        EXPECT_EQ(receive(body), "seen");
        EXPECT_EQ(application.lastEvent->getBody(), "") << "its bytes are no longer the queue's";
    }
}

TEST_F(MessageEventTest, ConflatableIsKnownOnlyWhenTheHubWasAskedToTell) {
    struct Case {
        const char* body;
        int conflatable;
    };
    const Case cases[] = {
        {"4=100|5=IBM|8=1", 1},         {"4=100|5=IBM|24=1", 1},
        {"4=100|5=IBM|5201=1", 0},      {"4=100|5=IBM|5201=0", 0},
        {"5026=20|4=100|5=IBM|8=1", 0}, {"5001=0", 0},
        {"4=922|5=.OTHER", 0},          {"5=IBM", 1},
    };
    HostConfigImpl host("10.0.0.1", 9000, nullptr, 0);
    int conflatable = 99;
    onEvent([&](const tivra::MessageEvent& event) { conflatable = event.isConflatable(); });
    for (const bool isAsked : {false, true}) {
        host.set(tivra::HostConfig::CONFLATION_INDICATOR_BOOL, isAsked);
        readHandler = std::make_unique<QueueReadHandler>(&queue, session, &host, nullptr, hub, false);
        for (const Case& c : cases) {
            ASSERT_EQ(receive(c.body), "seen") << c.body;
            EXPECT_EQ(conflatable, isAsked ? c.conflatable : -1) << c.body;
        }
    }
}

} // namespace
} // namespace tivra_internal
