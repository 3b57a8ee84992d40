// Every way in which a hub can refuse or spoil a start, as the application sees it.
#include "Client.h"

#include <algorithm>
#include <chrono>
#include <ostream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using tivra::HostConfig;
using tivra_sim::encodeFrame;
using tivra_sim::Hub;
using tivra_sim::HubConfig;
namespace status = tivra_sim::status;

namespace {

/// Answers a command with these bodies in place of the hub's.
void answer(Hub& hub, const std::string& command, std::vector<std::string> bodies) {
    hub.script([command, bodies](const tivra_sim::Request& request) -> std::optional<Hub::Frames> {
        if (request.command != command)
            return std::nullopt;
        Hub::Frames frames;
        for (const std::string& body : bodies)
            frames.push_back(encodeFrame(body));
        return frames;
    });
}

struct Refusal {
    const char* name;
    std::function<void(Hub&)> hub;
    const char* reason; ///< "@" stands for the host
    std::vector<std::string> userEvents;
    std::function<void(HubConfig&)> config = {};
    std::function<void(Client::Options&)> options = {};
    long readTimeout = 20;
    long retryLimit = 5;
};

const std::vector<std::string> accepted{"SUCCESS"};

auto refuse(const char* command, int code) {
    return [=](Hub& hub) { hub.refuse(command, code); };
}
auto ignore(const char* command) {
    return [=](Hub& hub) { hub.ignore(command); };
}
auto login(int code) {
    return [=](Hub& hub) { hub.refuseLogin(code); };
}
auto script(const char* command, std::vector<std::string> bodies) {
    return [=](Hub& hub) { answer(hub, command, bodies); };
}

constexpr const char* TIMED_OUT = "Read timeout waiting for response for request from @";
constexpr const char* LIMIT = "Connection retry limit exceeded for @";

const Refusal refusals[] = {
    {"WrongPassword",
     {},
     "AUTHORIZATION_FAILURE",
     {"FAILURE -5 ERR.AUTH.LOGIN"},
     {},
     [](Client::Options& options) { options.password = "guess"; }},
    {"LoginDenied", login(status::DENY_LOGIN), "AUTHORIZATION_FAILURE", {"FAILURE -4 ERR_DENY_LOGIN"}},
    {"TooManyLogins",
     login(status::TOO_MANY_LOGINS),
     "AUTHORIZATION_FAILURE",
     {"FAILURE -6 ERR.AUTH.LOGIN.COUNT"}},
    {"UnnamedLoginCode", login(-777), "AUTHORIZATION_FAILURE", {"FAILURE -777 Unknown code"}},
    {"LoginWithoutStatus",
     script("LoginUser", {"5026=1|5=X"}),
     "Login response from HUB is missing ENUM.QUERY.STATUS",
     {}},
    {"LoginTooLong",
     {},
     "Login request too long",
     {},
     {},
     [](Client::Options& options) { options.user = options.password = std::string(4095, 'u'); }},
    {"EnumerationRefused", refuse("ListEnumeration", status::BUSY), "API failed to download enum", accepted},
    {"DictionaryRefused", refuse("ListInternalTokens", status::BUSY), "API failed to download DIC", accepted},
    {"AggCheckRefused", refuse("GetPort", status::BUSY), "Unable to successfully process AGG check!",
     accepted},
    {"AggCheckWithoutStatus", script("GetPort", {"5026=7|4=922"}),
     "Unable to successfully process AGG check!", accepted},
    {"HubBehindNat", script("GetPort", {"5026=7|4=922|13001=10.9.8.7|13101=4444|5001=0"}),
     "It appears client is using NAT to reach HUB, but did not properly configure NAT pair(s) to API.",
     accepted},
    {"SplitRefused",
     [](Hub& hub) {
         // Five pairs: a group of which this hub is the only member.
         answer(hub, "GetPort",
                {"5026=7|4=922|13001=127.0.0.1|13101=" + std::to_string(hub.port()) + "|5=X|6=Y|5001=0"});
         hub.refuse("ListSplitExchanges", status::BUSY);
     },
     TIMED_OUT,
     accepted,
     {},
     {},
     1},
    {"NoBoxPermission922", script("ListSystemPermission", {"5026=9|3=100|3=101|5001=0"}),
     "Unable to successfully process box entitlements!", accepted},
    {"NoBoxPermissions", script("ListSystemPermission", {"5026=9|5001=0"}),
     "Unable to successfully process box entitlements!", accepted},
    {"BoxPermissionsWithoutStatus", script("ListSystemPermission", {"5026=9|3=922|3=100"}),
     "Unable to successfully process box entitlements!", accepted},
    {"NoUserPermission922",
     {},
     "Unable to successfully process entitlements!",
     accepted,
     [](HubConfig& config) { config.users[0].permissions = {100}; }},
    {"UserPermissionsWithoutStatus", script("ListUserPermission", {"5026=10|3=922|3=100"}),
     "Unable to successfully process entitlements!", accepted},
    {"HeartbeatAlwaysRefused", refuse("Subscribe", status::BUSY), LIMIT, accepted, {}, {}, 20, 1},
    {"SilentLogin", ignore("LoginUser"), TIMED_OUT, {}, {}, {}, 1},
    {"SilentDictionary", ignore("ListInternalTokens"), TIMED_OUT, accepted, {}, {}, 1},
    {"SilentHubStatus",
     [](Hub& hub) {
         hub.script([](const tivra_sim::Request& request) -> std::optional<Hub::Frames> {
             return request.tag == 13 ? std::optional<Hub::Frames>(Hub::Frames{}) : std::nullopt;
         });
     },
     TIMED_OUT,
     accepted,
     {},
     {},
     1},
    {"HubNeverAccepts", [](Hub& hub) { hub.setAccepting(false); }, LIMIT, {}, {}, {}, 20, 1},
    {"NobodyListens", [](Hub& hub) { hub.stop(); }, LIMIT, {}, {}, {}, 20, 1},
    {"HubClosesAfterLogin",
     [](Hub& hub) {
         hub.script([&hub](const tivra_sim::Request& request) -> std::optional<Hub::Frames> {
             if (request.command == "ListEnumeration")
                 hub.dropConnections();
             return std::nullopt;
         });
     },
     LIMIT,
     accepted,
     {},
     {},
     20,
     1},
};

std::ostream& operator<<(std::ostream& out, const Refusal& param) {
    return out << param.name;
}

class RefusalTest : public testing::TestWithParam<Refusal> {};

TEST_P(RefusalTest, StartSaysWhyAndASecondStartCanSucceed) {
    const Refusal& param = GetParam();
    HubConfig config = HubConfig::realistic();
    if (param.config)
        param.config(config);
    StartedHub hub(config);
    if (param.hub)
        param.hub(hub);
    Client::Options options({hub.hostString()});
    if (param.options)
        param.options(options);
    Client client(options);
    client.connections()
        .set(HostConfig::READ_TIMEOUT_LONG, param.readTimeout)
        .set(HostConfig::CONNECTION_RETRY_LIMIT_LONG, param.retryLimit);

    std::string reason = param.reason;
    if (reason.back() == '@')
        reason.replace(reason.size() - 1, 1, hub.hostString());
    EXPECT_EQ(client.start(), reason);
    EXPECT_FALSE(client.isStarted);
    EXPECT_EQ(client.userEvents(), param.userEvents);
    EXPECT_EQ(client.session().getState(), tivra::Session::TIVRA_SESSION_UNAVAILABLE);
    for (const std::string& event : client.sessionEvents())
        EXPECT_THAT(event, testing::StartsWith("DIC_LOADED"));
    if (param.config || param.options)
        return; // the cause cannot be taken away

    if (!hub.isRunning())
        hub.start();
    hub.script({});
    hub.clearRefusals();
    hub.setAccepting(true);
    EXPECT_TRUE(client.startAndWait());
}

INSTANTIATE_TEST_SUITE_P(E2E, RefusalTest, testing::ValuesIn(refusals),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(Refusal, OnTheWayBackEachDialIsLaterThanTheOneBeforeAndEachCodeIsTold) {
    using Clock = std::chrono::steady_clock;
    StartedHub hub;
    Client client(hub);
    ASSERT_TRUE(client.startAndWait());
    hub.clearRequests();
    hub.script([&hub](const tivra_sim::Request& request) -> std::optional<Hub::Frames> {
        const auto isLogin = [](const auto& earlier) { return earlier.command == "LoginUser"; };
        const auto all = hub.requests();
        const auto logins = std::count_if(all.begin(), all.end(), isLogin);
        if (request.command != "LoginUser" || logins > 3)
            return std::nullopt;
        return Hub::Frames{encodeFrame(logins == 3 ? "5026=1|5001=-6" : "5026=1|5001=-4")};
    });
    hub.dropConnections();
    ASSERT_TRUE(client.waitForUserEvents(2));
    const auto first = Clock::now();
    ASSERT_TRUE(client.waitForSessionEvent("ESTABLISHED", 2));
    EXPECT_GE(Clock::now() - first, std::chrono::seconds(6)) << "1 and 2 and 4, but for the event's delay";
    ASSERT_TRUE(client.waitForUserEvents(4));
    EXPECT_THAT(client.userEvents(), testing::ElementsAre("SUCCESS", "FAILURE -4 ERR_DENY_LOGIN",
                                                          "FAILURE -6 ERR.AUTH.LOGIN.COUNT", "SUCCESS"));
}

/// Refusals that a start survives.
TEST(Refusal, ConflationMayBeRefusedAndSubscriptionsAreAskedAgain) {
    StartedHub hub;
    hub.refuse("SetConflationInterval", status::BAD_PARAMETER);
    hub.refuse("SetConflationType", status::BAD_PARAMETER);
    hub.refuse("Subscribe", status::BUSY, 2);
    Client client(hub);
    EXPECT_TRUE(client.startAndWait());
    EXPECT_EQ(client.user().getState(), tivra::UserInfo::AUTHENTICATED);
}

} // namespace
