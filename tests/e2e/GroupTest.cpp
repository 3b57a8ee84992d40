// The library and groups of hubs: which members a request reaches, what the application hears of each source
// as members go and come back, rights that change, and members that are busy, down, slow or wrong.
#include "Client.h"

#include <algorithm>
#include <future>
#include <memory>
#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tivra_sim/HubGroup.h>

using testing::ElementsAre;
using testing::HasSubstr;
using tivra_sim::GroupConfig;
using tivra_sim::Hub;
using tivra_sim::Record;
using tivra_sim::Request;
namespace status = tivra_sim::status;

namespace {

using Members = std::set<std::size_t>;

/// A group that serves, and a client that dials one of its members.
class Market {
public:
    explicit Market(GroupConfig config, std::size_t dialled = 0) : group(std::move(config)) {
        group.start();
        m_client = std::make_unique<Client>(group.hub(dialled));
    }
    explicit Market(std::size_t size) : Market(GroupConfig::realistic(size)) {}

    Client& client() { return *m_client; }
    Client* operator->() { return m_client.get(); }
    void useWatchlist() { m_client->settings().set(tivra::SessionConfig::WATCHLIST_BOOL, true); }

    /// What was asked of every member so far has been read by it, and its answers by the application: this is
    /// asked of all, and answered when the last of them has.
    void settle() { EXPECT_NE(client().ask(tivra::QUERYXREF, 0, "IBM"), Client::NO_ANSWER); }
    /// The texts of a tag that a member has got, in order.
    std::vector<std::string> textsAt(std::size_t member, std::int64_t tag) {
        std::vector<std::string> texts;
        for (const Request& request : group.hub(member).requests()) {
            if (request.tag == tag)
                texts.push_back(request.text);
        }
        return texts;
    }
    /// The members that a tag has reached. Each of them must have got `text`, and once;
    /// its tag stands at "#", else at the end.
    Members reached(std::int64_t tag, const std::string& text) {
        Members members;
        for (std::size_t i = 0; i < group.size(); ++i) {
            const std::vector<std::string> texts = textsAt(i, tag);
            if (texts.empty())
                continue;
            members.insert(i);
            std::string whole = text.find('#') == std::string::npos ? text + "|5026=#" : text;
            EXPECT_THAT(texts, ElementsAre(whole.replace(whole.find('#'), 1, std::to_string(tag))));
        }
        return members;
    }
    /// How many parts came before the end of a request, and its status.
    std::pair<std::size_t, int> answerOf(std::int64_t tag) {
        const std::vector<SeenMessage> seen = client().messagesOf(tag);
        return seen.empty() ? std::pair(std::size_t{0}, Client::NO_ANSWER)
                            : std::pair(seen.size() - 1, seen.back().status);
    }

