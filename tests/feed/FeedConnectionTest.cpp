// What a feed reports of its hubs, and how it comes up without some of them.
#include "FeedFixture.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>
#include <vector>

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using tivra::ConnectionEvent;
using tivra::Error;
using tivra::Feed;
using tivra::FeedState;
using tivra::HubState;
using tivra_sim::Record;
using tivra_testkit::StartedHub;

namespace {

const char* nameOf(HubState state) {
    constexpr const char* kNames[] = {"Idle",        "Resolving", "Connecting", "LoggingIn",
                                      "Downloading", "Ready",     "Lost",       "Refused"};
    return kNames[static_cast<int>(state)];
}

/// Writes each change: "Connecting>LoggingIn".
std::function<void(const ConnectionEvent&)> writeTo(Story& story) {
    return [&story](const ConnectionEvent& event) {
        story.add(std::string(nameOf(event.from)) + '>' + nameOf(event.to));
    };
}

/// A port that refuses connections as long as this lives: bound, and nobody listens.
class DeadPort {
public:
    DeadPort() {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        EXPECT_EQ(::bind(m_fd, reinterpret_cast<sockaddr*>(&address), length), 0);
        EXPECT_EQ(::getsockname(m_fd, reinterpret_cast<sockaddr*>(&address), &length), 0);
        m_host = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    }
    ~DeadPort() { ::close(m_fd); }
    DeadPort(const DeadPort&) = delete;
    DeadPort& operator=(const DeadPort&) = delete;

    [[nodiscard]] const std::string& host() const { return m_host; }

private:
    const int m_fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::string m_host;
};

} // namespace

TEST(FeedConnectionTest, EachStepOfAHubIsReportedAndTheNextAttemptMayBeMadeAtOnce) {
    StartedHub hub;
    Story story;
    tivra::FeedOptions options = optionsFor(hub);
    options.onConnection = writeTo(story);
    options.retry.first = options.retry.longest = 1h;
    Feed feed = Feed::open(std::move(options));
    ASSERT_TRUE(story.waitFor("Downloading>Ready"));
    EXPECT_THAT(story.lines(), ElementsAre("Idle>Connecting", "Connecting>LoggingIn", "LoggingIn>Downloading",
                                           "Downloading>Ready"));
    hub.stop();
    ASSERT_TRUE(story.waitFor("Connecting>Lost"));
    EXPECT_THAT(story.lines(), Contains("Ready>Lost"));
    const tivra::HubStatus lost = feed.hubs().front();
    EXPECT_EQ(lost.hub, hub.hostString());
    EXPECT_EQ(lost.systemError, ECONNREFUSED);
    EXPECT_FALSE(lost.cause.empty());
    ASSERT_TRUE(lost.nextAttemptAt);
    EXPECT_GT(*lost.nextAttemptAt - lost.time, 59min);
    hub.start();
    story.clear();
    feed.reconnectNow();
    EXPECT_TRUE(story.waitFor("Downloading>Ready"));
    EXPECT_EQ(feed.hubs().front().to, HubState::Ready);
}

TEST(FeedConnectionTest, PausesBetweenAttemptsGrowUpToTheLongest) {
    constexpr auto kRounding = 2ms;
    DeadPort dead;
    std::vector<ConnectionEvent> failures; // written before the feed has gone, read after it
    tivra::FeedOptions options;
    options.hosts = {dead.host()};
    options.user = "demo";
    options.password = "demo";
    options.retry = {100ms, 200ms, 0};
    options.parameters = {{"connection_retry_limit", "3"}};
    options.onConnection = [&](const ConnectionEvent& event) {
        if (event.nextAttemptAt)
            failures.push_back(event);
    };
    auto lastAttemptAt = std::chrono::system_clock::now();
    const Error error = Feed::tryOpen(std::move(options)).error();
    EXPECT_EQ(error.code(), Error::Code::OpenFailed);
    EXPECT_EQ(error.phase(), Error::Phase::Connect);
    EXPECT_EQ(error.hub(), dead.host());
    EXPECT_EQ(error.systemError(), ECONNREFUSED);
    // The last one has ended the attempt to open, and nobody may hear of it any more.
    ASSERT_GE(failures.size(), 3U);
    ASSERT_LE(failures.size(), 4U);
    std::chrono::milliseconds pause = 100ms;
    for (const ConnectionEvent& failure : failures) {
        // A busy machine makes an attempt late, and its report later.
        EXPECT_GE(*failure.nextAttemptAt - lastAttemptAt, pause - kRounding);
        EXPECT_LE(*failure.nextAttemptAt - failure.time, pause + kRounding);
        lastAttemptAt = *failure.nextAttemptAt;
        pause = 200ms;
    }
}

