#include "session/lifecycle/StateMachine.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "config/HostFixture.h"
#include "session/HubClients.h"
#include "session/NewHubs.h"
#include "session/SessionEventQueue.h"
#include "session/lifecycle/ChangeOver.h"
#include "session/lifecycle/FirstHubSession.h"
#include "session/lifecycle/FirstHubs.h"
#include "session/lifecycle/HostLists.h"
#include "session/lifecycle/PartialStart.h"
#include "session/lifecycle/RunState.h"
#include "session/lifecycle/StartLatch.h"
#include "session/lifecycle/StateSession.h"
#include "session/sources/SourceRegistry.h"
#include "session/sources/SourceSession.h"
#include "session/xref/XrefConnector.h"
#include "session/xref/XrefSession.h"

using namespace tivra_internal;
using testing::ElementsAre;
using testing::IsEmpty;
using tivra::Session;

namespace {

using Events = std::vector<std::string>;

struct NoXrefHubs : XrefSession {
    bool isLeavingItsHubs() const override { return false; }
    double xrefWaitLimit() const override { return 0.0; }
    std::optional<HubClient*> createXrefHub(uint16_t) override { return std::nullopt; }
    void bringBackXrefHub(HubClient&) override {}
    bool isHubServed(const HubClient&) override { return false; }
    void serveXrefHubs(const std::vector<HubClient*>&, const std::function<void(HubClient&)>&) override {}
    void removeXrefHub(HubClient&) override {}
    void enterGrantedRoute(int, uint16_t) override {}
};

/// Two configured hosts, the hub of the first of which has been made.
class StateMachineTest : public testing::Test,
                         protected StateSession,
                         protected FirstHubSession,
                         protected SourceSession {
protected:
    StateMachineTest() {
        for (const char* text : {"10.0.0.1:1", "10.0.0.1:2"})
            (void)configured.host(text);
        lists.read(configured.table, managers);
        makeFirstHub();
    }

    std::vector<HubClient*> hubs() const override { return up; }
    void abortStart(const std::string& reason) override {
        latch.settle(StartLatch::Outcome::Aborted, reason);
    }
    void markDroppedHubs() override {}
    HostConfigImpl* configuredHost(const HostPair& pair) override {
        return configured.table.findByAddress(pair.addr, pair.port);
    }
    bool hasHubAt(const HostConfigImpl&) override { return false; }
    bool createFirstHub(HostConfigImpl&) override { return makeFirstHub(); }
    HubClient* firstHub() const override { return up.front(); }
    void askForHubOf(int) override { FAIL(); }

    bool makeFirstHub() {
        up.push_back(clients[up.size()]);
        return firstHubs.add(up.back());
    }
    /// The hub is ready, and gets its read handler.
    void bringUp(std::size_t index) {
        up[index] = clients[index];
        newHubs.enterReady(*up[index]);
        newHubs.clear();
    }
    /// One that isn't ready stands in its place.
    void lose(std::size_t index) { up[index] = clients[index + 2]; }
    Events check() {
        machine.check();
        Events texts;
        while (const SessionEventPtr event = queue.pop())
            texts.push_back(sessionEventText(*event));
        return texts;
    }

    HostFixture configured;
    HubClients clients{4};
    std::vector<HubClient*> up;
    ConnectionManagers managers;
    HostLists lists;
    RunState run;
    ChangeOver changeOver{run};
    StartLatch latch;
    FirstHubs firstHubs{*this, lists, changeOver, managers};
    NewHubs newHubs;
    NoXrefHubs noXrefHubs;
    XrefConnector xref{noXrefHubs};
    SessionEventQueue queue{clients.session()};
    SourceRegistry sources{*this, queue};
    PartialStart partial;
    StateMachine machine{*this, {run, latch, partial, firstHubs, newHubs, xref, managers, sources, queue}};
    std::string why;
};

TEST_F(StateMachineTest, StartsWithoutAHubThatHasFailedAndTakesItInLater) {
    partial.require(1);
    partial.setAside(*up[0]);
    for (int i = 0; i < 3; ++i)
        EXPECT_THAT(check(), IsEmpty());
    ASSERT_EQ(up.size(), 2U) << "the next hub has its turn";
    bringUp(1);
    EXPECT_THAT(check(), ElementsAre("SESSION_RECOVERY"));
    ASSERT_EQ(latch.wait(why), StartLatch::Outcome::Established);
    bringUp(0);
    EXPECT_THAT(check(), ElementsAre("SESSION_ESTABLISHED"));
    lose(0);
    lose(1);
    EXPECT_THAT(check(), ElementsAre("SESSION_UNAVAILABLE"));
    bringUp(1);
    EXPECT_THAT(check(), ElementsAre("SESSION_RECOVERY")) << "some of the hubs are enough";
}

TEST_F(StateMachineTest, WaitsForAsManyHubsAsAPartialStartNeeds) {
    partial.require(2);
    partial.setAside(*up[0]);
    static_cast<void>(check());
    static_cast<void>(check());
    bringUp(1);
    EXPECT_THAT(check(), IsEmpty());
    EXPECT_FALSE(machine.isInitiallyEstablished());
    bringUp(0);
    EXPECT_THAT(check(), ElementsAre("SESSION_ESTABLISHED"));
}

TEST_F(StateMachineTest, FollowsTheHubsFromTheFirstToAllAndThroughTheirLosses) {
    bringUp(0);
    for (const std::size_t made : {1U, 2U, 2U}) {
        EXPECT_THAT(check(), IsEmpty());
        EXPECT_EQ(up.size(), made) << "the next hub is made by the check after all are ready";
    }
    EXPECT_FALSE(run.isStarted());
    bringUp(1);
    EXPECT_THAT(check(), ElementsAre("SESSION_ESTABLISHED"));
    EXPECT_EQ(latch.wait(why), StartLatch::Outcome::Established);
    EXPECT_TRUE(run.isStarted() && machine.isInitiallyEstablished());

    lose(1);
    EXPECT_THAT(check(), ElementsAre("SESSION_RECOVERY"));
    up[1] = clients[1];
    newHubs.enter(*up[1]);
    EXPECT_THAT(check(), IsEmpty()) << "it has no read handler yet";
    newHubs.clear();
    EXPECT_THAT(check(), ElementsAre("SESSION_ESTABLISHED"));
    machine.countLoss();
    EXPECT_THAT(check(), ElementsAre("SESSION_RECOVERY")) << "it was back before the check";
    lose(0), lose(1);
    EXPECT_THAT(check(), ElementsAre("SESSION_UNAVAILABLE"));
    bringUp(0), bringUp(1);
    EXPECT_THAT(check(), ElementsAre("SESSION_ESTABLISHED"));
    machine.reset();
    EXPECT_EQ(machine.state(), Session::TIVRA_SESSION_UNAVAILABLE);
}

TEST_F(StateMachineTest, TwoHostsThatLeadToOneHubFailTheStartForGood) {
    managers.m_isCMconnection = true;
    managers.setHubOfPort(2, "10.0.0.7");
    bringUp(0);
    check();
    check();
    EXPECT_EQ(latch.wait(why), StartLatch::Outcome::Aborted);
    EXPECT_EQ(why, "HUB already created, Ports/IP should be of different HUB types");
    firstHubs.endList();
    EXPECT_THAT(check(), IsEmpty()) << "too late";
}

TEST_F(StateMachineTest, ReportsOnceThatHubsConflateAndOnceThatNoneDoes) {
    for (int turn = 0; turn < 2; ++turn) {
        Events seen;
        for (const int delta : {1, 1, 0, -1, -1, 0}) {
            machine.addJitCount(delta);
            for (const std::string& text : check())
                seen.push_back(text);
        }
        EXPECT_THAT(seen,
                    ElementsAre("TIVRA_SESSION_JIT_START_CONFLATING", "TIVRA_SESSION_JIT_STOP_CONFLATING"));
    }
}

} // namespace
