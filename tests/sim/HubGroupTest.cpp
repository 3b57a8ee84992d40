#include "tivra_sim/HubGroup.h"

#include "SimTest.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

using namespace tivra_sim;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

GroupConfig quietGroup(std::size_t size) {
    GroupConfig config = GroupConfig::realistic(size);
    for (GroupMember& member : config.members)
        member.hub.heartbeat.enabled = member.hub.hubStatus.enabled = false;
    return config;
}

/// A running group and a client of plain sockets at each member that is up.
struct Raw {
    explicit Raw(GroupConfig config) : group(std::move(config)) {
        group.start();
        for (std::size_t i = 0; i < group.size(); ++i)
            clients.push_back(group.hub(i).isRunning() ? std::make_unique<LoggedIn>(group.hub(i)) : nullptr);
    }
    explicit Raw(std::size_t size) : Raw(quietGroup(size)) {}

    RawClient& at(std::size_t member) { return *clients.at(member); }
    std::string place(std::size_t member) {
        return "|13001=127.0.0.1|13101=" + std::to_string(group.hub(member).port());
    }
    /// The statuses that the members give, in order.
    std::vector<int> statuses(const std::string& text) {
        std::vector<int> result;
        for (const auto& client : clients)
            result.push_back(client->statusOf("5026=77|5022=" + text));
        return result;
    }

    HubGroup group;
    std::vector<std::unique_ptr<LoggedIn>> clients;
};

class GroupOfSize : public testing::TestWithParam<std::size_t> {};

TEST_P(GroupOfSize, EveryMemberTellsOfAllAndServesItsOwnSources) {
    const std::size_t size = GetParam();
    Raw raw(size);
    std::string all = "5026=7|4=922";
    for (std::size_t i = 0; i < size; ++i)
        all += raw.place(i);
    all += size == 1 ? raw.place(0) : "";
    for (std::size_t i = 0; i < size; ++i) {
        SCOPED_TRACE(i);
        EXPECT_THAT(raw.at(i).ask("5026=7|5022=GetPort|4=922"), ElementsAre(all + "|5001=0"));
        // Each knows where the others' sources are.
        for (std::size_t owner = 0; owner < size; ++owner) {
            const std::string region = std::to_string(200 + owner);
            EXPECT_THAT(raw.at(i).ask("5026=7|5022=GetPort|4=" + region),
                        ElementsAre("5026=7|4=" + region + raw.place(owner) + "|5001=0"));
            EXPECT_EQ(
                raw.at(i).statusOf("5026=8|5022=QuerySnap|4=" + region + "|5=REGION" + std::to_string(owner)),
                owner == i ? status::SUCCESS : status::NOT_CARRIED);
        }
        EXPECT_THAT(
            raw.at(i).ask("5026=7|5022=GetPort|4=4100"),
            ElementsAre("5026=7|4=4100" + raw.place(0) + (size > 1 ? raw.place(size - 1) : "") + "|5001=0"));
        EXPECT_EQ(raw.at(i).statusOf("5026=7|5022=GetPort|4=777"), status::NO_PORT);
    }
}

INSTANTIATE_TEST_SUITE_P(HubGroup, GroupOfSize, testing::Values(1, 2, 3, 8));

