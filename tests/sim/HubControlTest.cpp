#include "SimTest.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/wait.h>
#include <thread>

using namespace tivra_sim;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::ElementsAreArray;

namespace {

class HubControl : public testing::Test {
protected:
    StartedHub hub;
};

std::size_t threadCount() {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
}

TEST_F(HubControl, DropAfterBytesAndFramesIsExactOnTheWire) {
    for (const bool isCompressed : {false, true}) {
        for (const bool isInFrames : {false, true}) {
            LoggedIn client(hub, isCompressed);
            if (isInFrames)
                hub.dropAfterFrames(3);
            else
                hub.dropAfterBytes(25);
            client.send("5026=6|5022=ListInternalTokens");
            const std::string bytes = client.readToEnd();
            EXPECT_FALSE(client.wasReset());
            if (isInFrames) {
                const std::string plain = client.inflated(bytes);
                EXPECT_EQ(std::count(plain.begin(), plain.end(), '\x03'), 3);
                EXPECT_EQ(plain.back(), '\x03');
            } else {
                EXPECT_EQ(bytes.size(), 25U);
            }
            ASSERT_TRUE(hub.waitForConnections(0));
        }
    }
}

TEST_F(HubControl, DropNowEndsOrResetsTheStream) {
    for (const Hub::Close how : {Hub::Close::Orderly, Hub::Close::Reset}) {
        LoggedIn client(hub);
        hub.dropConnections(how);
        EXPECT_EQ(hub.statistics().connections, 0U);
        EXPECT_EQ(client.readToEnd(), "");
        EXPECT_EQ(client.wasReset(), how == Hub::Close::Reset);
    }
}

TEST_F(HubControl, AHalfClosedConnectionIsHeardAndHoldsNothingUp) {
    HubConfig config = HubConfig::quiet();
    config.outputLimit = 100;
    int left = 50;
    config.playback.bodies = [&left](TimedBody& message) {
        message.body = "4=100|5=IBM|100=1";
        return left-- > 0;
    };
    StartedHub playing(config);
    LoggedIn client(playing);
    client.ask("5026=20|5022=Subscribe|4=100|5=IBM");
    playing.halfClose();
    EXPECT_EQ(client.readToEnd(), "");
    client.send("5026=20|5022=Echo");
    EXPECT_TRUE(playing.waitForCommand("Echo"));
    playing.startPlayback();
    EXPECT_TRUE(playing.waitForPlayback());
    client.close();
    EXPECT_TRUE(playing.waitForConnections(0));
}

TEST_F(HubControl, SilenceKeepsAnswersUntilItEnds) {
    LoggedIn client(hub);
    hub.setSilent(true);
    client.send("5026=20|5022=Echo");
    ASSERT_TRUE(hub.waitForCommand("Echo"));
    EXPECT_EQ(client.next(50ms), std::nullopt);
    hub.setSilent(false);
    EXPECT_EQ(client.next(), "5026=20|5001=0");
}

TEST_F(HubControl, DeafHubLeavesRequestsUnread) {
    LoggedIn client(hub);
    hub.setDeaf(true);
    client.send("5026=20|5022=Echo");
    EXPECT_FALSE(hub.waitForRequests(2, 50ms));
    hub.setDeaf(false);
    EXPECT_EQ(client.next(), "5026=20|5001=0");
}

TEST_F(HubControl, DelayedAnswersKeepTheirOrder) {
    LoggedIn client(hub);
    hub.setAnswerDelay(40ms);
    const auto begin = std::chrono::steady_clock::now();
    client.send("5026=20|5022=Echo");
    ASSERT_TRUE(hub.waitForCommand("Echo"));
    hub.setAnswerDelay(0ms);
    client.send("5026=21|5022=Echo");
    EXPECT_EQ(client.next(), "5026=20|5001=0");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 40ms);
    EXPECT_EQ(client.next(), "5026=21|5001=0");
}

TEST_F(HubControl, NoUpdateComesBeforeTheDelayedImageThatIsOlder) {
    LoggedIn client(hub);
    hub.setAnswerDelay(40ms);
    client.send("5026=20|5022=QuerySnapAndSubscribe|4=100|5=IBM");
    ASSERT_TRUE(hub.waitForCommand("QuerySnapAndSubscribe"));
    hub.pushRecords({Record(100, "IBM").add(token::BID, 77)});
    std::vector<std::string> bodies;
    for (std::string body; body.find("=77") == std::string::npos;) {
        const std::optional<std::string> next = client.next();
        ASSERT_TRUE(next);
        bodies.push_back(body = *next);
    }
    ASSERT_GE(bodies.size(), 2U);
    EXPECT_THAT(bodies.front(), testing::HasSubstr("5026=20"));
}

