#include "CatFixture.h"

#include <capture/CaptureReader.h>
#include <capture/CaptureWriter.h>

#include <csignal>
#include <fcntl.h>
#include <random>
#include <sys/stat.h>

using namespace tivra_sim;
using testing::HasSubstr;

namespace {

using Bodies = std::vector<std::string>;
using Times = std::vector<std::int64_t>;

class RecordReplay : public CatFixture {
protected:
    static Bodies bodiesOf(const std::string& path, Times* times = nullptr) {
        tivra_capture::CaptureReader reader(path);
        EXPECT_TRUE(reader.isComplete()) << path;
        Bodies bodies;
        tivra_capture::Message message;
        while (reader.next(message)) {
            bodies.emplace_back(message.body);
            if (times != nullptr)
                times->push_back(message.nanoseconds);
        }
        return bodies;
    }

    /// A hub of this process that plays `bodies` once two symbols are subscribed.
    static HubConfig playing(const Bodies& bodies) {
        HubConfig config = HubConfig::realistic();
        config.playback.bodies = [&bodies, next = std::size_t{0}](TimedBody& message) mutable {
            if (next == bodies.size())
                return false;
            message.body = bodies[next++];
            return true;
        };
        config.playback.startWhenSubscriptions = 2;
        return config;
    }

    /// tivra-hub plays the capture once two symbols are subscribed. Its address.
    std::string replay(const Arguments& arguments) {
        Process::Setup server = setup;
        server.program = TIVRA_HUB_PROGRAM;
        server.arguments = {"--start-when", "2"};
        server.arguments.insert(server.arguments.end(), arguments.begin(), arguments.end());
        server.environment["TIVRA_PASSWORD"].clear();
        replayer = std::make_unique<Process>(server);
        if (!replayer->waitForOutput(contains("listening on ")) || !replayer->waitForOutput(contains("\n")))
            return {};
        const std::string output = replayer->output();
        return output.substr(13, output.find('\n') - 13);
    }

    Arguments recording(const std::string& path, std::size_t count) const {
        return {"--record",
                path,
                "-q",
                "--queue-size",
                "16",
                "-n",
                std::to_string(count),
                "subscribe",
                "100:IBM",
                "101:IBM131221C185"};
    }

    int recordAt(const std::string& host, const std::string& path, std::size_t count) {
        Arguments all{"-H", host, "-u", "demo", "--read-timeout", "60"};
        const Arguments more = recording(path, count);
        all.insert(all.end(), more.begin(), more.end());
        return startBare(all).waitForEnd();
    }

    std::string fileNamed(const char* name) const { return directory + "/" + name; }

    std::unique_ptr<Process> replayer;
};

/// Bodies with everything that a reader of fields would not give back as it was.
Bodies oddBodies() {
    const std::string ibm = "4=100|5=IBM|";
    Bodies bodies{
        ibm + "101=1.50|102=0100|101=1.5000",             // zeros that carry no value, and a field twice
        "3=100|" + ibm + "24=1|101=+1.5|99999=who knows", // a refresh, with a token of no dictionary
        ibm + "101=|102=",                                // values that are deleted
        "101=1.5|5=IBM|102=7|4=100",                      // the header at the end
        ibm + "3101=037833100|101=1000|105=\xC3\xA9\xFF\x80 ~",
        "4=101|5=IBM131221C185|101=-0.00",
        ibm + "60001=" + std::string(20000, 'x'),
    };
    std::mt19937 random(7);
    for (int i = 0; i < 3000; ++i)
        bodies.push_back((i % 3 == 0 ? "4=101|5=IBM131221C185|" : ibm) + "30=" + std::to_string(i) + "|101=" +
                         std::to_string(random() % 100000) + "." + std::to_string(random() % 10000));
    return bodies;
}

} // namespace

