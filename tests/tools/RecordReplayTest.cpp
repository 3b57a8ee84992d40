#include "ToolFixture.h"

#include <capture/CaptureNote.h>
#include <capture/CaptureReader.h>
#include <capture/CaptureWriter.h>

#include <algorithm>
#include <csignal>
#include <random>

using namespace tivra_sim;
using testing::HasSubstr;

namespace {

using Bodies = std::vector<std::string>;
using Times = std::vector<std::int64_t>;

class RecordReplay : public ToolFixture {
protected:
    Bodies bodiesOf(const std::string& name, Times* times = nullptr) {
        notes.clear();
        tivra_capture::CaptureReader reader(directory + "/" + name);
        EXPECT_TRUE(reader.isComplete()) << name;
        Bodies bodies;
        tivra_capture::Message message;
        while (reader.next(message)) {
            if (tivra_capture::isNote(message.body)) {
                notes.emplace_back(tivra_capture::noteOf(message.body).kind);
                continue;
            }
            bodies.emplace_back(message.body);
            if (times != nullptr)
                times->push_back(message.nanoseconds);
        }
        return bodies;
    }

    /// tivra-hub plays a capture once two symbols are subscribed; from now on it is what is dialled.
    void replay(const std::string& options) {
        start("tivra-hub --start-when 2 --replay " + options);
        replayer = std::move(tool);
        dial(listeningAt(*replayer));
    }

    std::string stopReplay() {
        replayer->signal(SIGTERM);
        EXPECT_EQ(replayer->waitForEnd(), 0);
        return replayer->error();
    }