TEST_F(HubControl, RefusalsAndWrongAnswersLastAsOftenAsTold) {
    RawClient client(hub);
    hub.refuseLogin(-7, 1);
    EXPECT_EQ(client.statusOf("5026=1|5022=LoginUser|5028=demo|5029=demo"), -7);
    client.logIn();
    const std::string good = "5026=5|4=100|13001=127.0.0.1|13101=" + std::to_string(hub.port());
    const auto answers = [&](std::size_t count) {
        client.send("5026=5|5022=GetPort|4=100");
        client.send("5026=6|5022=Nonsense"); // whose answer shows that nothing else is to come
        std::vector<std::string> bodies;
        for (std::size_t i = 0; i < count + 1; ++i)
            bodies.push_back(client.next().value_or("nothing"));
        EXPECT_EQ(bodies.back(), "5026=6|5001=-13");
        bodies.pop_back();
        return bodies;
    };
    hub.answerBusy("GetPort", 2);
    EXPECT_THAT(answers(1), ElementsAre("5026=5|5001=-218"));
    EXPECT_THAT(answers(1), ElementsAre("5026=5|5001=-218"));
    EXPECT_THAT(answers(1), ElementsAre(good + "|5001=0")) << "twice was asked for";
    hub.ignore("GetPort", 1);
    EXPECT_THAT(answers(0), ElementsAre());
    const std::vector<std::pair<Hub::Wrong, std::vector<std::string>>> wrongs{
        {Hub::Wrong::Tag, {"5026=900000000000" + good.substr(6) + "|5001=0"}},
        {Hub::Wrong::Twice, {good + "|5001=0", good + "|5001=0"}},
        {Hub::Wrong::NoStatus, {good}},
        {Hub::Wrong::Garbage, {std::string(good.size() + 7, '?')}}};
    for (const auto& [how, bodies] : wrongs) {
        hub.answerWrong("GetPort", how, 1);
        EXPECT_THAT(answers(bodies.size()), ElementsAreArray(bodies));
        EXPECT_THAT(answers(1), ElementsAre(good + "|5001=0"));
    }
    hub.refuse(Hub::ANY_COMMAND, status::BUSY);
    EXPECT_EQ(client.statusOf("5026=9|5022=Echo"), status::BUSY);
    EXPECT_EQ(client.statusOf("5026=9|5022=Echo"), status::BUSY);
    const LoggedIn other(hub); // the one command that is left out
    hub.clearRefusals();
    EXPECT_EQ(client.statusOf("5026=9|5022=Echo"), 0);
}

TEST_F(HubControl, ScriptAnswersInPlaceOfTheHubAndMayDriveIt) {
    RawClient client(hub);
    hub.script([this](const Request& request) -> std::optional<Hub::Frames> {
        if (request.command == "GetPort")
            return Hub::Frames{encodeFrame("5026=7|13101=1|5001=0")};
        if (request.command == "Echo")
            hub.pushToAll(Record().add(1, "first"));
        return std::nullopt;
    });
    client.logIn();
    EXPECT_THAT(client.ask("5026=7|5022=GetPort|4=922"), ElementsAre("5026=7|13101=1|5001=0"));
    client.send("5026=20|5022=Echo");
    EXPECT_EQ(client.next(), "1=first");
    EXPECT_EQ(client.next(), "5026=20|5001=0");
    hub.script(nullptr);
    EXPECT_EQ(client.ask("5026=7|5022=GetPort|4=77"), std::vector<std::string>{"5026=7|5001=-46"});
}

TEST_F(HubControl, RawBytesGoOutAsTheyAre) {
    RawClient client(hub);
    ASSERT_TRUE(hub.waitForConnections(1));
    const std::string bytes = "garbage\x04\x20" + encodeFrameWithLength("1=5", 77);
    hub.sendRaw(bytes);
    hub.dropConnections();
    EXPECT_EQ(client.readToEnd(), bytes);
}

