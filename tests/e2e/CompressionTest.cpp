// The same conversation and data when the hub's side is one zlib stream, as it is by default.
#include "Client.h"
#include "Gate.h"

#include <atomic>
#include <cstdlib>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::HasSubstr;
using testing::Not;
using tivra::HostConfig;
using tivra_sim::Hub;
using tivra_sim::HubConfig;
using tivra_sim::Record;
namespace token = tivra_sim::token;
using namespace std::chrono_literals;

namespace {

struct RunningHub : Hub {
    explicit RunningHub(const HubConfig& config = HubConfig::realistic()) : Hub(config) { start(); }
};

/// A client that leaves compression as it is by default.
struct CompressedClient : Client {
    explicit CompressedClient(const Hub& hub) : Client(hub) {
        connections().set(HostConfig::COMPRESSION_BOOL, true).set(HostConfig::READ_TIMEOUT_LONG, 20);
    }
    /// Its callbacks end while it is still one.
    ~CompressedClient() override { destroySession(); }
    CompressedClient(const CompressedClient&) = delete;
    CompressedClient& operator=(const CompressedClient&) = delete;
};

/// Its queue is soon full, and its subscriptions come back by themselves.
void cramp(Client& client) {
    client.connections().set(HostConfig::QUEUE_SIZE_LONG, 1);
    client.settings().set(tivra::SessionConfig::WATCHLIST_BOOL, true);
}

HubConfig playing(std::size_t count) {
    HubConfig config = HubConfig::realistic();
    config.playback.file = TIVRA_SAMPLE_DAY;
    config.playback.maxEvents = count;
    config.playback.startWhenSubscriptions = 4;
    return config;
}

void subscribeAll(Client& client) {
    for (const char* symbol : {"SPY", "AIG", "IBM", "BAC"})
        ASSERT_GE(client.send(tivra::SUBSCRIBE, 100, symbol), 18);
}

/// Holds a message against the body that the hub made, but for what the event says outside its fields.
bool isSame(const tivra::MessageEvent& event, const std::string& body) {
    tivra::MessageReader& reader = event.getReader();
    for (const tivra_sim::Pair& pair : tivra_sim::splitPairs(body)) {
        if (pair.token == token::PERMISSION || pair.token == token::SOURCE)
            continue;
        if (pair.token == token::SYMBOL) {
            if (event.getSymbol() != pair.value)
                return false;
            continue;
        }
        if (reader.next() != pair.token)
            return false;
        // A number may be written in more ways than one.
        const std::string text(pair.value);
        if (reader.getValueAsString() != text &&
            (reader.getValueType() == tivra::STRING ||
             reader.getValueAsDouble() != std::strtod(text.c_str(), nullptr)))
            return false;
    }
    return reader.next() == tivra::MessageReader::END_OF_MESSAGE;
}

/// Waits for what the client is not told about.
bool comesTrue(const Client& client, const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + Client::LONG;
    while (std::chrono::steady_clock::now() < end) {
        if (client.waitUntil(condition, 50ms))
            return true;
    }
    return false;
}

} // namespace

TEST(Compression, SessionSnapshotAndSubscription) {
    RunningHub hub;
    CompressedClient client(hub);
    ASSERT_TRUE(client.startAndWait());
    EXPECT_THAT(hub.requestTexts().at(0), HasSubstr("|13265=1|"));
    const std::int64_t snapshot = client.send(tivra::QUERYSNAP, 100, "IBM");
    ASSERT_TRUE(client.waitForEnd(snapshot));
    EXPECT_EQ(client.messagesOf(snapshot).size(), 2U);
    ASSERT_EQ(client.ask(tivra::SUBSCRIBE, 100, "IBM"), 0);
    hub.pushRecord(Record(100, "IBM").add(token::BID, "185.25"));
    EXPECT_TRUE(client.waitForMessage(
        [](const SeenMessage& message) { return message.field(token::BID) == "185.25"; }));
    // The dictionary alone has more bytes than all that was sent.
    EXPECT_LT(hub.statistics().bytesSent, 8000U);
}

TEST(Compression, EveryCutOfTheStreamIsTheSameConversation) {
    for (const std::size_t piece : {1U, 7U}) {
        RunningHub hub;
        hub.setWriteSize(piece, 0us);
        CompressedClient client(hub);
        ASSERT_TRUE(client.startAndWait()) << piece;
        ASSERT_EQ(client.ask(tivra::SUBSCRIBE, 100, "IBM"), 0);
        for (std::size_t offset = 1; offset < 20; ++offset) {
            hub.splitFrames(offset, 200us);
            hub.pushRecord(Record(100, "IBM").add(token::SEQUENCE, static_cast<int>(offset)));
        }
        ASSERT_TRUE(client.waitForUpdates(19));
        int expected = 0;
        for (const SeenMessage& message : client.messages()) {
            if (message.type == tivra::MessageEvent::UPDATE) {
                EXPECT_EQ(message.field(token::SEQUENCE), std::to_string(++expected));
            }
        }
        EXPECT_EQ(hub.statistics().accepted, 1U);
    }
}