TEST(HubGroup, ASplitSourceIsDividedByPatternsWhileItRuns) {
    Raw raw(3);
    EXPECT_THAT(raw.at(1).ask("5026=8|5022=ListSplitExchanges"),
                ElementsAre("5026=8|4=300|5={^[I-Q]}", "5026=8|5001=0"));
    // Letters in any case; where two patterns match, the first text decides; the rest is with the first
    // carrier; a pattern that does not compile is told and has nothing.
    raw.group.split(300, {{"^a|^B", 0}, {"^[BC]", 1}, {"(", 2}, {"D", 2}});
    EXPECT_THAT(raw.at(0).ask("5026=8|5022=ListSplitExchanges"),
                ElementsAre("5026=8|4=300|5={^a~^B}", "5026=8|5001=0"));
    EXPECT_THAT(raw.at(2).ask("5026=8|5022=ListSplitExchanges"),
                ElementsAre("5026=8|4=300|5={(}|5={D}", "5026=8|5001=0"));
    const int no = status::UNKNOWN_SYMBOL;
    EXPECT_THAT(raw.statuses("QuerySnap|4=300|5=ABOND"), ElementsAre(no, no, 0))
        << "D matches, and sorts first";
    raw.group.split(300, {{"^a|^B", 0}, {"^[BC]", 1}, {"^Z", 2}});
    EXPECT_THAT(raw.statuses("QuerySnap|4=300|5=ABOND"), ElementsAre(0, no, no));
    EXPECT_THAT(raw.statuses("QuerySnap|4=300|5=BBOND"), ElementsAre(no, 0, no));
    EXPECT_THAT(raw.statuses("QuerySnap|4=300|5=YBOND"), ElementsAre(0, no, no));
    // A source that nobody had, and the end of a division.
    raw.group.grant("demo", 301);
    raw.group.split(301, {{"^X", 1}, {"^Y", 2}});
    EXPECT_THAT(raw.statuses("Subscribe|4=301|5="), ElementsAre(status::NOT_CARRIED, 0, 0));
    EXPECT_EQ(raw.group.pushRecord(Record(301, "XY").add(token::BID, 1)), 1U)
        << "to the subscriber of its member";
    EXPECT_EQ(raw.group.pushRecord(Record(301, "Y").add(token::BID, 1)), 1U);
    raw.group.split(301, {});
    EXPECT_EQ(raw.group.pushRecord(Record(301, "Z").add(token::BID, 1)), 2U);
    EXPECT_THROW(raw.group.split(301, {{"x", 3}}), std::out_of_range);
    EXPECT_THROW(raw.group.carry(301, {0, 3}), std::out_of_range);
}

TEST(HubGroup, RightsComeAndGoForAUserOnAllMembers) {
    GroupConfig config = quietGroup(2);
    for (GroupMember& member : config.members)
        member.hub.users.push_back({"eve", "secret", {SYSTEM_SOURCE}, 0});
    Raw raw(std::move(config));
    RawClient eve(raw.group.hub(1));
    EXPECT_EQ(eve.statusOf("5026=1|5022=LoginUser|5028=eve|5029=secret"), 0);

    EXPECT_EQ(raw.group.withdraw("demo", 200), 2U) << "a connection at each member";
    EXPECT_EQ(raw.at(0).next(), "3=922|4=922|5=.USER.ENT.ALERT|4=200|230=1");
    EXPECT_EQ(raw.at(1).next(), "3=922|4=922|5=.USER.ENT.ALERT|4=200|230=1");
    EXPECT_THAT(raw.statuses("QuerySnap|4=200|5=REGION0"),
                ElementsAre(status::NO_PERMISSION, status::NOT_CARRIED));
    EXPECT_EQ(raw.group.grant("eve", 201), 1U);
    EXPECT_EQ(eve.next(), "3=922|4=922|5=.USER.ENT.ALERT|4=201");
    EXPECT_EQ(eve.statusOf("5026=2|5022=QuerySnap|4=201|5=REGION1"), 0);
    EXPECT_EQ(raw.group.grant("nobody", 201), 0U);

    // A source that no member carries, until one does.
    raw.group.grant("demo", 555);
    EXPECT_EQ(raw.at(0).statusOf("5026=7|5022=GetPort|4=555"), status::NO_PORT);
    raw.group.carry(555, {1});
    EXPECT_THAT(raw.at(0).ask("5026=7|5022=GetPort|4=555"),
                ElementsAre("5026=7|4=555" + raw.place(1) + "|5001=0"));
    raw.group.carry(555, {0});
    EXPECT_THAT(raw.statuses("Subscribe|4=555"), ElementsAre(0, status::NOT_CARRIED));
}

TEST(HubGroup, NewsThatAMemberDoesNotHaveIsElsewhere) {
    Raw raw(3);
    raw.group.hub(2).pushRecord(Record(4100, "SCOOP").add(301, "Only here"));
    EXPECT_THAT(raw.statuses("QuerySnap|4=4100|5=SCOOP"),
                ElementsAre(status::NOT_CARRIED, status::NOT_CARRIED, 0));
    EXPECT_THAT(raw.statuses("QuerySnap|4=4100|5=HEADLINES"), ElementsAre(0, status::NOT_CARRIED, 0));
    EXPECT_EQ(raw.group.pushRecord(Record(4100, "LATE").add(301, "x")), 0U) << "nobody subscribed";
    EXPECT_THAT(raw.statuses("QuerySnap|4=4100|5=LATE"), ElementsAre(0, status::NOT_CARRIED, 0));
}

