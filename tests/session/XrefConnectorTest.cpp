#include "session/xref/XrefConnector.h"

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <tp/Clock.h>

#include "request/RequestImpl.h"
#include "session/HubClients.h"
#include "session/xref/XrefSession.h"
#include "support/LogCapture.h"

using namespace tivra_internal;
using testing::ElementsAre;

namespace {

using Phase = XrefConnector::Phase;
constexpr double kLimit = 20.0;

/// Two hubs, at the ports 1 and 2, with a session that notes what it is asked for.
class XrefConnectorTest : public testing::Test, protected XrefSession {
protected:
    XrefConnectorTest() {
        for (const int port : {1, 2}) {
            at(port).setQueryXRefHUB(true);
            connector.addPort(static_cast<uint16_t>(port));
        }
    }

    HubClient& at(int port) const { return *hubs[static_cast<std::size_t>(port - 1)]; }
    bool isLeavingItsHubs() const override {
        if (const auto look = std::exchange(nextLook, {}))
            look();
        return isLeaving;
    }
    double xrefWaitLimit() const override { return kLimit; }
    std::optional<HubClient*> createXrefHub(uint16_t port) override {
        if (port == impossiblePort)
            return std::nullopt;
        note("new", port);
        return &at(port);
    }
    void bringBackXrefHub(HubClient& client) override {
        if (client.life().hasLeft()) {
            note("back", client.getHubPort());
            client.startAnew();
        }
    }
    bool isHubServed(const HubClient& client) override { return &client == stillServed; }
    void serveXrefHubs(const std::vector<HubClient*>& all,
                       const std::function<void(HubClient&)>& mark) override {
        for (HubClient* client : all)
            mark(*client);
    }
    void removeXrefHub(HubClient& client) override {
        client.life().retire();
        note("remove", client.getHubPort());
    }
    void enterGrantedRoute(int source, uint16_t port) override { note(std::to_string(source) + " at", port); }
    void note(const std::string& what, uint16_t port) { seen.insert(what + ' ' + std::to_string(port)); }

    void bringUp(int port) { XrefConnector::noteConnected(at(port)); }
    void fail(int port) { XrefConnector::giveUp(at(port)); }
    /// What the connector has asked for meanwhile.
    std::multiset<std::string> asked() { return std::exchange(seen, {}); }
    bool waits() {
        const RequestImpl builder;
        auto request = std::make_unique<RequestInternal>(&builder);
        return connector.waitsForHubs(request, 2);
    }

    tp::ManualClock clock;
    HubClients hubs{2};
    XrefConnector connector{*this};
    std::multiset<std::string> seen;
    mutable std::function<void()> nextLook; ///< what happens before the connector looks for the first time
    bool isLeaving = false;
    int impossiblePort = 0;
    const HubClient* stillServed = nullptr;
};

TEST_F(XrefConnectorTest, AnAttemptEndsWhenTheFateOfEachHubIsKnownOrNobodyWillReportIt) {
    using Asked = std::multiset<std::string>;
    const struct {
        int line;
        std::function<void()> happens;
        Phase phase;
        Asked asked;
    } rows[] = {
        {__LINE__, [&] { bringUp(1), bringUp(2); }, Phase::Done, {"new 1", "new 2", "77 at 2"}},
        {__LINE__, [&] { bringUp(1), fail(2); }, Phase::Failed, {"new 1", "new 2", "remove 2"}},
        {__LINE__, [&] { bringUp(2), isLeaving = true; }, Phase::Failed, {"new 1", "new 2", "remove 1"}},
        {__LINE__,
         [] { tp::Clock::advance(kLimit + 1); },
         Phase::Failed,
         {"new 1", "new 2", "remove 1", "remove 2"}}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << "line " << row.line);
        connector.reset();
        isLeaving = false;
        for (const int port : {1, 2}) {
            at(port).startAnew();
            connector.addPort(static_cast<uint16_t>(port));
        }
        EXPECT_TRUE(connector.mayBeNeeded());
        connector.addGrantedSource(77, 2);
        nextLook = [&] {
            EXPECT_TRUE(connector.isComing(at(1)));
            row.happens();
            connector.decideXrefHubs();
        };
        connector.connectForEntitlements();
        EXPECT_EQ(connector.phase(), row.phase);
        EXPECT_EQ(asked(), row.asked);
        EXPECT_FALSE(connector.mayBeNeeded()) << "it is the first need that connects them";
    }
}

TEST_F(XrefConnectorTest, OfMorePortsThanASessionMayHaveHubsTheFurtherOnesAreLeftOut) {
    LogCapture log;
    for (int port = 3; port <= 256; ++port)
        connector.addPort(static_cast<uint16_t>(port));
    connector.addPort(256);
    EXPECT_TRUE(log.linesAboveDebug().empty());
    connector.addPort(257);
    EXPECT_TRUE(log.has("WARN: A hub names more than 256 ports for cross references; port 257 is left out"));
    connector.removePort(256);
    log.forget();
    connector.addPort(257);
    EXPECT_TRUE(log.linesAboveDebug().empty()) << "there is room for it";
}

TEST_F(XrefConnectorTest, AHubThatCannotBeMadeFailsTheAttemptForThoseThatAreNotUp) {
    impossiblePort = 2;
    connector.getRemainingPorts();
    EXPECT_EQ(connector.phase(), Phase::Failed);
    EXPECT_THAT(asked(), ElementsAre("new 1", "remove 1"));
}

TEST_F(XrefConnectorTest, AfterAPauseTheNextRequestsWaitForAnotherAttemptBesideOtherWork) {
    nextLook = [&] {
        bringUp(1), fail(2);
        connector.decideXrefHubs();
    };
    connector.getRemainingPorts();
    EXPECT_FALSE(waits()) << "too soon";
    tp::Clock::advance(31.0);
    stillServed = &at(2);
    EXPECT_FALSE(waits()) << "its thread has yet to let go of it";
    stillServed = nullptr;
    asked();
    EXPECT_TRUE(waits());
    EXPECT_THAT(asked(), ElementsAre("back 2"));
    EXPECT_TRUE(waits());
    EXPECT_FALSE(waits()) << "no more than the limit";
    EXPECT_FALSE(connector.continueRetry());
    bringUp(2);
    connector.decideXrefHubs();
    EXPECT_TRUE(connector.continueRetry());
    EXPECT_EQ(connector.takeWaiting().size(), 2U);
    EXPECT_TRUE(connector.isDone());
    EXPECT_FALSE(connector.continueRetry());
}

} // namespace