/// How the stream comes, at the first recording and at that of the replay.
class RoundTrip : public RecordReplay,
                  public testing::WithParamInterface<std::pair<const char*, const char*>> {
protected:
    /// Starts a recording of present values and updates; all that comes is printed too.
    void startRecording(const std::string& host, const std::string& path, const char* compression) {
        startBare({"-H", host, "-u", "demo", "--read-timeout", "60", "--queue-size", "16", "--watchlist",
                   "--record", path, "-o", "raw", compression, "subscribe", "--snapshot", "100:IBM",
                   "101:IBM131221C185"});
    }

    void stopRecording(std::size_t count) {
        cat->signal(SIGINT);
        EXPECT_EQ(cat->waitForEnd(), 0) << cat->error();
        EXPECT_THAT(cat->error(), HasSubstr("recorded " + std::to_string(count) + " messages in "));
    }
};

TEST_P(RoundTrip, WhatIsReplayedIsByteForByteWhatTheHubSent) {
    const Bodies sent = oddBodies();
    const auto half = sent.begin() + 7 + 1500;
    startRecording(hub.hostString(), fileNamed("first"), GetParam().first);
    ASSERT_TRUE(hub.waitForSubscriptions(2, PATIENCE));
    for (auto body = sent.begin(); body != half; ++body)
        hub.sendBody(*body);
    ASSERT_TRUE(cat->waitForOutput(contains("|30=1499|")));
    hub.dropConnections();
    ASSERT_TRUE(hub.waitForSubscriptions(2, PATIENCE));
    for (auto body = half; body != sent.end(); ++body)
        hub.sendBody(*body);
    ASSERT_TRUE(cat->waitForOutput(contains("|30=2999|")));
    stopRecording(sent.size());
    Times times;
    ASSERT_EQ(bodiesOf(fileNamed("first"), &times), sent);
    EXPECT_TRUE(std::is_sorted(times.begin(), times.end()));

    const std::string host = replay({"--replay", fileNamed("first"), "--once"});
    startRecording(host, fileNamed("second"), GetParam().second);
    ASSERT_TRUE(cat->waitForOutput(contains("|30=2999|"))) << replayer->error();
    stopRecording(sent.size());
    EXPECT_EQ(bodiesOf(fileNamed("second")), sent);
    EXPECT_EQ(replayer->waitForEnd(), 0);
    EXPECT_THAT(replayer->output(), HasSubstr(std::to_string(sent.size()) + " events played"));
}

INSTANTIATE_TEST_SUITE_P(Streams, RoundTrip,
                         testing::Values(std::pair("--compression", "--no-compression"),
                                         std::pair("--no-compression", "--compression")),
                         [](const auto& instance) {
                             return instance.param.first[2] == 'c' ? "CompressedThenPlain"
                                                                   : "PlainThenCompressed";
                         });

TEST_F(RecordReplay, PaceIsThatOfTheCaptureTimesTheFactorAndTheOrderStays) {
    const std::int64_t millisecond = 1000000;
    Bodies sent;
    {
        tivra_capture::CaptureWriter writer(fileNamed("first"));
        // Clocks step back, and the last message comes 1.2 s after the first that is played.
        for (const std::int64_t time : {0, 600, 1000, 800, 1000, 2200}) {
            sent.push_back("4=100|5=IBM|30=" + std::to_string(sent.size()));
            writer.add({1700000000000000000 + time * millisecond, sent.back()});
            writer.flush();
        }
        writer.add({1700000002300000000, "4=100|5=IBM|5026=20|30=1"});
        writer.add({1700000002300000000, "4=100|30=1"});
        writer.finish();
    }
    sent.erase(sent.begin(), sent.begin() + 2);
    const auto run = [&](const char* factor, Times& times) {
        const std::string host =
            replay({"--replay", fileNamed("first"), "--replay-from", "0.9", "--factor", factor});
        ASSERT_EQ(recordAt(host, fileNamed("second"), sent.size()), 0) << cat->error() << replayer->error();
        EXPECT_EQ(bodiesOf(fileNamed("second"), &times), sent);
        replayer->signal(SIGTERM);
        EXPECT_EQ(replayer->waitForEnd(), 0);
        EXPECT_THAT(replayer->output(), HasSubstr("4 events played"));
        EXPECT_THAT(replayer->error(),
                    HasSubstr("2 messages of the capture have no symbol or answer a request"));
    };
    for (const auto& [factor, least] : {std::pair("4", 300), std::pair("1", 1200), std::pair("0", 0)}) {
        Times times;
        ASSERT_NO_FATAL_FAILURE(run(factor, times));
        // The receiver may be woken late for the first message, never early for the last.
        EXPECT_GE(times.back() - times.front(), least * millisecond * 9 / 10) << factor;
    }
}

