// Hosts that are given by a name, which stands for several addresses.
#include <cerrno>
#include <map>

#include <gmock/gmock.h>
#include <tivra_sim/HubGroup.h>
#include <tivra_testkit/Client.h>

#include "FeedFixture.h"
#include "support/FakeResolver.h"

using testing::HasSubstr;
using tivra::ConnectionEvent;
using tivra::Feed;
using tivra::HubState;
using tivra_testkit::Client;
using tivra_testkit::StartedHub;

namespace {

constexpr const char* kFirst = "127.0.4.2";
constexpr const char* kSecond = "127.0.4.3";

/// A hub at one of the addresses, and how the others name it.
tivra_sim::HubConfig at(const std::string& address, std::uint16_t port = 0) {
    tivra_sim::HubConfig config = tivra_sim::HubConfig::realistic();
    config.bindAddress = address;
    config.port = port;
    return config;
}

std::string text(const char* host, std::uint16_t port) {
    return std::string(host) + ':' + std::to_string(port);
}

std::map<std::string, HubState> statesOf(const Feed& feed) {
    std::map<std::string, HubState> states;
    for (const tivra::HubStatus& hub : feed.hubs())
        states[hub.hub] = hub.to;
    return states;
}

TEST(HostNames, AFeedGoesToTheAddressThatServesAndBackToTheOtherWhenThatOneIsLost) {
    FakeResolver resolver;
    resolver.names["hub.test"] = {kFirst, kSecond};
    StartedHub second(at(kSecond));
    const std::uint16_t port = second.port();
    Story story;
    tivra::FeedOptions options = optionsFor(second);
    options.hosts = {text("hub.test", port)};
    options.retry = {std::chrono::milliseconds(10), std::chrono::milliseconds(50), 0};
    options.set("only_allowed_hubs", "true").set("allowed_hubs", "10.0.0.0/8");
    options.onConnection = [&](const ConnectionEvent& event) {
        if (event.to == HubState::Ready)
            story.add(event.hub);
    };
    Feed feed = Feed::open(std::move(options));
    EXPECT_EQ(statesOf(feed), (std::map<std::string, HubState>{{text(kFirst, port), HubState::Idle},
                                                               {text(kSecond, port), HubState::Ready}}));
    StartedHub first(at(kFirst, port));
    second.stop();
    ASSERT_TRUE(story.waitFor(text(kFirst, port)));
    EXPECT_EQ(statesOf(feed), (std::map<std::string, HubState>{{text(kFirst, port), HubState::Ready},
                                                               {text(kSecond, port), HubState::Idle}}));
    EXPECT_FALSE(feed.query({100, "IBM"}).get(std::chrono::seconds(20)).isEmpty());
}

TEST(HostNames, AMemberOfTheGroupAtAnotherAddressOfTheNameHasOneConnection) {
    FakeResolver resolver;
    resolver.names["hub.test"] = {kFirst, kSecond};
    const std::uint16_t port = StartedHub(at(kFirst)).port();
    tivra_sim::GroupConfig config = tivra_sim::GroupConfig::realistic(2);
    config.members[0].hub.bindAddress = kFirst;
    config.members[1].hub.bindAddress = kSecond;
    for (tivra_sim::GroupMember& member : config.members)
        member.hub.port = port;
    tivra_sim::HubGroup group(config);
    group.start();
    tivra::FeedOptions options = optionsFor(group.hub(0));
    options.hosts = {text("hub.test", port)};
    options.retry = {std::chrono::milliseconds(10), std::chrono::milliseconds(50), 0};
    Story story;
    options.onConnection = [&](const ConnectionEvent& event) {
        if (event.to == HubState::Lost && event.systemError == ECONNREFUSED)
            story.add(event.hub);
    };
    const Feed feed = Feed::open(std::move(options));
    ASSERT_TRUE(group.hub(1).waitForConnections(1));
    group.hub(0).stop();
    ASSERT_TRUE(story.waitFor(text(kFirst, port))) << "there is no other address to go to";
    EXPECT_EQ(group.hub(1).statistics().accepted, 1U);
}

TEST(HostNames, ASessionTakesThemAndLooksThemUpAtEachStart) {
    FakeResolver resolver;
    StartedHub hub(at(kSecond));
    const std::string host = text("hub.test", hub.port());
    Client client(host);
    client.connections().set(tivra::HostConfig::CONNECTION_RETRY_LIMIT_LONG, 0);
    EXPECT_THAT(client.start(),
                HasSubstr("hub.test:" + std::to_string(hub.port()) + ": its name stands for no"));
    EXPECT_THAT(client.log(), HasSubstr("The address of the host hub.test can't be looked up: nobody has"));
    const tivra::HostConfig* const known = &client.host(host);
    for (const std::vector<std::string>& addresses :
         {std::vector<std::string>{kFirst, kSecond}, std::vector<std::string>{kSecond}}) {
        resolver.names["hub.test"] = addresses;
        ASSERT_TRUE(client.startAndWait()) << client.log();
        EXPECT_EQ(client.ask(tivra::QUERYSNAP, 100, "IBM"), 0);
        client.timedStop();
        EXPECT_EQ(&client.host(host), known) << "one host for one text";
    }
}

} // namespace