TEST_F(HubControl, SplitFramesArriveWholeAtEveryOffset) {
    LoggedIn client(hub);
    const std::string answer = encodeFrame("5026=20|5001=0");
    for (std::size_t offset = 1; offset < answer.size(); ++offset) {
        hub.splitFrames(offset, 300us);
        ASSERT_THAT(client.ask("5026=20|5022=Echo"), ElementsAre("5026=20|5001=0")) << offset;
    }
    // A pause without end is ended by the next setting, so the pieces cannot run together.
    hub.splitFrames(4, 1h);
    client.send("5026=20|5022=Echo");
    EXPECT_EQ(client.readSome(), answer.substr(0, 4));
    hub.setWriteSize(5, 1h);
    EXPECT_EQ(client.readSome(), answer.substr(4, 5));
    hub.setWriteSize(0);
    EXPECT_EQ(client.readSome(), answer.substr(9));
}

TEST_F(HubControl, BytesThatAreNoRequestsCloseTheirConnectionOnly) {
    LoggedIn good(hub);
    RawClient bad(hub);
    bad.send("5026=20|5022=Echo");
    bad.sendBytes("GET / HTTP/1.1\r\n");
    bad.readToEnd();
    EXPECT_EQ(hub.statistics().protocolErrors, 1U);
    EXPECT_THAT(hub.protocolErrors(), ElementsAre("a frame starts with byte 47 in place of 04"));
    EXPECT_EQ(good.statusOf("5026=21|5022=Echo"), status::SUCCESS);
}

TEST_F(HubControl, NewConnectionsCanBeTurnedAway) {
    hub.setAccepting(false);
    RawClient client(hub);
    EXPECT_EQ(client.readToEnd(), "");
    hub.setAccepting(true);
    LoggedIn{hub};
}

TEST_F(HubControl, AConnectionThatAChildOfTheProcessStillHoldsGetsNoMoreEvents) {
    // The descriptors that the epoll instances of this process watch.
    const auto watched = [] {
        std::size_t count = 0;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fdinfo")) {
            std::ifstream file(entry.path());
            for (std::string line; std::getline(file, line);)
                count += line.rfind("tfd:", 0) == 0 ? 1U : 0U;
        }
        return count;
    };
    const std::size_t before = watched();
    RawClient client(hub);
    ASSERT_TRUE(hub.waitForConnections(1));
    const pid_t child = ::fork();
    if (child == 0) {
        ::pause();
        ::_exit(0);
    }
    hub.dropConnections();
    EXPECT_TRUE(hub.waitForConnections(0));
    EXPECT_EQ(watched(), before);
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
}

TEST_F(HubControl, RestartKeepsPortValuesAndCountersAndLeavesNoThread) {
    const std::uint16_t port = hub.port();
    const std::size_t threads = threadCount();
    for (int i = 0; i < 20; ++i) {
        LoggedIn client(hub);
        hub.pushRecord(Record(100, "IBM").add(token::BID, i));
        hub.restart();
        EXPECT_EQ(client.readToEnd(), "");
    }
    EXPECT_EQ(hub.port(), port);
    EXPECT_EQ(hub.statistics().requests, 20U);
    LoggedIn client(hub);
    EXPECT_THAT(client.ask("5022=QuerySnap|4=100|5=IBM|5026=30").at(0), testing::HasSubstr("|101=19|"));
    hub.stop();
    EXPECT_FALSE(hub.isRunning());
    EXPECT_EQ(threadCount() + 1, threads);
    hub.refuseLogin(-7); // settings may be made while it stands still
    hub.start();
    EXPECT_EQ(RawClient(hub).statusOf("5026=1|5022=LoginUser|5028=demo|5029=demo"), -7);
}

TEST_F(HubControl, ThreadsMayDriveItWhileItStopsAndStarts) {
    std::vector<std::jthread> drivers;
    drivers.reserve(3);
    for (int i = 0; i < 3; ++i)
        drivers.emplace_back([&](const std::stop_token& end) {
            while (!end.stop_requested()) {
                hub.pushRecord(Record(100, "IBM").add(token::BID, 1));
                hub.setSilent(false);
                static_cast<void>(hub.statistics());
            }
        });
    for (int i = 0; i < 50; ++i)
        hub.restart();
    drivers.clear();
    EXPECT_TRUE(hub.isRunning());
}

TEST_F(HubControl, AnUnusablePortOrAddressIsReported) {
    HubConfig config = HubConfig::quiet();
    config.port = hub.port();
    Hub second(config);
    EXPECT_THROW(second.start(), std::system_error);
    EXPECT_FALSE(second.isRunning());
    config.bindAddress = "nowhere";
    EXPECT_THROW(Hub(config).start(), std::runtime_error);
}

} // namespace