    const std::string symbols = "100:IBM 101:IBM131221C185";
    std::vector<std::string> notes; ///< kinds of those in the capture that was read last
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

/// How the stream comes, at the first recording and at that of the replay.
class RoundTrip : public RecordReplay,
                  public testing::WithParamInterface<std::pair<const char*, const char*>> {
protected:
    /// Starts a recording of present values and updates; all that comes is printed too.
    void startRecording(const std::string& options) {
        start("tivra-cat -H $HUB -u demo --read-timeout 60 --queue-size 16 -o raw subscribe "
              "--snapshot " +
              symbols + " --record " + options);
    }

    void stopRecording(std::size_t count, int code) {
        ASSERT_TRUE(tool->waitForOutput(contains("|30=2999|"))) << tool->error();
        tool->signal(SIGINT);
        EXPECT_EQ(tool->waitForEnd(), code) << tool->error();
        EXPECT_THAT(tool->error(), HasSubstr("recorded " + std::to_string(count) + " messages in "));
    }
};

TEST_P(RoundTrip, WhatIsReplayedIsByteForByteWhatTheHubSent) {
    const Bodies sent = oddBodies();
    const auto half = sent.begin() + 7 + 1500;
    startRecording(std::string("first ") + GetParam().first);
    ASSERT_TRUE(hub.waitForSubscriptions(2, kPatience));
    for (auto body = sent.begin(); body != half; ++body)
        hub.sendBody(*body);
    ASSERT_TRUE(tool->waitForOutput(contains("|30=1499|")));
    hub.dropConnections();
    ASSERT_TRUE(hub.waitForSubscriptions(2, kPatience));
    for (auto body = half; body != sent.end(); ++body)
        hub.sendBody(*body);
    stopRecording(sent.size(), 7);
    Times times;
    ASSERT_EQ(bodiesOf("first", &times), sent);
    EXPECT_THAT(notes, testing::ElementsAre("interrupted", "restored"));
    EXPECT_TRUE(std::is_sorted(times.begin(), times.end()));

    replay("first --once");
    startRecording(std::string("second ") + GetParam().second);
    stopRecording(sent.size(), 0);
    EXPECT_EQ(bodiesOf("second"), sent);
    EXPECT_TRUE(notes.empty());
    EXPECT_EQ(replayer->waitForEnd(), 0);
    EXPECT_THAT(replayer->output(), HasSubstr(std::to_string(sent.size()) + " events played"));
}

INSTANTIATE_TEST_SUITE_P(Streams, RoundTrip,
                         testing::Values(std::pair("--compression", "--no-compression"),
                                         std::pair("--no-compression", "--compression")));

TEST_F(RecordReplay, PaceIsThatOfTheCaptureTimesTheFactorAndTheOrderStays) {
    const std::int64_t millisecond = 1000000;
    Bodies sent;
    {
        tivra_capture::CaptureWriter writer(directory + "/first");
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
    for (const auto& [factor, least] : {std::pair("4", 300), std::pair("1", 1200), std::pair("0", 0)}) {
        replay(std::string("first --replay-from 0.9 --factor ") + factor);
        ASSERT_EQ(run("tivra-cat $AT --record second -q -n 4 subscribe " + symbols), 0) << tool->error();
        Times times;
        EXPECT_EQ(bodiesOf("second", &times), sent);
        EXPECT_THAT(stopReplay(), HasSubstr("2 messages of the capture have no symbol or answer a request"));
        EXPECT_THAT(replayer->output(), HasSubstr("4 events played"));
        // The receiver may be woken late for the first message, never early for the last.
        EXPECT_GE(times.back() - times.front(), least * millisecond * 9 / 10) << factor;
    }
}

TEST_F(RecordReplay, PieceOfACaptureIsPlayedAgainAndAgainToAllWhoAsk) {
    {
        tivra_capture::CaptureWriter writer(directory + "/first");
        for (int i = 0; i < 6; ++i)
            writer.add({1700000000000000000 + i * 100000000LL, "4=100|5=IBM|30=" + std::to_string(i)});
        writer.finish();
    }
    start("tivra-hub --replay first --replay-from 0.15 --replay-to 0.35 --loop --factor 10");
    replayer = std::move(tool);
    dial(listeningAt(*replayer));
    for (const char* reader : {"first reader", "second reader"}) {
        SCOPED_TRACE(reader);
        ASSERT_EQ(run("tivra-cat $AT -o raw -n 5 subscribe 100:IBM"), 0) << tool->error();
        for (const char* number : {"30=2\n", "30=3\n"})
            EXPECT_THAT(tool->output(), HasSubstr(number));
        for (const char* number : {"30=1\n", "30=4\n"})
            EXPECT_THAT(tool->output(), testing::Not(HasSubstr(number)));
    }
    stopReplay();
}

TEST_F(RecordReplay, CaptureOfASlowDiskLacksCountedMessagesAndTheRestIsWhole) {
    constexpr std::size_t kCount = 4000;
    const int pipe = makePipe("pipe");
    std::mt19937 random(11);
    Bodies sent;
    for (std::size_t i = 0; i < kCount; ++i) {
        std::string value(1000, ' ');
        for (char& c : value)
            c = static_cast<char>('!' + random() % 90);
        std::replace(value.begin(), value.end(), '|', 'x');
        sent.push_back("4=100|5=IBM|60001=" + value);
    }
    HubConfig config = HubConfig::realistic();
    config.playback.bodies = [&sent, next = std::size_t{0}](TimedBody& message) mutable {
        if (next < sent.size())
            message.body = sent[next];
        return next++ < sent.size();
    };
    config.playback.startWhenSubscriptions = 2;
    Hub player(config);
    player.start();
    dial(player.hostString());
    start("tivra-cat $AT --buffer 100 --record pipe -q --queue-size 16 -n 4000 subscribe " + symbols);
    ASSERT_TRUE(player.waitForPlayback()) << "the callbacks wait for the disk";
    ASSERT_TRUE(player.waitForConnections(0, kPatience)) << "not all was received";
    const std::string captured = readPipe(pipe);
    EXPECT_EQ(tool->waitForEnd(), 7);
    writeFile("kept", captured);
    const Bodies kept = bodiesOf("kept");
    EXPECT_LT(kept.size(), kCount);
    EXPECT_THAT(notes, testing::Contains("dropped"));
    EXPECT_THAT(tool->error(),
                HasSubstr("recorded " + std::to_string(kept.size()) + " messages in pipe, dropped " +
                          std::to_string(kCount - kept.size())));
    // What was kept stands in its order.
    auto at = sent.begin();
    for (const std::string& body : kept) {
        at = std::find(at, sent.end(), body);
        ASSERT_NE(at, sent.end());
        ++at;
    }
}

TEST_F(RecordReplay, CaptureThatWasCutOffIsPlayedAndSaidToBe) {
    ASSERT_EQ(run("tivra-cat $AT --record cut -d 0.2 subscribe 100:IBM"), 0) << tool->error();
    std::filesystem::resize_file(directory + "/cut", std::filesystem::file_size(directory + "/cut") - 1);
    replay("cut");
    EXPECT_THAT(stopReplay(), HasSubstr("was cut off; its 0 whole messages are played"));
}

} // namespace