TEST_F(RecordReplay, CaptureOfASlowDiskLacksCountedMessagesAndTheRestIsWhole) {
    constexpr std::size_t COUNT = 4000;
    const std::string pipe = fileNamed("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    std::mt19937 random(11);
    Bodies sent;
    for (std::size_t i = 0; i < COUNT; ++i) {
        std::string value(1000, ' ');
        for (char& c : value)
            c = static_cast<char>('!' + random() % 90);
        std::replace(value.begin(), value.end(), '|', 'x');
        sent.push_back("4=100|5=IBM|60001=" + value);
    }
    Hub player(playing(sent));
    player.start();
    Arguments arguments{"--buffer", "100"};
    const Arguments more = recording(pipe, COUNT);
    arguments.insert(arguments.end(), more.begin(), more.end());
    startAt(player, arguments);
    ASSERT_TRUE(player.waitForPlayback()) << "the callbacks wait for the disk";
    ASSERT_TRUE(player.waitForConnections(0, PATIENCE)) << "not all was received";
    // Only now somebody reads.
    ASSERT_EQ(fcntl(reader, F_SETFL, 0), 0);
    std::string captured;
    char piece[65536];
    for (ssize_t got = 0; (got = read(reader, piece, sizeof piece)) > 0;)
        captured.append(piece, static_cast<std::size_t>(got));
    close(reader);
    EXPECT_EQ(cat->waitForEnd(), 7);
    const Bodies kept = bodiesOf(writeFile("kept", captured));
    EXPECT_LT(kept.size(), COUNT);
    EXPECT_THAT(cat->error(), HasSubstr("recorded " + std::to_string(kept.size()) + " messages in " + pipe +
                                        ", dropped " + std::to_string(COUNT - kept.size())));
    // What was kept stands in its order.
    auto at = sent.begin();
    for (const std::string& body : kept) {
        at = std::find(at, sent.end(), body);
        ASSERT_NE(at, sent.end());
        ++at;
    }
}

TEST_F(RecordReplay, FilesThatCannotBeWrittenOrReadAreTold) {
    EXPECT_EQ(run({"--record", fileNamed("none/file"), "subscribe", "100:IBM"}), 8);
    EXPECT_THAT(cat->error(), HasSubstr("cannot write the capture " + fileNamed("none/file")));
    // The disk is full at the first byte.
    EXPECT_EQ(run({"--record", "/dev/full", "subscribe", "100:IBM"}), 8);
    EXPECT_THAT(cat->error(), HasSubstr("cannot write the capture /dev/full: No space left on device"));

    const std::string broken = writeFile("broken", "TIVRACAP\0\0\0\1");
    EXPECT_EQ(replay({"--replay", broken}), "");
    EXPECT_EQ(replayer->waitForEnd(), 4);
    EXPECT_THAT(replayer->error(), HasSubstr(broken + ": not a capture"));

    ASSERT_EQ(run({"--record", fileNamed("cut"), "-d", "0.2", "subscribe", "100:IBM"}), 0) << cat->error();
    std::filesystem::resize_file(fileNamed("cut"), std::filesystem::file_size(fileNamed("cut")) - 1);
    EXPECT_NE(replay({"--replay", fileNamed("cut")}), "");
    replayer->signal(SIGTERM);
    EXPECT_EQ(replayer->waitForEnd(), 0);
    EXPECT_THAT(replayer->error(), HasSubstr("was cut off; its 0 whole messages are played"));
}
