// What the hub sees of a session that comes up: exact texts in their order.
#include "Client.h"

#include <ostream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAreArray;
using tivra::HostConfig;
using tivra_sim::HubConfig;

namespace {

struct Conversation {
    const char* name;
    std::function<void(HubConfig&)> hub;
    std::function<void(Client::Options&)> options;
    std::function<void(tivra::ConnectionConfig&)> configure;
    /// Changes what a plain session sends, keyed by the command's text.
    std::function<void(std::vector<std::string>&)> change;
};

std::vector<std::string> plainConversation() {
    return {"5026=1|5022=LoginUser|5028=demo|5029=demo|13265=0|5053=V1.7.0.1|5129=C++|5128=Linux",
            "5026=2|5022=ListEnumeration|5035=5001",
            "5026=3|5022=SetConflationInterval|2029=1000",
            "5026=5|5022=ListAdministrationInfo",
            "5026=4|5022=SetConflationType|2035=1",
            "5026=6|5022=ListInternalTokens",
            "5026=7|5022=GetPort|4=922",
            "5026=9|5022=ListSystemPermission",
            "5026=10|5022=ListUserPermission",
            "5026=12|5022=Subscribe|4=922|5=.UTC.TIME.DATE",
            "5026=13|5022=Subscribe|4=922|5=.HUB.STATUS"};
}

void replace(std::vector<std::string>& texts, const std::string& begin, const std::string& text) {
    for (std::size_t i = 0; i < texts.size(); ++i) {
        if (texts[i].rfind(begin, 0) != 0)
            continue;
        if (text.empty())
            texts.erase(texts.begin() + static_cast<std::ptrdiff_t>(i));
        else
            texts[i] = text;
        return;
    }
    ADD_FAILURE() << begin;
}

auto version(const char* text) {
    return [text](HubConfig& config) { config.hubVersion = text; };
}

auto conflation(long interval, long type, long threshold) {
    return [=](tivra::ConnectionConfig& config) {
        config.set(HostConfig::CONFLATION_INTERVAL_LONG, interval)
            .set(HostConfig::CONFLATION_TYPE_LONG, type)
            .set(HostConfig::JIT_CONFLATION_THRESHOLD_PERCENT_LONG, threshold);
    };
}

auto swap(const char* begin, const char* text) {
    return [=](std::vector<std::string>& texts) { replace(texts, begin, text); };
}

auto interval500AndType(const char* type) {
    return [=](std::vector<std::string>& texts) {
        replace(texts, "5026=3|", "5026=3|5022=SetConflationInterval|2029=500");
        replace(texts, "5026=4|", type);
    };
}

const Conversation conversations[] = {
    {"SingleInstance", {}, {}, {}, {}},
    {"Aggregating",
     [](HubConfig& config) { config.topology = tivra_sim::Topology::Aggregating; },
     {},
     {},
     {}},
    {"NoHeartbeat",
     {},
     {},
     [](tivra::ConnectionConfig& config) { config.set(HostConfig::READ_TIMEOUT_LONG, 0); },
     swap("5026=12|", "")},
    {"ConflationIndicatorAndLanguage",
     {},
     [](Client::Options& options) { options.language = "Java"; },
     [](tivra::ConnectionConfig& config) { config.set(HostConfig::CONFLATION_INDICATOR_BOOL, true); },
     swap("5026=1|",
          "5026=1|5022=LoginUser|5028=demo|5029=demo|13265=0|5053=V1.7.0.1|5129=Java|5128=Linux|5201=1")},
    {"LanguageExternalStaysDefault",
     {},
     [](Client::Options& options) { options.language = "External"; },
     {},
     {}},
    {"Version73HasNoConflationType", version("V7.3.9"), {}, {}, swap("5026=4|", "")},
    {"Version74", version("7.4.0"), {}, conflation(1000, 3, 30), {}},
    {"VersionWithoutDotHasNoConflationType", version("82"), {}, {}, swap("5026=4|", "")},
    {"JitFrom75",
     version("V7.5.0"),
     {},
     conflation(500, 3, 0),
     interval500AndType("5026=4|5022=SetConflationType|2035=3|3683=1")},
    {"IntervalizedNeeds78",
     version("V7.7.0"),
     {},
     conflation(500, 4, 76),
     interval500AndType("5026=4|5022=SetConflationType|2035=1")},
    {"IntervalizedFrom78",
     version("V7.8.0"),
     {},
     conflation(500, 4, 76),
     interval500AndType("5026=4|5022=SetConflationType|2035=4|3683=75")},
    {"ThresholdWithoutJit",
     version("V8.0.0"),
     {},
     conflation(500, 1, 30),
     interval500AndType("5026=4|5022=SetConflationType|2035=1")},
};

std::ostream& operator<<(std::ostream& out, const Conversation& param) {
    return out << param.name;
}

class ConversationTest : public testing::TestWithParam<Conversation> {};

TEST_P(ConversationTest, SendsExactlyThisInThisOrder) {
    const Conversation& param = GetParam();
    HubConfig config = HubConfig::realistic();
    if (param.hub)
        param.hub(config);
    StartedHub hub(config);
    Client::Options options({hub.hostString()});
    if (param.options)
        param.options(options);
    Client client(options);
    if (param.configure)
        param.configure(client.connections());
    std::vector<std::string> expected = plainConversation();
    if (param.change)
        param.change(expected);

    ASSERT_TRUE(client.startAndWait());
    EXPECT_THAT(hub.requestTexts(), ElementsAreArray(expected));
    EXPECT_TRUE(client.waitForUserEvents(1));
    EXPECT_EQ(client.userEvents(), std::vector<std::string>{"SUCCESS"});
    EXPECT_EQ(client.user().getState(), tivra::UserInfo::AUTHENTICATED);
    EXPECT_EQ(client.session().getState(), tivra::Session::TIVRA_SESSION_ESTABLISHED);
    const std::vector<std::string> events{"DIC_LOADED 20131007.1",     "AVAILABLE_ALLSOURCES 100",
                                          "AVAILABLE_ALLSOURCES 101",  "AVAILABLE_ALLSOURCES 922",
                                          "AVAILABLE_ALLSOURCES 4100", "ESTABLISHED"};
    EXPECT_EQ(client.sessionEvents(), events);
}

INSTANTIATE_TEST_SUITE_P(E2E, ConversationTest, testing::ValuesIn(conversations),
                         [](const auto& test) { return std::string(test.param.name); });

/// A reconnect asks again only for what a connection forgets.
TEST(Conversation, ReconnectKeepsDictionaryEnumerationAndTopology) {
    StartedHub hub;
    Client client(hub);
    ASSERT_TRUE(client.startAndWait());
    ASSERT_TRUE(client.waitForUserEvents(1));
    hub.clearRequests();
    client.forget();
    hub.dropConnections();
    ASSERT_TRUE(client.waitForSessionEvent("ESTABLISHED"));
    std::vector<std::string> expected = plainConversation();
    for (const char* kept : {"5026=2|", "5026=6|", "5026=7|"})
        replace(expected, kept, "");
    EXPECT_THAT(hub.requestTexts(), ElementsAreArray(expected));
    EXPECT_TRUE(client.userEvents().empty()) << "a login that succeeds again is no news";
}

} // namespace