TEST(Compression, EveryWayOfFlushingIsTheSameStream) {
    constexpr int UPDATES = IS_SANITIZED ? 2000 : 10000;
    for (const tivra_sim::Flush flush : {tivra_sim::Flush::EachFrame, tivra_sim::Flush::EachBlock,
                                         tivra_sim::Flush::Rarely, tivra_sim::Flush::WhenFull}) {
        for (const int level : {0, 1, 9}) {
            HubConfig config = HubConfig::realistic();
            config.compressionFlush = flush;
            config.compressionLevel = level;
            RunningHub hub(config);
            CompressedClient client(hub);
            std::atomic<int> next{0};
            std::atomic<int> wrong{0};
            client.messageHook = [&](const tivra::MessageEvent& event) {
                const SeenMessage message(event);
                if (message.type != tivra::MessageEvent::UPDATE)
                    return client.notify();
                wrong += message.field(token::SEQUENCE) != std::to_string(next++);
                client.notify();
            };
            ASSERT_TRUE(client.startAndWait());
            client.send(tivra::SUBSCRIBE, 100, "IBM");
            ASSERT_TRUE(hub.waitForSubscriptions(1));
            for (int number = 0; number < UPDATES; ++number)
                hub.pushRecord(Record(100, "IBM").add(token::SEQUENCE, number).add(token::BID, number % 97));
            client.send(tivra::QUERYSNAP, 100, "BAC"); // its answer pushes out what is held back
            EXPECT_TRUE(client.waitUntil([&] { return next == UPDATES; }))
                << static_cast<int>(flush) << " " << level << ": " << next;
            EXPECT_EQ(wrong, 0);
            EXPECT_EQ(hub.statistics().accepted, 1U);
        }
    }
}

/// At full speed, and with a callback that stands still until the hub has sent all: a ring with room loses
/// nothing.
TEST(Compression, DayArrivesFieldByFieldInOrder) {
    const std::size_t count = IS_SANITIZED ? 20000 : 40000;
    std::vector<std::string> bodies;
    tivra_sim::readTradingDay(TIVRA_SAMPLE_DAY, [&](const tivra_sim::MarketEvent& event) {
        bodies.push_back(tivra_sim::eventBody(event, 100, tivra_sim::Playback().midnight, bodies.size() + 1));
        return bodies.size() < count;
    });
    for (const bool isHeldUp : {false, true}) {
        RunningHub hub(playing(count));
        Gate gate;
        std::atomic<std::size_t> received{0};
        std::atomic<std::size_t> wrong{0};
        CompressedClient client(hub);
        client.connections().set(HostConfig::QUEUE_SIZE_LONG, 32);
        client.messageHook = [&](const tivra::MessageEvent& event) {
            if (event.getType() != tivra::MessageEvent::UPDATE)
                return;
            gate.wait();
            const std::size_t index = received.load();
            if (index >= bodies.size() || !isSame(event, bodies[index]))
                ++wrong;
            received = index + 1;
            if (index + 1 == bodies.size())
                client.notify();
        };
        if (!isHeldUp)
            gate.open();
        ASSERT_TRUE(client.startAndWait());
        subscribeAll(client);
        EXPECT_TRUE(hub.waitForPlayback(120s));
        gate.open();
        EXPECT_TRUE(client.waitUntil([&] { return received.load() >= bodies.size(); }, 120s));
        client.session().stop();
        EXPECT_EQ(received.load(), bodies.size());
        EXPECT_EQ(wrong.load(), 0U);
        EXPECT_EQ(hub.statistics().accepted, 1U);
    }
}

/// A stream that can't be inflated is worth nothing from there on: the library connects anew. What has come
/// before is in order and whole.
TEST(Compression, SpoiltStreamIsLeftAndRecovered) {
    RunningHub hub;
    CompressedClient client(hub);
    client.settings().set(tivra::SessionConfig::WATCHLIST_BOOL, true);
    ASSERT_TRUE(client.startAndWait());
    ASSERT_EQ(client.ask(tivra::SUBSCRIBE, 100, "IBM"), 0);
    int sent = 0;
    const auto push = [&] { hub.pushRecord(Record(100, "IBM").add(token::SEQUENCE, sent++)); };
    const struct {
        const char* name;
        std::string bytes; // none: the connection ends in the middle of a block
    } faults[] = {{"noise", std::string(100, '\xff')},
                  {"foreign dictionary", std::string("\x78\xbb\1\2\3\4", 6)},
                  {"end with a wrong sum", std::string("\x03\0abcd", 6)},
                  {"block of a wrong length", std::string("\0\x05\0\0\0", 5)},
                  {"truncation", ""}};
    std::size_t connections = 1;
    for (const auto& fault : faults) {
        SCOPED_TRACE(fault.name);
        client.forget();
        const int first = sent;
        for (int count = 0; count < 50; ++count)
            push();
        if (fault.bytes.empty()) {
            hub.dropAfterBytes(10);
            push();
        } else {
            hub.sendPastCompression(fault.bytes);
        }
        ASSERT_TRUE(client.waitForSessionEvent("ESTABLISHED"));
        EXPECT_EQ(hub.statistics().accepted, ++connections);
        ASSERT_TRUE(hub.waitForSubscriptions(1));
        push();
        const std::string last = std::to_string(sent - 1);
        EXPECT_TRUE(client.waitForMessage(
            [&](const SeenMessage& message) { return message.field(token::SEQUENCE) == last; }));
        int expected = first;
        for (const SeenMessage& message : client.messages())
            if (message.type == tivra::MessageEvent::UPDATE && message.field(token::SEQUENCE) != last) {
                EXPECT_EQ(message.field(token::SEQUENCE), std::to_string(expected++));
            }
    }
    EXPECT_THAT(client.log(), HasSubstr("zlib error (-3("));
}

