// Starts and logins that a hub refuses, as the application sees it.
#include "Client.h"

#include <algorithm>
#include <chrono>
#include <ostream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using tivra::HostConfig;
using tivra_sim::encodeFrame;
using tivra_sim::Hub;
namespace status = tivra_sim::status;

namespace {

struct Refusal {
    const char* name;
    std::function<void(Hub&)> refuse;
    const char* reason; ///< "@" stands for the host
    std::vector<std::string> userEvents;
};

std::ostream& operator<<(std::ostream& out, const Refusal& param) {
    return out << param.name;
}

class RefusalTest : public testing::TestWithParam<Refusal> {};

TEST_P(RefusalTest, StartSaysWhyAndASecondStartCanSucceed) {
    const Refusal& param = GetParam();
    StartedHub hub;
    param.refuse(hub);
    Client client(hub);
    client.connections()
        .set(HostConfig::READ_TIMEOUT_LONG, 1)
        .set(HostConfig::CONNECTION_RETRY_LIMIT_LONG, 1);
    std::string reason = param.reason;
    if (reason.back() == '@')
        reason.replace(reason.size() - 1, 1, hub.hostString());
    EXPECT_EQ(client.start(), reason);
    EXPECT_FALSE(client.isStarted);
    EXPECT_EQ(client.userEvents(), param.userEvents);
    EXPECT_EQ(client.session().getState(), tivra::Session::TIVRA_SESSION_UNAVAILABLE);
    EXPECT_THAT(client.sessionEvents(), testing::IsEmpty());

    hub.start();
    hub.clearRefusals();
    hub.setAccepting(true);
    EXPECT_TRUE(client.startAndWait());
}

INSTANTIATE_TEST_SUITE_P(E2E, RefusalTest,
                         testing::Values(Refusal{"Login",
                                                 [](Hub& hub) { hub.refuseLogin(status::DENY_LOGIN); },
                                                 "AUTHORIZATION_FAILURE",
                                                 {"FAILURE -4 ERR_DENY_LOGIN"}},
                                         Refusal{"SilentLogin",
                                                 [](Hub& hub) { hub.ignore("LoginUser"); },
                                                 "Read timeout waiting for response for request from @",
                                                 {}},
                                         Refusal{"NeverAccepts",
                                                 [](Hub& hub) { hub.setAccepting(false); },
                                                 "Connection retry limit exceeded for @",
                                                 {}},
                                         Refusal{"NobodyListens",
                                                 [](Hub& hub) { hub.stop(); },
                                                 "Connection retry limit exceeded for @",
                                                 {}}),
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

} // namespace