    tivra_sim::HubGroup group;

private:
    std::unique_ptr<Client> m_client;
};

Members all(std::size_t size) {
    Members members;
    for (std::size_t i = 0; i < size; ++i)
        members.insert(i);
    return members;
}

/// The users of a realistic group get a source more, on which nobody has anything.
GroupConfig withOrphan(std::size_t size, int source) {
    GroupConfig config = GroupConfig::realistic(size);
    for (tivra_sim::GroupMember& member : config.members)
        member.hub.users[0].permissions.insert(source);
    return config;
}

struct GroupShape {
    std::size_t size;
    std::size_t dialled;
    const char* version = "V8.2.1";
};

void PrintTo(const GroupShape& shape, std::ostream* out) {
    *out << shape.size << " dialled at " << shape.dialled;
}

class GroupOf : public testing::TestWithParam<GroupShape> {};

TEST_P(GroupOf, EveryRequestReachesTheMembersThatItIsFor) {
    const auto [size, dialled, version] = GetParam();
    GroupConfig config = withOrphan(size, 777);
    const bool isOld = version[1] < '7'; // news is routed like any other source, so it is on one member only
    for (tivra_sim::GroupMember& member : config.members)
        member.hub.hubVersion = version;
    if (isOld)
        config.members[0].hub.boxPermissions.erase(4100);
    const std::size_t newsParts = isOld || size == 1 ? 1 : 2;
    Market market(std::move(config), dialled);
    ASSERT_TRUE(market->startAndWait());
    std::vector<std::string> events{"DIC_LOADED 20131007.1"};
    for (const int source : market.group.hub(0).config().users[0].permissions)
        events.push_back("AVAILABLE_ALLSOURCES " + std::to_string(source));
    // Nobody carries the orphan: it's routed, and not available.
    events.erase(std::remove(events.begin(), events.end(), "AVAILABLE_ALLSOURCES 777"), events.end());
    const std::size_t sources = events.size() - 1;
    events.push_back("ESTABLISHED");
    EXPECT_EQ(market->sessionEvents(), events);
    EXPECT_THAT(market->log(),
                HasSubstr("This client is connected to a " + std::to_string(size) + "-way HUB"));

    const Members everybody = all(size);
    const Members first{0}, last{size - 1}, byDefault{dialled};
    const Members newsHubs = isOld ? last : everybody;
    constexpr int any = Client::NO_ANSWER, noSymbol = status::UNKNOWN_SYMBOL;
    const auto noCommand = static_cast<tivra::Commands>(24);
    struct Row {
        tivra::Commands command;
        std::string text; ///< the command's word, or the whole text as Market::reached takes it
        int source;
        std::string symbol;
        Members members;
        int code; ///< of the answer; any for what is the simulator's business
        std::size_t parts = 0;
        std::vector<Client::Field> more = {};
    };
    std::vector<Row> table{
        {tivra::QUERYSNAP, "QuerySnap", 100, "IBM", first, 0, 1},
        {tivra::QUERYSNAP, "QuerySnap", 101, "IBM131221C185", {1 % size}, 0, 1},
        {tivra::QUERYSNAP, "QuerySnap", 102, "ESZ3", {2 % size}, status::NO_PERMISSION},
        {tivra::QUERYDEPTH, "QueryDepth", 101, "AIG131221C49", {1 % size}, 0, 1},
        {tivra::LISTAVAILABLETOKENS, "ListAvailableTokens", 101, "", {1 % size}, any},
        {tivra::ADDALTERNATEINDEX, "AddAlternateIndex", 101, "", {1 % size}, 0, 0, {{5035, "3126"}}},
        {noCommand, "4=100|5=IBM|5022=", 100, "IBM", first, any},
        // What nobody has is asked of the default hub.
        {tivra::QUERYSNAP, "QuerySnap", 777, "X", byDefault, status::NOT_CARRIED},
        {tivra::QUERYSNAP, "QuerySnap", 778, "X", byDefault, status::NOT_CARRIED},
        {tivra::QUERYSNAP, "QuerySnap", -2, "X", byDefault, any},
        {tivra::LISTUSERPERMISSION, "ListUserPermission", 0, "", byDefault, 0},
        {tivra::LISTENUMERATION, "ListEnumeration", 0, "", byDefault, any, 0, {{5035, "158"}}},
        {tivra::LISTAVAILABLETOKENS, "ListAvailableTokens", 0, "", byDefault, any},
        {tivra::LISTADMINISTRATIONINFO, "ListAdministrationInfo", 0, "", byDefault, 0},
        // By identifier: the image is asked for with the updates.
        {tivra::SUBSCRIBE, "QuerySnapAndSubscribe", 100, "", first, 0, 0, {{3123, "459200101"}}},
        {tivra::QUERYSNAP, "QuerySnap", 100, "", first, 0, 1, {{3125, "US4592001014"}}},
        {tivra::SUBSCRIBE, "QuerySnapAndSubscribe", 300, "", everybody, any, 0, {{3126, "1"}}},
        // A lower case letter matches too; what matches nothing is anybody's, so the default hub's.
        {tivra::QUERYSNAP, "QuerySnap", 300, "zz", last, status::UNKNOWN_SYMBOL},
        {tivra::QUERYSNAP, "QuerySnap", 300, "9", byDefault, status::UNKNOWN_SYMBOL},
        // The whole of a split source, news, and what names no source go to all.
        {tivra::QUERYWILDCARD, "QueryWildCard", 300, "*", everybody, 0, 26},
        {tivra::SUBSCRIBEWILDCARD, "SubscribeWildCard", 300, "*", everybody, 0},
        {tivra::UNSUBSCRIBEWILDCARD, "UnsubscribeWildCard", 300, "*", everybody, 0},
        {tivra::QUERYSNAPANDSUBSCRIBEWILDCARD, "QuerySnapAndSubscribeWildCard", 300, "Z*", everybody, any},
        {tivra::SUBSCRIBE, "Subscribe", 300, "{x", everybody, status::UNKNOWN_SYMBOL},
        {tivra::QUERYSNAP, "QuerySnap", 4100, "HEADLINES", newsHubs, 0, newsParts},
        {tivra::QUERYSNAP, "QuerySnap", 4100, "NOSUCH", newsHubs, isOld ? any : +status::NOT_CARRIED},
        {tivra::GETALLUSERS, "GetAllUsers", 0, "", everybody, 0},
        {tivra::GETACTIVECLIENTSINFO, "GetActiveClientsInfo", 0, "", everybody, 0, size - 1},
        {tivra::LISTEXTENDEDEXCHANGEINFO, "ListExtendedExchangeInfo", 0, "", everybody, 0, size - 1},
        {tivra::QUERYXREF, "QueryXRef", 0, "IBM", everybody, any},
        {tivra::SETCONFLATIONINTERVAL, "SetConflationInterval", 0, "", everybody, 0, 0, {{2029, "500"}}},
        {noCommand, "5=IBM|5022=", 0, "IBM", everybody, any},
        {tivra::QUERYSNAPANDSUBSCRIBE, "QuerySnapAndSubscribe", 0, "", everybody, any},
        {tivra::SUBSCRIBE, "5022=Subscribe|5026=#|5=FULLSUBNOTALLOWEDFROMAPI", 0, "", everybody, noSymbol},
        {tivra::UNSUBSCRIBE, "5022=Unsubscribe|5026=#|5=FULLUNSUBNOTALLOWEDFROMAPI", 0, "", everybody,
         noSymbol},
        // The library's own answer: each source but news.
        {tivra::GETSOURCEPORTDETAILS, "", 0, "", {}, 0, sources - 1},
    };
    for (std::size_t i = 0; i < size; ++i)
        table.push_back(
            {tivra::QUERYSNAP, "QuerySnap", 200 + int(i), "REGION" + std::to_string(i), {i}, 0, 1});
    for (std::size_t letter = 0, owner = 0; letter < 26; ++letter) {
        while (letter >= (owner + 1) * 26 / size)
            ++owner;
        const std::string symbol = static_cast<char>('A' + letter) + std::string("BOND");
        table.push_back({tivra::QUERYSNAP, "QuerySnap", 300, symbol, {owner}, 0, 1});
    }
    for (Row& row : table) {
        if (row.text.find('=') != std::string::npos)
            continue;
        row.text = "5022=" + row.text + (row.source != 0 ? "|4=" + std::to_string(row.source) : "");
        row.text += row.symbol.empty() ? "" : "|5=" + row.symbol;
        for (const auto& [number, value] : row.more)
            row.text += "|" + std::to_string(number) + "=" + value;
    }
    std::vector<std::int64_t> tags;
    for (const Row& row : table)
        tags.push_back(market->send(row.command, row.source, row.symbol, row.more));
    for (std::size_t i = 0; i < table.size(); ++i)
        ASSERT_TRUE(table[i].code == any || market->waitForEnd(tags[i])) << table[i].text;
    market.settle();
    EXPECT_THAT(market->log(), HasSubstr("Full subscribe not supported by API"));
    for (std::size_t i = 0; i < table.size(); ++i) {
        const Row& row = table[i];
        SCOPED_TRACE(row.text);
        EXPECT_EQ(market.reached(tags[i], row.text), row.members);
        if (row.code != any) {
            EXPECT_EQ(market.answerOf(tags[i]), std::pair(row.parts, row.code));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(E2E, GroupOf,
                         testing::Values(GroupShape{1, 0}, GroupShape{2, 0}, GroupShape{2, 1},
                                         GroupShape{3, 0}, GroupShape{3, 2}, GroupShape{8, 0},
                                         GroupShape{3, 1, "V6.9.0"}, GroupShape{8, 5}),
                         [](const auto& shape) {
                             return std::to_string(shape.param.size) + "Dialled" +
                                    std::to_string(shape.param.dialled) + "V" + shape.param.version[1];
                         });

TEST(Group, ADivisionHoldsThroughABadPatternUntilTheNextStartBringsAnother) {
    GroupConfig config = GroupConfig::realistic(3);
    config.splits[300] = {{"^a|^B", 1}, {"(", 2}, {"^[^a-b]", 2}};
    Market market(std::move(config));
    const auto expectAt = [&](const std::string& symbol, std::size_t owner) {
        const std::int64_t tag = market->send(tivra::QUERYSNAP, 300, symbol);
        ASSERT_TRUE(market->waitForEnd(tag));
        EXPECT_EQ(market.reached(tag, "5022=QuerySnap|4=300|5=" + symbol), Members{owner});
    };
    ASSERT_TRUE(market->startAndWait());
    for (const char* symbol : {"ABOND", "bBOND"})
        expectAt(symbol, 1);
    for (const char* symbol : {"CBOND", "zBOND"})
        expectAt(symbol, 2);
    EXPECT_THAT(market->log(), HasSubstr("regcomp failure"));
    market->session().stop();
    market.group.split(300, {{".", 0}});
    market.group.carry(300, {0});
    market->forget();
    for (std::size_t i = 0; i < 3; ++i)
        market.group.hub(i).clearRequests(); // tags begin anew
    ASSERT_TRUE(market->startAndWait());
    expectAt("ZBOND", 0);
}

TEST(Group, TheSourcesOfALostMemberGoAndComeBackInOrder) {
    Market market(3);
    market.useWatchlist();
    market->session().registerStatisticsEventHandler(&market.client(), 1);
    ASSERT_TRUE(market->startAndWait());
    const auto waitForDrops = [&](std::uint64_t drops) {
        return market->waitForStatistics(tivra::StatisticsEvent::HUB_DROP,
                                         [drops](std::uint64_t value) { return value == drops; });
    };
    std::vector<std::int64_t> standing;
    for (int i = 0; i < 3; ++i) {
        standing.push_back(market->send(tivra::SUBSCRIBE, 200 + i, "REGION" + std::to_string(i)));
        standing.push_back(market->send(tivra::SUBSCRIBE, 300, std::string(1, "AIR"[i]) + "BOND"));
    }
    for (const std::int64_t tag : standing)
        ASSERT_TRUE(market->waitForEnd(tag));
    market.group.hub(1).pushHubStatus(7, 0);
    EXPECT_TRUE(waitForDrops(7));
    // Sources that several members carry are those of the member whose list came first, and come last.
    const std::vector<std::vector<int>> sources{{100, 200}, {101, 201}, {202}};
    const std::vector<int> shared{300, 922, 4100};
    market->forget();
    std::vector<std::string> expected;
    const auto expectEvents = [&](const char* first, const std::string& word, std::size_t member) {
        expected.emplace_back(first);
        for (const int source : sources[member])
            expected.push_back(word + std::to_string(source));
        ASSERT_TRUE(market->waitForSessionEvent(expected.back()));
    };
    for (const std::size_t lost : {1U, 0U, 2U}) {
        SCOPED_TRACE(lost);
        Hub& hub = market.group.hub(lost);
        EXPECT_EQ(market->user().getState(), tivra::UserInfo::AUTHENTICATED);
        hub.stop();
        ASSERT_NO_FATAL_FAILURE(expectEvents("RECOVERY", "RECOVERY_SOURCES ", lost));
        EXPECT_EQ(market->session().getState(), tivra::Session::TIVRA_SESSION_RECOVERY);
        EXPECT_EQ(market->user().getState(), tivra::UserInfo::PARTIALLY_AUTHENTICATED);
        EXPECT_TRUE(lost != 1 || waitForDrops(0)) << "a hub that is away contributes nothing";
        const std::size_t other = (lost + 1) % 3;
        EXPECT_EQ(
            market->ask(tivra::QUERYSNAP, 200 + static_cast<int>(other), "REGION" + std::to_string(other)), 0)
            << "the others serve on";
        const std::int64_t held =
            market->send(tivra::QUERYSNAP, 200 + static_cast<int>(lost), "REGION" + std::to_string(lost));
        hub.clearRequests();
        hub.start();
        ASSERT_NO_FATAL_FAILURE(expectEvents("ESTABLISHED", "AVAILABLE_SOURCES ", lost));
        ASSERT_TRUE(market->waitForEnd(held)) << "asked while it was away";
        // What stood there stands again, in its old order and under its old tags.
        ASSERT_TRUE(hub.waitForSubscriptions(2));
        std::vector<std::int64_t> replayed;
        for (const Request& request : hub.requests()) {
            if (request.command == "Subscribe" && request.tag >= 18)
                replayed.push_back(request.tag);
        }
        EXPECT_THAT(replayed, ElementsAre(standing[2 * lost], standing[2 * lost + 1]));
    }
    for (const int source : shared)
        ASSERT_TRUE(market->waitForSessionEvent("AVAILABLE_SOURCES " + std::to_string(source)));
    std::vector<std::string> events = market->sessionEvents();
    for (const int source : shared) {
        std::vector<std::ptrdiff_t> rounds;
        for (const char* const word : {"RECOVERY_SOURCES ", "AVAILABLE_SOURCES "}) {
            const auto event = std::find(events.begin(), events.end(), word + std::to_string(source));
            ASSERT_NE(event, events.end());
            rounds.push_back(std::count(events.begin(), event, "RECOVERY"));
            events.erase(event);
        }
        EXPECT_EQ(rounds[0], rounds[1]) << "the member that takes it away brings it back";
    }
    EXPECT_EQ(events, expected);
}

TEST(Group, AnIdentifierIsFollowedThroughASplitSourceAndIntoTheUnsubscribe) {
    Market market(3);
    market.useWatchlist();
    ASSERT_TRUE(market->startAndWait());
    const Record quote = Record(300, "BBOND").add(101, "98").add(tivra::ISIN, "US1");
    market.group.pushRecord(quote);
    const std::int64_t tag = market->send(tivra::SUBSCRIBE, 300, "", {{tivra::ISIN, "US1"}});
    ASSERT_TRUE(market->waitForEnd(tag));
    EXPECT_EQ(market.reached(tag, "5022=QuerySnapAndSubscribe|4=300|3125=US1"), all(3));
    EXPECT_EQ(market.answerOf(tag), std::pair(std::size_t{0}, +status::UNKNOWN_SYMBOL)) << "the worst of all";
    EXPECT_EQ(market.group.pushRecord(quote), 1U);
    ASSERT_TRUE(market->waitForUpdates(1));
    EXPECT_THAT(market->messages().back().alternates,
                ElementsAre(testing::Pair(tivra_sim::token::ISIN, "US1")));
    const std::int64_t end =
        market->send(tivra::UNSUBSCRIBE, 0, "", {{tivra::QUERY_REF_TAG, std::to_string(tag)}});
    ASSERT_TRUE(market->waitForEnd(end));
    market.settle();
    EXPECT_EQ(market.reached(end, "5022=Unsubscribe|4=300|3125=US1"), all(3));
    EXPECT_EQ(market.group.pushRecord(quote), 0U);
}

TEST(Group, RightsToKnownAndUnknownSourcesComeAndGo) {
    Market market(3);
    ASSERT_TRUE(market->startAndWait());
    market->forget();
    std::vector<std::string> events;
    const auto expectEvent = [&](const std::string& event) {
        events.push_back(event);
        ASSERT_TRUE(market->waitForSessionEvent(
            event, static_cast<std::size_t>(std::count(events.begin(), events.end(), event))));
    };
    const auto asksFor = [](int source) {
        return [text = std::to_string(source)](const Request& request) {
            return request.command == "GetPort" && request.value(4) == text;
        };
    };
    const auto questions = [&](int source) {
        std::size_t count = 0;
        for (std::size_t i = 0; i < 3; ++i) {
            for (const Request& request : market.group.hub(i).requests()) {
                if (!asksFor(source)(request))
                    continue;
                ++count;
                EXPECT_EQ(i, 0U) << "only the default hub is asked";
                EXPECT_EQ(request.text, "5026=" + std::to_string(request.tag) +
                                            "|5022=GetPort|4=" + std::to_string(source));
            }
        }
        return count;
    };
    const auto reachedBy = [&](int source, const std::string& symbol, int code) {
        const std::int64_t tag = market->send(tivra::QUERYSNAP, source, symbol);
        EXPECT_TRUE(market->waitForEnd(tag));
        EXPECT_EQ(market->messagesOf(tag).back().status, code);
        market.settle();
        return market.reached(tag, "5022=QuerySnap|4=" + std::to_string(source) + "|5=" + symbol);
    };
    // Known: on the second member. Every member alerts, and the application hears of it once.
    market.group.hub(0).pushEntitlementAlert(201, false); // not its own
    market.group.hub(0).pushEntitlementAlert(100, false);
    expectEvent("SOURCE_REMOVED 100");
    EXPECT_EQ(market->sessionEvents(), events);
    market.group.withdraw("demo", 201);
    expectEvent("SOURCE_REMOVED 201");
    EXPECT_EQ(reachedBy(201, "REGION1", status::NO_PERMISSION), Members{1}) << "its hub still answers for it";
    market.group.grant("demo", 201);
    expectEvent("SOURCE_ADDED 201");
    EXPECT_EQ(reachedBy(201, "REGION1", 0), Members{1});
    market.group.grant("demo", 201);
    EXPECT_EQ(questions(201), 0U) << "its hub is known";

    // Unknown: carried by the third member since a moment ago.
    market.group.carry(555, {2});
    market.group.hub(2).pushRecord(Record(555, "NEW").add(101, "1"));
    EXPECT_EQ(reachedBy(555, "NEW", status::NOT_CARRIED), Members{0});
    market.group.grant("demo", 555);
    expectEvent("SOURCE_ADDED 555");
    EXPECT_EQ(reachedBy(555, "NEW", 0), Members{2});
    EXPECT_EQ(questions(555), 1U);
    market.group.withdraw("demo", 555);
    expectEvent("SOURCE_REMOVED 555");
    market.group.grant("demo", 555);
    expectEvent("SOURCE_ADDED 555");
    EXPECT_EQ(questions(555), 1U) << "asked once for the life of the session";

    // Nobody's.
    market.group.grant("demo", 556);
    ASSERT_TRUE(market.group.hub(0).waitForRequest(asksFor(556)));
    EXPECT_EQ(reachedBy(556, "X", status::NOT_CARRIED), Members{0});
    EXPECT_THAT(market->log(),
                HasSubstr("GetPort failed with rc=-46; dynamic add entitlement for src 556 has failed"));

    // Answers that name no hub.
    Hub& asked = market.group.hub(0);
    asked.ignore("GetPort");
    const std::string host = "13001=127.0.0.1|13101=", port = std::to_string(market.group.hub(1).port());
    const std::pair<std::string, std::string> answers[] = {
        {host + "70000", "GetPort failed with port=70000; dynamic add entitlement for src 557 has failed"},
        {host + "9", "No HubClient, so new entitlement for src 558 cannot be added"},
        {"13101=" + port, "hostConfig(:" + port + ") not found!"}};
    for (int source = 557; const auto& [fields, logged] : answers) {
        market.group.grant("demo", source);
        const std::optional<Request> question = asked.waitForRequest(asksFor(source));
        ASSERT_TRUE(question);
        asked.sendBody("5026=" + std::to_string(question->tag) + "|" + fields + "|5001=0");
        EXPECT_TRUE(market->waitForLog(logged));
        market.settle();
        EXPECT_EQ(questions(source++), 1U);
    }
    asked.clearRefusals();

    // What has been asked is forgotten by a stop.
    EXPECT_EQ(market->sessionEvents(), events);
    for (const bool isAnew : {false, true}) {
        if (isAnew) {
            market->session().stop();
            ASSERT_TRUE(market->startAndWait());
        }
        asked.clearRequests();
        asked.pushEntitlementAlert(560, true);
        EXPECT_TRUE(asked.waitForRequest(asksFor(560)));
    }
}

/// True: a hub thread for each member.
class GroupWithAClosedDoor : public testing::TestWithParam<bool> {};

TEST_P(GroupWithAClosedDoor, WhatWasSentMeanwhileReachesEveryMemberOnce) {
    Market market(3);
    market.useWatchlist();
    market->settings().set(tivra::SessionConfig::MULTITHREADED_API_CONNECTIONS_BOOL, GetParam());
    ASSERT_TRUE(market->startAndWait());
    const std::int64_t old = market->send(tivra::SUBSCRIBEWILDCARD, 4100, "*");
    ASSERT_TRUE(market->waitForEnd(old));

    Hub& closed = market.group.hub(2);
    market->forget();
    closed.refuseLogin(status::DENY_LOGIN);
    closed.dropConnections();
    ASSERT_TRUE(market->waitForUserEvents(1)) << "the refusal";
    std::vector<std::string> patterns;
    std::vector<std::int64_t> tags;
    const std::string symbol = "HEADLINES"; // the first and the last member have it
    for (std::size_t length = 1; length <= symbol.size(); ++length) {
        patterns.push_back(symbol.substr(0, length) + '*');
        tags.push_back(market->send(tivra::SUBSCRIBEWILDCARD, 4100, patterns.back()));
    }
    const std::int64_t off =
        market->send(tivra::UNSUBSCRIBE, 0, "", {{tivra::QUERY_REF_TAG, std::to_string(old)}});
    EXPECT_EQ(market->ask(tivra::QUERYSNAP, 100, "IBM"), 0) << "the others go on";
    const std::size_t refused = closed.statistics().accepted;
    ASSERT_TRUE(closed.waitFor([&](const auto& statistics) { return statistics.accepted > refused; }));
    closed.clearRefusals();

    EXPECT_TRUE(market->waitForEnd(off));
    for (const std::int64_t tag : tags)
        EXPECT_TRUE(market->waitForEnd(tag));
    market.settle();
    EXPECT_EQ(market.reached(off, "5022=UnsubscribeWildCard|4=4100|5=*"), all(3));
    for (std::size_t i = 0; i < tags.size(); ++i) {
        EXPECT_EQ(market.reached(tags[i], "5022=SubscribeWildCard|4=4100|5=" + patterns[i]), all(3));
        EXPECT_THAT(market->messagesOf(tags[i]), testing::SizeIs(1));
    }
    for (const std::size_t member : {0U, 2U}) {
        std::vector<std::string> standing;
        for (const tivra_sim::PresentSubscription& subscription : market.group.hub(member).subscriptions())
            standing.push_back(subscription.pattern);
        EXPECT_EQ(standing, patterns);
    }
}

INSTANTIATE_TEST_SUITE_P(E2E, GroupWithAClosedDoor, testing::Bool(), [](const auto& perHub) {
    return perHub.param ? std::string("ThreadPerHub") : std::string("SharedThread");
});

TEST(Group, DoesNotComeUpWhenOneMemberRefusesTheUser) {
    GroupConfig config = GroupConfig::realistic(3);
    config.members[1].behaviour.faults.push_back({"LoginUser", status::DENY_LOGIN});
    Market market(std::move(config));
    EXPECT_EQ(market->start(), "AUTHORIZATION_FAILURE");
    EXPECT_FALSE(market->isStarted);
}

TEST(Group, AMemberThatIsDownIsWaitedFor) {
    GroupConfig config = GroupConfig::realistic(3);
    config.members[1].behaviour.isDown = true;
    Market market(std::move(config));
    auto started = std::async(std::launch::async, [&] { return market->start(); });
    ASSERT_TRUE(market.group.hub(2).waitForCommand("ListSystemPermission"));
    ASSERT_TRUE(market.group.hub(0).waitForCommand("ListSystemPermission"));
    EXPECT_EQ(market->session().getState(), tivra::Session::TIVRA_SESSION_UNAVAILABLE);
    market.group.hub(1).start();
    EXPECT_EQ(started.get(), "Session started");
    market.settle();
}

/// A group names a hub at an address that nobody has allowed.
struct Elsewhere {
    std::string allowed;
    bool isOnlyAllowed;
    bool isDialled;
    bool isWarnedOf;
};

TEST(GroupElsewhere, IsDialledWithAWarningOrNotAtAllAndGetsNoLogin) {
    for (const Elsewhere& way : {Elsewhere{"", true, true, false}, Elsewhere{"127.0.0.1", false, true, true},
                                 Elsewhere{"127.0.0.1", true, false, false},
                                 Elsewhere{"localhost,127.0.0.2/31", true, true, false}}) {
        SCOPED_TRACE(way.allowed + (way.isOnlyAllowed ? " alone" : ""));
        GroupConfig config = GroupConfig::realistic(2);
        config.members[1].hub.bindAddress = "127.0.0.2";
        Market market(config);
        Client& client = market.client();
        client.connections()
            .setText(tivra::HostConfig::ALLOWED_HUBS_STRING, way.allowed)
            .set(tivra::HostConfig::ONLY_ALLOWED_HUBS_BOOL, way.isOnlyAllowed)
            .set(tivra::HostConfig::CONNECTION_RETRY_LIMIT_LONG, 0);
        static_cast<void>(client.start());
        EXPECT_EQ(client.isStarted, way.isDialled);
        EXPECT_EQ(market.group.hub(1).statistics().accepted, way.isDialled ? 1U : 0U);
        const std::string log = client.log();
        EXPECT_EQ(log.find("is elsewhere than the hosts") != std::string::npos, way.isWarnedOf) << log;
        EXPECT_EQ(log.find("not dialled: ONLY_ALLOWED_HUBS_BOOL") != std::string::npos, !way.isDialled)
            << log;
    }
}

} // namespace