/// A few bytes that hold very many, without a frame and as frames without end: they are got over, at worst
/// by a new connection.
TEST(Compression, BombIsSurvived) {
    RunningHub hub;
    std::atomic<int> last{0};
    CompressedClient client(hub);
    cramp(client);
    client.messageHook = [&](const tivra::MessageEvent& event) {
        if (event.getType() != tivra::MessageEvent::UPDATE)
            return;
        tivra::MessageReader& reader = event.getReader();
        if (reader.next() == token::SEQUENCE)
            last = static_cast<int>(reader.getValueAsInteger());
    };
    ASSERT_TRUE(client.startAndWait());
    client.send(tivra::SUBSCRIBE, 100, "IBM");
    ASSERT_TRUE(hub.waitForSubscriptions(1));
    std::string frames;
    while (frames.size() < (IS_SANITIZED ? 1U << 20 : 8U << 20))
        frames += tivra_sim::encodeFrame("3=100|4=100|5=IBM|101=1");
    int sent = 0;
    for (const std::string& bomb : {std::string(64U << 20, '\0'), frames}) {
        hub.sendRaw(bomb);
        ++sent;
        EXPECT_TRUE(comesTrue(client, [&] {
            hub.pushRecord(Record(100, "IBM").add(token::SEQUENCE, sent));
            return last == sent;
        })) << sent;
    }
    EXPECT_LT(client.timedStop(), 5s);
}

/// In plain bytes garbage is skipped, and so it is inside the compressed stream.
TEST(Compression, GarbageInsideTheStreamIsSkipped) {
    RunningHub hub;
    CompressedClient client(hub);
    ASSERT_TRUE(client.startAndWait());
    ASSERT_EQ(client.ask(tivra::SUBSCRIBE, 100, "IBM"), 0);
    hub.sendRaw("garbage");
    hub.pushRecord(Record(100, "IBM").add(token::BID, "1.5"));
    EXPECT_TRUE(
        client.waitForMessage([](const SeenMessage& message) { return message.field(token::BID) == "1.5"; }));
    EXPECT_EQ(hub.statistics().accepted, 1U);
}

/// Dropping bytes of a compressed stream would ruin it, so a full ring costs the connection; what has come is
/// in order and whole, and the session comes back.
TEST(Compression, CallbackThatStandsStillCostsTheConnectionAndNotTheSession) {
    RunningHub hub(playing(40000));
    Gate gate;
    std::atomic<bool> isLastSeen{false};
    std::atomic<std::int64_t> sequence{0};
    std::atomic<std::size_t> gaps{0};
    CompressedClient client(hub);
    cramp(client);
    client.messageHook = [&](const tivra::MessageEvent& event) {
        if (event.getType() != tivra::MessageEvent::UPDATE)
            return;
        gate.wait();
        tivra::MessageReader& reader = event.getReader();
        if (reader.next() != token::SEQUENCE) {
            isLastSeen = true;
            return client.notify();
        }
        // Of the playback, one connection's part is seen, or what is behind a new login.
        if (reader.getValueAsInteger() <= sequence)
            ++gaps;
        sequence = reader.getValueAsInteger();
    };
    ASSERT_TRUE(client.startAndWait());
    subscribeAll(client);
    EXPECT_TRUE(comesTrue(client, [&] {
        return client.log().find("=== Queue is full - Connection will be Reset ===") != std::string::npos;
    }));
    gate.open();
    EXPECT_TRUE(comesTrue(client, [&] {
        hub.pushRecord(Record(100, "IBM").add(token::BID, "1"));
        return isLastSeen.load();
    }));
    EXPECT_GE(hub.statistics().accepted, 2U);
    EXPECT_EQ(gaps.load(), 0U);
    client.session().stop();
}

/// A hub that has no compression refuses the login plainly, which is no stream that could be inflated.
TEST(Compression, HubWithoutItIsLeftWithAReason) {
    HubConfig config = HubConfig::realistic();
    config.compression = false;
    RunningHub hub(config);
    CompressedClient client(hub);
    EXPECT_THAT(client.start(), HasSubstr("zlib error (-3("));
    EXPECT_FALSE(client.isStarted);
}