TEST(HubGroup, MembersMayDifferAndBehaveBadlyFromTheStart) {
    GroupConfig config = GroupConfig::fromJson(R"({
        "size": 3,
        "hub": {"heartbeat": {"enabled": false}, "hubStatus": {"enabled": false}},
        "members": [
            {"behaviour": {"faults": [{"command": "QuerySnap", "answer": -218, "times": 1},
                                      {"command": "Echo", "answer": "twice", "times": 1},
                                      {"command": "GetAllUsers", "answer": "none"}]}},
            {"hubVersion": "V7.3.0", "dictionaryVersion": "other", "behaviour": {"answerDelayMs": 20}},
            {"behaviour": {"down": true}}]})");
    Raw raw(std::move(config));
    const std::string snap = "5026=3|5022=QuerySnap|4=200|5=REGION0";
    EXPECT_EQ(raw.at(0).statusOf(snap), status::BUSY);
    EXPECT_EQ(raw.at(0).statusOf(snap), 0);
    raw.at(0).send("5026=6|5022=GetAllUsers");
    raw.at(0).send("5026=4|5022=Echo");
    EXPECT_EQ(raw.at(0).next(), "5026=4|5001=0");
    EXPECT_EQ(raw.at(0).next(), "5026=4|5001=0");
    const auto sent = std::chrono::steady_clock::now();
    EXPECT_THAT(raw.at(1).ask("5026=5|5022=ListAdministrationInfo"),
                ElementsAre("5026=5|5080=other|5008=V7.3.0|5001=0"));
    EXPECT_GE(std::chrono::steady_clock::now() - sent, std::chrono::milliseconds(20));
    // The member that is down has a place all the same, and comes up there.
    EXPECT_THAT(raw.at(0).ask("5026=7|5022=GetPort|4=202"),
                ElementsAre("5026=7|4=202" + raw.place(2) + "|5001=0"));
    EXPECT_THROW(RawClient(raw.group.hub(2)), std::runtime_error);
    raw.group.hub(2).start();
    LoggedIn(raw.group.hub(2));
}

TEST(HubGroup, ManagersAndTheRolesBehindThemComeFromJson) {
    GroupConfig config = GroupConfig::fromJson(R"({
        "size": 3,
        "hub": {"heartbeat": {"enabled": false}, "hubStatus": {"enabled": false}},
        "members": [{"role": "door"}, {}, {"role": "xref"}],
        "managers": [{"users": {"demo": "password"}, "delayMs": 1}, {"address": "127.0.1.9", "status": -9}]})");
    EXPECT_EQ(GroupConfig::fromJson(config.toJson()).toJson(), config.toJson());
    EXPECT_THAT(config.toJson(HubConfig::Passwords::Hide), testing::Not(HasSubstr("password")));
    Raw raw(std::move(config));
    EXPECT_EQ(raw.group.manager(0).port(), raw.group.manager(1).port());
    EXPECT_EQ(raw.group.managedHostString(2, 1), "127.0.1.9:" + std::to_string(raw.group.hub(2).port()));
    for (std::size_t member = 0; member < 3; ++member) {
        EXPECT_THAT(raw.at(member).ask("5026=7|5022=GetPort|4=922"),
                    ElementsAre("5026=7|4=922" + raw.place(1) + raw.place(2) + "|5001=0"));
        EXPECT_THAT(raw.at(member).ask("5026=15|5022=GetAllPorts"),
                    ElementsAre("5026=15|13101=" + std::to_string(raw.group.hub(1).port()) + "|5001=0"));
    }
}

TEST(HubGroup, APortThatIsTakenLeavesNoMemberRunning) {
    StartedHub other;
    GroupConfig config = quietGroup(2);
    config.members[0].hub.port = other.port();
    HubGroup group(std::move(config));
    EXPECT_THROW(group.start(), std::system_error);
    EXPECT_FALSE(group.hub(1).isRunning());
    other.stop();
    group.start();
    LoggedIn(group.hub(0));
}

} // namespace