TEST(FeedConnectionTest, AHubThatRefusesTheUserSaysSoWithItsCode) {
    StartedHub hub;
    Story story;
    tivra::FeedOptions options = optionsFor(hub);
    options.onConnection = writeTo(story);
    Feed feed = Feed::open(std::move(options));
    hub.refuseLogin(-4);
    hub.dropConnections();
    ASSERT_TRUE(story.waitFor("LoggingIn>Refused"));
    const tivra::HubStatus refused = feed.hubs().front();
    EXPECT_EQ(refused.status, -4);
    ASSERT_TRUE(refused.nextAttemptAt);
    EXPECT_GT(*refused.nextAttemptAt - refused.time, 500ms); // of a second, some of which has passed
}

TEST(FeedConnectionTest, AHostMayBeGivenByItsNameAndOneWithoutAnAddressSaysSo) {
    const StartedHub hub;
    const std::string port = hub.hostString().substr(hub.hostString().find(':'));
    tivra::FeedOptions options = optionsFor(hub);
    options.hosts = {"localhost" + port};
    {
        const Feed feed = Feed::open(options);
        ASSERT_EQ(feed.hubs().size(), 1U);
        EXPECT_EQ(feed.hubs().front().hub, hub.hostString());
    }
    options.hosts.emplace_back("no-such.invalid:9100");
    const tivra::Result<Feed> refused = Feed::tryOpen(options);
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().code(), Error::Code::OpenFailed);
    EXPECT_EQ(refused.error().hub(), "no-such.invalid:9100");
    EXPECT_THAT(refused.error().cause(), HasSubstr("no-such.invalid can't be looked up"));
    options.minHubs = 1;
    EXPECT_TRUE(Feed::tryOpen(options)) << "the others serve without it";
}

TEST(FeedConnectionTest, AHubThatIsDownDoesntRefuseTheOthers) {
    StartedHub first, second, third;
    third.stop();
    Story story;
    for (const std::vector<const StartedHub*>& order : std::vector<std::vector<const StartedHub*>>{
             {&third, &first, &second}, {&first, &third, &second}, {&first, &second, &third}}) {
        tivra::FeedOptions options = optionsFor(first);
        options.hosts.clear();
        for (const StartedHub* hub : order)
            options.hosts.push_back(hub->hostString());
        options.minHubs = 2;
        options.retry.first = 10ms;
        options.onState = [&](const tivra::FeedStateChange&) { story.add("state"); };
        Feed feed = Feed::open(std::move(options));
        EXPECT_EQ(feed.state(), FeedState::Recovering);
        std::size_t ready = 0;
        for (const tivra::HubStatus& hub : feed.hubs())
            ready += hub.to == HubState::Ready ? 1U : 0U;
        EXPECT_EQ(ready, 2U);
        EXPECT_EQ(feed.query({100, "IBM"}).get(20s).records().size(), 1U);
        third.start();
        EXPECT_TRUE(story.waitUntil([&] { return feed.state() == FeedState::Established; }));
        third.stop();
    }
}

TEST(FeedConnectionTest, APartialStartThatCantSucceedFailsWithTheReason) {
    StartedHub hub;
    DeadPort dead;
    tivra::FeedOptions options = optionsFor(hub);
    options.hosts.push_back(dead.host());
    options.minHubs = 2;
    options.retry = {10ms, 10ms, 0};
    options.parameters = {{"connection_retry_limit", "2"}};
    const Error error = Feed::tryOpen(options).error();
    EXPECT_EQ(error.code(), Error::Code::OpenFailed);
    EXPECT_EQ(error.hub(), dead.host());
    options.minHubs = 1;
    options.password = "wrong";
    EXPECT_EQ(Feed::tryOpen(options).error().phase(), Error::Phase::Login);
    options.backups = options.hosts;
    EXPECT_THAT(Feed::tryOpen(options).error().what(), HasSubstr("exclude each other"));
}

TEST(FeedConnectionTest, AnOpeningBringsItsFeedOrIsGivenUpWithoutATrace) {
    StartedHub hub;
    Story story;
    Feed feed = Feed::openAsync(optionsFor(hub)).get(20s);
    EXPECT_EQ(feed.state(), FeedState::Established);
    const auto write = [&](const tivra::Result<Feed>& result) {
        story.add(result.hasValue() ? "open" : result.error().name());
    };
    tivra::Opening other = Feed::openAsync(optionsFor(hub));
    other.then(write);
    ASSERT_TRUE(story.waitFor("open"));
    tivra::FeedOptions wrong = optionsFor(hub);
    wrong.hosts.clear();
    EXPECT_THROW(static_cast<void>(Feed::openAsync(wrong)), Error);

    hub.ignore("LoginUser");
    hub.clearRequests();
    {
        tivra::Opening dropped = Feed::openAsync(optionsFor(hub));
        dropped.then(write);
        ASSERT_TRUE(hub.waitForCommand("LoginUser"));
        EXPECT_FALSE(dropped.isReady());
        EXPECT_EQ(Feed::openAsync(optionsFor(hub)).wait(1ms).error().code(), Error::Code::TimedOut);
    }
    EXPECT_THAT(story.lines(), ElementsAre("open"));
    other = {};
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(thread.path() / "comm") >> std::ws, name);
        EXPECT_NE(name, "tivra-open");
    }
}
