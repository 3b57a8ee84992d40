#include "session/sources/SourceRegistry.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "session/HubClients.h"
#include "session/SessionEventQueue.h"
#include "session/lifecycle/SessionCheckDecision.h"
#include "session/sources/SourceSession.h"
#include "support/LogCapture.h"

using namespace tivra_internal;
using testing::ElementsAre;
using testing::IsEmpty;
using tivra::SessionEvent;

namespace {

class SourceRegistryTest : public testing::Test, protected SourceSession {
protected:
    SourceRegistryTest() {
        for (const int source : {100, 200}) {
            registry.addBoxSource(source, hubs[source == 200]);
            registry.addUserSource(source, nullptr);
        }
    }
    HubClient* firstHub() const override { return hubs[0]; }
    void askForHubOf(int source) override { asked.push_back(source); }

    std::vector<std::string> events() {
        std::vector<std::string> texts;
        while (const SessionEventPtr event = queue.pop())
            texts.push_back(sessionEventText(*event));
        return texts;
    }
    void establish(bool isNew) {
        registry.hubStatus().noteEstablished(hubs.all(), registry.entitled(), isNew, {},
                                             SessionEvent::TIVRA_SESSION_ESTABLISHED);
    }

    HubClients hubs{2};
    SessionEventQueue queue{hubs.session()};
    SourceRegistry registry{*this, queue};
    std::vector<int> asked;
};

TEST_F(SourceRegistryTest, SourcesComeAndGoWithTheHubThatServesThem) {
    registry.deleteEntitlement(200, hubs[0]);
    EXPECT_THAT(events(), IsEmpty()) << "not its own";
    registry.deleteEntitlement(200, hubs[1]);
    registry.deleteEntitlement(200, hubs[1]);
    registry.beginAddNewEntitlement(200);
    EXPECT_THAT(events(),
                ElementsAre("TIVRA_SESSION_SOURCE_REMOVED(200)", "TIVRA_SESSION_SOURCE_ADDED(200)"));
    for (const int source : {555, 555, 4096})
        registry.beginAddNewEntitlement(source);
    EXPECT_THAT(asked, ElementsAre(555)) << "once, and never for news";
    registry.addNewEntitlement(555, hubs[1]);
    EXPECT_EQ(registry.routes().find(555), hubs[1]);
    registry.addNewEntitlement(65536, hubs[1]);
    EXPECT_THAT(events(), ElementsAre("TIVRA_SESSION_SOURCE_ADDED(555)"));
    registry.forgetRoutes(hubs[1]);
    EXPECT_EQ(registry.routes().find(200), nullptr);
}

TEST_F(SourceRegistryTest, BeyondTheMostOfASessionSourcesAreIgnoredWhoeverNamesThem) {
    LogCapture log;
    registry.addBoxSource(500, hubs[0]);
    for (int source = 100'000; source < 200'000; ++source)
        registry.addBoxSource(source, hubs[0]);
    EXPECT_NE(registry.routes().find(199'996), nullptr);
    EXPECT_EQ(registry.routes().find(199'997), nullptr) << "with the three of before it is one too many";
    EXPECT_TRUE(log.has("WARN: Hubs list more than 100000 sources; source 199997 is ignored"));
    EXPECT_FALSE(registry.addUserSource(300, hubs[0]));
    registry.addNewEntitlement(301, hubs[0]);
    EXPECT_TRUE(log.has("WARN: Hubs list more than 100000 sources; source 301 is ignored"));
    EXPECT_THAT(events(), IsEmpty());
    EXPECT_EQ(registry.entitled().copy().count(301), 0U);
    registry.addNewEntitlement(500, hubs[0]);
    EXPECT_THAT(events(), ElementsAre("TIVRA_SESSION_SOURCE_ADDED(500)"))
        << "one that is known has its place";
}

TEST_F(SourceRegistryTest, TheSourcesOfALostHubGoAndComeBackAfterTheStateThatItLeads) {
    establish(true);
    EXPECT_THAT(events(), ElementsAre("SESSION_AVAILABLE_ALLSOURCES(100)",
                                      "SESSION_AVAILABLE_ALLSOURCES(200)", "SESSION_ESTABLISHED"));
    registry.hubStatus().noteDown(hubs[1]);
    registry.hubStatus().noteRecovery(SessionEvent::TIVRA_SESSION_RECOVERY);
    for (int i = 0; i < 2; ++i) // a second look finds nothing new
        registry.hubStatus().raiseSourceEvents();
    EXPECT_THAT(events(), ElementsAre("SESSION_RECOVERY", "SESSION_RECOVERY_SOURCES(200)"));
    establish(false);
    registry.hubStatus().raiseSourceEvents();
    EXPECT_THAT(events(), ElementsAre("SESSION_ESTABLISHED", "SESSION_AVAILABLE_SOURCES(200)"));
}

} // namespace
