// What the answer to the first port look-up says about the group, and split sources.
#include "hub/HandshakeFixture.h"

namespace tivra_internal {
namespace {

using testing::Contains;
using testing::HasSubstr;

class HubPortsTest : public HandshakeFixture {
protected:
    /// What the session is told when a hub answers this to the port look-up.
    void expectKind(const std::string& ports, const std::string& kind, const std::string& created = "") {
        makeHandshake();
        session.first = client();
        session.told.clear();
        LogCapture log;
        loginAndConverse("GetPort", {"5026=7" + ports + "|5001=0"});
        EXPECT_EQ(handshake->hubKind() == HubKind::Aggregating, kind == "AGG") << ports;
        EXPECT_EQ(handshake->hubKind() == HubKind::SingleInstance, kind == "single-instance HUB") << ports;
        EXPECT_TRUE(log.has("INFO: This client is connected to a " + kind)) << ports;
        std::string told;
        for (const std::string& line : session.told)
            told += line.rfind("create ", 0) == 0 ? line.substr(6) : "";
        EXPECT_EQ(told, created) << ports;
    }
    /// A client that isn't the first and so asks for split sources; its requests.
    std::vector<std::string> askForSplit(const std::string& answer) {
        session.everyHubIsFirst = false;
        session.enumLoaded = true;
        session.told.clear();
        makeHandshake();
        return wordsOf(loginAndConverse("ListSplitExchanges", {answer}));
    }
};

TEST_F(HubPortsTest, TheAnswerDecidesWhatKindOfHubThisIs) {
    const std::string own = ownPort();
    expectKind("", "AGG");
    EXPECT_TRUE(ready);
    EXPECT_THAT(session.told, Contains("user 558 here"));
    expectKind(own, "single-instance HUB");
    expectKind(own + "|13001=127.0.0.1", "1-way HUB");
    expectKind(own + "|13001=10.0.0.1|13101=7001|13101=7002", "3-way HUB", " 10.0.0.1:7001 10.0.0.1:7002");
    EXPECT_TRUE(handshake->waitsForSiblings());
    closeConnection();
    EXPECT_FALSE(handshake->waitsForSiblings()) << "a lost hub is no more exempt from the time-out";
    expectKind(own + "|13101=0|13101=65536|13101=-4", "1-way HUB");
    expectKind("|13101=7001" + own, "1-way HUB");
}

TEST_F(HubPortsTest, AHubThatNamesOnlyOthersIsReachedThroughAnUnknownAddress) {
    const std::string text =
        "It appears client is using NAT to reach HUB, but did not properly configure NAT pair(s) to API.";
    makeHandshake();
    LogCapture log;
    // Its own port at another address, and its own address at another port.
    loginAndConverse("GetPort", {"5026=7|13001=10.0.0.1|13101=" + std::to_string(kPort) +
                                 "|13001=127.0.0.1|13101=1|5001=0"});
    EXPECT_EQ(suspendReason, text);
    EXPECT_FALSE(handshake->hubKind() == HubKind::Aggregating);
    EXPECT_THAT(log.linesAboveDebug(),
                testing::AllOf(Contains("WARN: " + text), Contains(HasSubstr("dialled " + hostString())),
                               Contains(HasSubstr("10.0.0.1|13101=")),
                               testing::Not(Contains("CRIT: Unable to successfully process AGG check!"))));
}

TEST_F(HubPortsTest, SplitEntriesNameSourcesThenTheSymbolsThatApplyToThem) {
    const std::pair<const char*, std::vector<std::string>> cases[] = {
        {"|4=1|5=/A/", {"split 1", "split 1 by A"}},
        {"|4=1|4=2|5=/A/|5=/B~C/",
         {"split 1", "split 2", "split 1 by A", "split 2 by A", "split 1 by B|C", "split 2 by B|C"}},
        {"|4=1|5=/A/|5=/B/|4=2|5=/C/",
         {"split 1", "split 1 by A", "split 1 by B", "split 2", "split 1 by C", "split 2 by C"}},
        {"|4=1", {"split 1"}},
        {"|4=1|5=//", {"split 1"}},
        {"|5=/A/", {}},
    };
    for (const auto& [entry, told] : cases) {
        askForSplit("5026=8" + std::string(entry));
        EXPECT_EQ(session.told, told) << entry;
    }
}

TEST_F(HubPortsTest, AManagersHubWhoseListOfPortsIsUnreadableIsWaitedForAndMakesNoHubs) {
    session.managers.m_isCMconnection = true;
    makeHandshake();
    EXPECT_EQ(wordsOf(loginAndConverse("GetAllPorts", {"5026=15|13101=0|13101=65536"})).back(),
              "GetAllPorts");
    EXPECT_FALSE(ready || isSuspended());
    EXPECT_THAT(session.told, testing::Each(testing::Not(HasSubstr("create"))));
}

TEST_F(HubPortsTest, ARefusedSplitListLeavesTheClientWaiting) {
    LogCapture log;
    EXPECT_EQ(askForSplit("5026=8|5001=-9").back(), "ListSplitExchanges");
    EXPECT_FALSE(ready);
    EXPECT_TRUE(log.has("WARN: ListSplitExchanges failed on " + hostString() +
                        " with return code = -9: Unknown code"));
}

} // namespace
} // namespace tivra_internal
