// Passwords that the application is asked for, and the files that have some.
#include "FeedFixture.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <optional>
#include <stdexcept>

#include <gmock/gmock.h>
#include <tivra_testkit/Gate.h>

using testing::HasSubstr;
using tivra::Error;
using tivra::Feed;
using tivra::FeedOptions;
using tivra::Password;

namespace {

/// What an application does that is asked for the password, and why the feed can't be opened then.
struct BadAnswer {
    std::function<Password()> answer;
    std::string cause;
};

TEST(PasswordCallback, ThatGivesNothingOfUseEndsTheOpeningAndSaysWhy) {
    tivra_testkit::StartedHub hub;
    for (const BadAnswer& bad :
         {BadAnswer{[] { return Password(); }, "the callback for the password has returned none"},
          BadAnswer{[]() -> Password { throw std::runtime_error("no vault"); },
                    "the callback for the password has thrown an exception"},
          BadAnswer{[]() -> Password { throw 5; }, "the callback for the password has thrown an exception"},
          BadAnswer{[] { return Password("a|5022=b"); }, "it holds a separator or a control character"},
          BadAnswer{[] { return Password(std::string(5000, 'x')); }, "it is longer than 4095 characters"}}) {
        FeedOptions options = optionsFor(hub);
        options.password = Password();
        options.onPassword = [&bad](const std::string&) { return bad.answer(); };
        try {
            static_cast<void>(Feed::open(options));
            ADD_FAILURE() << "opened: " << bad.cause;
        } catch (const Error& error) {
            EXPECT_THAT(error.cause(), HasSubstr(bad.cause));
            EXPECT_EQ(error.phase(), Error::Phase::Login);
        }
    }
    const auto requests = hub.requests();
    EXPECT_TRUE(requests.empty()) << "nothing goes to a hub without a password";
}

TEST(PasswordCallback, IsAskedAtEachLoginAndItsPasswordMayChange) {
    tivra_testkit::StartedHub hub;
    std::atomic<int> asked{0};
    Story story;
    FeedOptions options = optionsFor(hub);
    options.password = Password();
    options.onPassword = [&](const std::string& who) {
        const int turn = ++asked;
        story.add(who);
        return turn == 2 ? Password("a wrong one") : Password("demo");
    };
    options.onConnection = [&](const tivra::ConnectionEvent& event) {
        if (event.to == tivra::HubState::Refused)
            story.add("refused");
    };
    Feed feed = Feed::open(options);
    hub.dropConnections();
    EXPECT_TRUE(story.waitUntil([&] { return asked == 3; }));
    EXPECT_TRUE(story.waitFor("refused"));
    EXPECT_EQ(story.lines().front(), hub.hostString());
}

/// One hub's password takes for ever; the other hub serves all the same, and the feed can be closed.
TEST(PasswordCallback, ThatTakesItsTimeHoldsUpNobodyElse) {
    tivra_testkit::StartedHub quick;
    tivra_testkit::StartedHub slow;
    tivra_testkit::Gate gate;
    std::promise<void> isAsked;
    int times = 0;
    FeedOptions options = optionsFor(quick);
    options.hosts.push_back(slow.hostString());
    options.minHubs = 1;
    options.password = Password();
    options.set("read_timeout", "3");
    options.onPassword = [&](const std::string& hub) {
        if (hub == slow.hostString() && ++times == 2) {
            isAsked.set_value();
            gate.wait();
        }
        return Password("demo");
    };
    Feed feed = Feed::open(options);
    slow.clearRequests();
    slow.dropConnections();
    ASSERT_EQ(isAsked.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
    EXPECT_NO_THROW(static_cast<void>(feed.query({100, "IBM"}).get()));
    // Longer than a hub may be silent: the one that waits for its password isn't dialled again.
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(4);
    while (std::chrono::steady_clock::now() < end)
        EXPECT_NO_THROW(static_cast<void>(feed.query({100, "IBM"}).get()));
    EXPECT_EQ(slow.statistics().accepted, 2U);
    EXPECT_FALSE(feed.close(std::chrono::milliseconds(50))) << "the callback runs";
    gate.open();
    EXPECT_TRUE(feed.close(std::chrono::seconds(20)));
    EXPECT_TRUE(slow.requests().empty());
}

TEST(RefusedLogin, IsTheLastOneWhereThatIsWanted) {
    tivra_testkit::StartedHub hub;
    Story story;
    FeedOptions options = optionsFor(hub);
    options.set("stop_after_refusal", "true");
    options.onConnection = [&](const tivra::ConnectionEvent& event) {
        if (event.to == tivra::HubState::Refused)
            story.add(event.nextAttemptAt ? "refused, again later" : "refused for good");
        if (event.to == tivra::HubState::Ready)
            story.add("ready");
    };
    Feed feed = Feed::open(options);
    hub.refuseLogin(tivra_sim::status::DENY_LOGIN);
    hub.dropConnections();
    ASSERT_TRUE(story.waitFor("refused for good"));
    const auto accepted = hub.statistics().accepted;
    // The first pause after a refusal is a second, and a fifth at most.
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(2500);
    while (std::chrono::steady_clock::now() < end)
        EXPECT_EQ(hub.statistics().accepted, accepted);
    hub.clearRefusals();
    story.clear();
    feed.reconnectNow();
    EXPECT_TRUE(story.waitFor("ready")) << "somebody has asked for it";
}

/// A file with a mode, and whether its password is taken.
struct FileCase {
    mode_t mode;
    std::string text;
    std::string fault; ///< empty: it is taken
};

TEST(PasswordFile, IsRefusedWhereOthersCanReadItOrNothingIsInIt) {
    char name[] = "/tmp/tivra-password-file.XXXXXX";
    const std::string folder = ::mkdtemp(name);
    const std::string path = folder + "/password";
    for (const FileCase& file : {FileCase{0600, "open sesame\r\nanother line\n", ""},
                                 {0400, "open sesame", ""},
                                 {0604, "open sesame\n", "others can read the password file"},
                                 {0640, "open sesame\n", "others can read the password file"},
                                 {0602, "open sesame\n", "others can read the password file"},
                                 {0600, "", "can't be read or is empty"},
                                 {0600, "\nopen sesame\n", "can't be read or is empty"}}) {
        std::ofstream(path) << file.text;
        std::filesystem::permissions(path, static_cast<std::filesystem::perms>(file.mode));
        std::string fault;
        try {
            EXPECT_EQ(Password::fromFile(path).text(), "open sesame") << file.mode;
        } catch (const Error& error) {
            fault = error.cause();
        }
        EXPECT_EQ(fault.empty(), file.fault.empty()) << fault;
        EXPECT_THAT(fault, HasSubstr(file.fault));
        EXPECT_THAT(fault, testing::Not(HasSubstr("sesame")));
        std::filesystem::remove(path);
    }
    EXPECT_THROW(static_cast<void>(Password::fromFile(folder)), Error) << "a folder";
    EXPECT_THROW(static_cast<void>(Password::fromFile(path)), Error) << "nothing";
    std::filesystem::remove_all(folder);
}

} // namespace
