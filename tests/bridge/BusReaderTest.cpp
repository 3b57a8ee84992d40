#include "reader/BusReader.h"
#include "bridge/FakeSource.h"
#include "bridge/FakeValues.h"
#include "bus/BatchWriter.h"
#include "reader/FieldTypes.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <future>
#include <mutex>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

using namespace tivra_bus;
using bridge_test::addRecord;
using bridge_test::FakeEngine;
using bridge_test::FakeSource;
using bridge_test::FakeValues;
using bridge_test::lastMessageOf;
using std::chrono::milliseconds;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

const std::string kBid = "BID";
using Lines = std::vector<std::string>;

FakeValues bid(std::uint64_t value) {
    return {{{&kBid}, tivra::Value::ofInteger(static_cast<std::int64_t>(value))}};
}

/// Writes as a bridge does: each update's value is its number.
class Writer {
public:
    explicit Writer(FakeEngine& engine, std::uint64_t epoch = 1) : m_engine(engine), m_epoch(epoch) {
        m_records.addGap(nullptr, {"takeover", "a", "b", {}, {}});
        close();
    }

    Writer& image(std::uint64_t n) {
        addRecord(m_records, RecordType::Image, {100, "IBM", n}, bid(n));
        m_records.addState({100, "IBM", n}, "live", "");
        return *this;
    }
    Writer& updates(std::uint64_t first, std::uint64_t last) {
        for (std::uint64_t n = first; n <= last; ++n)
            addRecord(m_records, RecordType::Update, {100, "IBM", n}, bid(n));
        return *this;
    }
    /// The batch that is open, without putting it into the stream.
    [[nodiscard]] std::string take() {
        return std::string(m_records.close({"json", 0, m_epoch, ++m_batch, 0, 0, "writer", "now"}).message());
    }
    void close() { (void)closeAt(); }
    /// @return the batch's position
    std::uint64_t closeAt() { return m_engine.append(take()); }
    /// In place of the batch that is open.
    void closeAs(const std::string& bytes) {
        (void)take();
        m_engine.append(bytes);
    }
    void last(std::uint64_t n) const {
        m_engine.setLast("IBM", lastMessageOf({100, "IBM", n}, m_epoch, "live", bid(n)));
    }

private:
    FakeEngine& m_engine;
    const std::uint64_t m_epoch;
    std::uint64_t m_batch = 0;
    BatchWriter m_records;
};

/// What a reader's handlers have got, in their order.
class Seen {
public:
    tivra::BusHandlers handlers() {
        tivra::BusHandlers handlers;
        handlers.onUpdate = [this](const tivra::BusUpdate& update) {
            constexpr const char* kKinds[]{"image", "update", "refresh"};
            add(kKinds[static_cast<int>(update.kind())] + (" " + std::to_string(update.number())));
            EXPECT_EQ(update.get<std::uint64_t>(kBid), update.number());
        };
        handlers.onState = [this](const tivra::Instrument&, const tivra::StateChange& change) {
            if (change.to == tivra::DataState::Live || change.to == tivra::DataState::Stale)
                add(change.to == tivra::DataState::Live ? "live" : "stale");
        };
        handlers.onGap = [this](const tivra::Instrument&, const tivra::BusGap& gap) {
            add("gap " + std::string(nameOf(gap.cause)) +
                (gap.messages ? " " + std::to_string(*gap.messages) : ""));
        };
        return handlers;
    }
    void add(const std::string& line) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_lines.push_back(line);
        m_changed.notify_all();
    }
    /// All up to and with `last`, which has to come; states are left out unless asked for.
    Lines upTo(const std::string& last, bool withStates = false) {
        std::unique_lock<std::mutex> lock(m_mutex);
        const auto isThere = [&] { return std::find(m_lines.begin(), m_lines.end(), last) != m_lines.end(); };
        EXPECT_TRUE(m_changed.wait_for(lock, std::chrono::seconds(20), isThere)) << last;
        Lines lines;
        for (const std::string& line : m_lines) {
            if (withStates || (line != "live" && line != "stale"))
                lines.push_back(line);
            if (line == last)
                break;
        }
        return lines;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    Lines m_lines;
};

class BusReader : public testing::Test {
protected:
    tivra::BusReader open(unsigned partitions = 1) {
        tivra::BusOptions options;
        options.lookBack = milliseconds(100);
        options.onProblem = [this](const tivra::BusProblem& problem) { problems.add(problem.text); };
        return tivra::BusReader::open(options, std::make_unique<FakeSource>(engine, partitions));
    }
    void awaitBatches(std::uint64_t count) const {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (reader.statistics().batches < count && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
    }
    tivra::BusSubscription subscribe() { return reader.subscribe(100, {"IBM"}, seen.handlers()); }

    FakeEngine engine;
    Writer writer{engine};
    Seen seen, problems;
    tivra::BusReader reader = open();
};

Lines operator+(Lines lines, const Lines& more) {
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

Lines updates(int first, int last) {
    Lines lines;
    for (int n = first; n <= last; ++n)
        lines.push_back("update " + std::to_string(n));
    return lines;
}

} // namespace

TEST_F(BusReader, LastValuesThatAreBehindOrAheadOfTheStreamJoinItWithoutLossAndDoubles) {
    for (const int last : {5, 12}) {
        Seen own;
        Writer each(engine, static_cast<std::uint64_t>(last));
        each.image(1).updates(2, 8).close();
        each.updates(9, 10).close();
        each.last(static_cast<std::uint64_t>(last));
        const tivra::BusSubscription subscription = reader.subscribe(100, {"IBM"}, own.handlers());
        const std::string image = "image " + std::to_string(last);
        (void)own.upTo(image);
        each.updates(11, 15).close();
        EXPECT_EQ(own.upTo("update 15"), Lines{image} + updates(last + 1, 15));
    }
}

TEST_F(BusReader, ALateSubscriptionDoesNotDisturbTheOnesBefore) {
    writer.image(1).close();
    writer.last(1);
    const tivra::BusSubscription first = subscribe();
    writer.updates(2, 10).close();
    (void)seen.upTo("update 10");
    writer.last(6);
    Seen late;
    const tivra::BusSubscription second = reader.subscribe(100, {"IBM"}, late.handlers());
    (void)late.upTo("update 10");
    writer.updates(11, 12).close();
    EXPECT_EQ(late.upTo("update 12"), Lines{"image 6"} + updates(7, 12));
    EXPECT_EQ(seen.upTo("update 12"), Lines{"image 1"} + updates(2, 12));
}

TEST_F(BusReader, ATakeoverIsAGapAndWhatTheOldWriterStillSendsIsLeftOut) {
    writer.image(1).close();
    writer.last(1);
    const tivra::BusSubscription subscription = subscribe();
    writer.updates(2, 3).close();
    Writer next(engine, 2);
    writer.updates(4, 5).close();
    next.image(1).updates(2, 3).close();
    EXPECT_EQ(seen.upTo("gap takeover") + updates(1, 0),
              (Lines{"image 1", "update 2", "update 3", "gap takeover"}));
    const Lines lines = seen.upTo("update 3");
    next.updates(4, 4).close();
    EXPECT_EQ(seen.upTo("update 4"), (Lines{"image 1", "update 2", "update 3", "gap takeover", "image 1",
                                            "update 2", "update 3", "update 4"}));
}

TEST_F(BusReader, ABatchThatIsThereTwiceIsReadOnce) {
    writer.image(1).close();
    writer.last(1);
    const tivra::BusSubscription subscription = subscribe();
    const std::string batch = writer.updates(2, 3).take();
    engine.append(batch);
    engine.append(batch);
    writer.updates(4, 4).close();
    EXPECT_EQ(seen.upTo("update 4"), Lines{"image 1"} + updates(2, 4));
    EXPECT_EQ(reader.statistics().duplicates, 1U);
}

class BusReaderSpoilt : public BusReader,
                        public testing::WithParamInterface<std::pair<const char*, const char*>> {};

TEST_P(BusReaderSpoilt, IsAnErrorAndAGapWithItsCountAndTheRestGoesOn) {
    writer.image(1).close();
    writer.last(1);
    const tivra::BusSubscription subscription = subscribe();
    writer.updates(2, 3).close();
    (void)seen.upTo("update 3");
    writer.updates(4, 6).closeAs(GetParam().first);
    writer.updates(7, 8).close();
    writer.last(8);
    // The values that the batch had are made up for.
    EXPECT_EQ(seen.upTo("refresh 8"), (Lines{"image 1", "update 2", "update 3", "gap unreadable 3",
                                             "update 7", "update 8", "refresh 8"}));
    EXPECT_THAT(problems.upTo(GetParam().second), testing::SizeIs(1));
    writer.updates(9, 9).close();
    (void)seen.upTo("update 9");
}

#define START                                                                                                 \
    R"({"tivra":1,"payload":"json","partition":0,"epoch":1,"batch":4,"records":1,"dictionary":0,"time":"t"})" \
    "\n"
#define LEFT_OUT ": what it holds is left out"
INSTANTIATE_TEST_SUITE_P(
    Batches, BusReaderSpoilt,
    testing::Values(
        std::pair("",
                  "partition 0, message 4: a batch: a first line of at most 4096 bytes was wanted" LEFT_OUT),
        std::pair("\xff\xff\xff\xff",
                  "partition 0, message 4: a batch: an Arrow stream: a message was wanted" LEFT_OUT),
        std::pair(
            START,
            "partition 0, message 4: a batch, line 2: it ends before the 1 records of its header" LEFT_OUT),
        std::pair(START R"({"type":"update","source":100,"symbol":"IBM","n":-4,"fields":{}})"
                        "\n",
                  "partition 0, message 4: a batch, line 2: \"n\": a whole number in its range was "
                  "wanted" LEFT_OUT),
        std::pair(
            R"({"tivra":1,"payload":"json","partition":7,"epoch":1,"batch":4,"records":0,"dictionary":0,"time":""})"
            "\n",
            "partition 0, message 4: a batch, line 1: it is of partition 7" LEFT_OUT)));

TEST_F(BusReader, OfABatchOfBodiesOnlyTheSpoiltRecordIsMissing) {
    writer.image(1).close();
    writer.last(1);
    const tivra::BusSubscription subscription = subscribe();
    (void)seen.upTo("image 1");
    const auto record = [](int n, const std::string& body) {
        return R"({"type":"update","source":100,"symbol":"IBM","n":)" + std::to_string(n) + R"(,"body":)" +
               std::to_string(body.size()) + "}\n" + body + "\n";
    };
    writer.closeAs(headerLine({"body", 0, 1, 3, 4, 0, "writer", "now"}) +
                   R"({"fields":{"7":["BID","integer"]}})"
                   "\n" +
                   record(2, "7=2") + record(3, "8=3") + record(4, "\n") + record(5, "7=5"));
    EXPECT_EQ(seen.upTo("update 5"), (Lines{"image 1", "update 2", "gap unreadable 2", "update 5"}));
    EXPECT_THAT(
        problems.upTo("partition 0, message 3: a batch, line 6: a field isn't among the \"fields\" of the "
                      "batch: what it holds is left out"),
        testing::SizeIs(1));
    writer.updates(6, 6).close();
    (void)seen.upTo("update 6");
}

TEST_F(BusReader, ASilentSymbolWhoseLastUpdateWasSpoiltGetsItsValuesAllTheSame) {
    writer.image(1).close();
    writer.last(1);
    const tivra::BusSubscription subscription = subscribe();
    (void)seen.upTo("image 1");
    writer.updates(2, 4).closeAs("spoilt\n");
    writer.last(4);
    EXPECT_EQ(seen.upTo("image 4"), (Lines{"image 1", "gap unreadable 3", "image 4"}));
}

TEST_F(BusReader, AnEngineThatWasAwayIsReadFromWhereItWasLeftAndWhatItHasDroppedIsAGap) {
    writer.image(1).close();
    writer.last(1);
    const tivra::BusSubscription subscription = subscribe();
    (void)seen.upTo("image 1");
    engine.setConnected(false);
    (void)seen.upTo("stale", true);
    writer.updates(2, 3).close();
    engine.setConnected(true);
    (void)seen.upTo("update 3");
    Seen other;
    const tivra::BusSubscription watch = reader.subscribe(100, {"IBM"}, other.handlers());
    (void)other.upTo("live", true);
    engine.setConnected(false);
    (void)other.upTo("stale", true);
    writer.updates(4, 5).close();
    writer.updates(6, 7).close();
    writer.updates(8, 9).close();
    engine.dropTo(5);
    writer.last(9);
    engine.setConnected(true);
    EXPECT_EQ(seen.upTo("refresh 9"),
              Lines{"image 1"} + updates(2, 3) + Lines{"gap expired 4"} + updates(8, 9) + Lines{"refresh 9"});
    EXPECT_EQ(subscription.statistics().missing, 4U);
}

TEST_F(BusReader, AQuietSymbolGetsItsValuesThoughTheStreamIsNeverReadToItsEnd) {
    for (const bool isAllDropped : {false, true}) {
        Seen own;
        Writer each(engine, isAllDropped ? 3 : 2);
        const std::uint64_t image = each.image(1).closeAt();
        each.last(1);
        const tivra::BusSubscription subscription = reader.subscribe(100, {"IBM"}, own.handlers());
        (void)own.upTo("image 1");
        each.updates(2, 4);
        engine.setLag(1000);
        engine.setConnected(false);
        (void)own.upTo("stale", true);
        const std::uint64_t dropped = each.closeAt();
        EXPECT_EQ(dropped, image + 1);
        if (!isAllDropped)
            each.close();
        each.last(4);
        engine.dropTo(dropped);
        engine.setConnected(true);
        EXPECT_EQ(own.upTo("image 4"), (Lines{"image 1", "gap expired 3", "image 4"}));
    }
}

TEST_F(BusReader, WhatTheStreamStillBringsIsNotCountedAsMissing) {
    const std::uint64_t image = writer.image(1).closeAt();
    writer.last(1);
    const tivra::BusSubscription subscription = subscribe();
    (void)seen.upTo("image 1");
    awaitBatches(image);
    engine.setConnected(false);
    (void)seen.upTo("stale", true);
    writer.updates(2, 4).close();
    writer.close();
    engine.dropTo(image + 1);
    engine.setConnected(true);
    awaitBatches(image + 1);
    engine.hold();
    writer.updates(5, 6).close();
    writer.last(6);
    // How far it has to be read before the last values that the reader has by then are taken.
    engine.releaseWhenAsked();
    EXPECT_EQ(seen.upTo("refresh 6"),
              Lines({"image 1", "gap expired 3"}) + updates(5, 6) + Lines{"refresh 6"});
}

TEST_F(BusReader, APartitionThatTheEngineDoesNotAnswerForHoldsUpNoOther) {
    tivra::BusReader two = open(2);
    const tivra::BusSubscription lost = two.subscribe(100, {"AIG"}, {});
    writer.image(1).close();
    writer.last(1);
    const tivra::BusSubscription subscription = two.subscribe(100, {"IBM"}, seen.handlers());
    (void)problems.upTo("partition 1: no leader; it is tried again");
    writer.updates(2, 3).close();
    EXPECT_EQ(seen.upTo("update 3"), Lines{"image 1"} + updates(2, 3));
}

namespace {

std::atomic<bool> g_isDestroyed{false};

/// Goes when the process ends.
const struct Probe {
    Probe() = default;
    ~Probe() { g_isDestroyed = true; }
} g_probe;

/// A reader that its own handler closes, in a process that ends while the handler still runs.
[[noreturn]] void endWhileAHandlerRuns(FakeEngine& engine) {
    static std::atomic<bool> isClosed{false};
    // Nobody destroys it, and so waits for what runs.
    static auto* const reader = new tivra::BusReader(
        tivra::BusReader::open(tivra::BusOptions{}, std::make_unique<FakeSource>(engine)));
    tivra::BusHandlers handlers;
    handlers.onUpdate = [](const tivra::BusUpdate&) {
        reader->close();
        isClosed = true;
        const auto deadline = std::chrono::steady_clock::now() + milliseconds(300);
        while (!g_isDestroyed && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
        if (g_isDestroyed)
            std::_Exit(9);
    };
    static const auto* const subscription =
        new tivra::BusSubscription(reader->subscribe(100, {"IBM"}, handlers));
    while (!isClosed || subscription == nullptr)
        std::this_thread::yield();
    std::exit(0);
}

} // namespace

TEST_F(BusReader, AProcessEndsAfterTheHandlerThatHasClosedItsReader) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    writer.image(1).close();
    writer.last(1);
    EXPECT_EXIT(endWhileAHandlerRuns(engine), testing::ExitedWithCode(0), "");
}

namespace {

/// In pages.
std::size_t addressSpace() {
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages;
}

} // namespace

TEST_F(BusReader, ThreadsThatEndInAHandlerGiveTheirMemoryBack) {
    writer.image(1).close();
    writer.last(1);
    const auto closeInItsHandler = [this] {
        tivra::BusReader own = open();
        std::promise<void> closed;
        tivra::BusHandlers handlers;
        handlers.onUpdate = [&](const tivra::BusUpdate&) {
            own.close();
            closed.set_value();
        };
        const tivra::BusSubscription subscription = own.subscribe(100, {"IBM"}, handlers);
        closed.get_future().wait();
    };
    constexpr std::size_t kRounds = 100;
    for (std::size_t i = 0; i < kRounds; ++i)
        closeInItsHandler();
    const std::size_t before = addressSpace();
    for (std::size_t i = 0; i < kRounds; ++i)
        closeInItsHandler();
    // A thread's stack is of 8 MiB, which are 2048 pages.
    EXPECT_LT(addressSpace(), before + kRounds * 2048 / 2);
}

TEST_F(BusReader, QuietSymbolsOfClosedSubscriptionsAreReadNoMore) {
    writer.image(1).close();
    writer.last(1);
    tivra::BusSubscription quiet = subscribe();
    (void)seen.upTo("image 1");
    EXPECT_EQ(reader.statistics().partitions, 1U);
    quiet.close();
    for (int i = 0; i < 100; ++i)
        subscribe().close(); // some of them before the reader has come to know them
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (reader.statistics().partitions > 0 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    EXPECT_EQ(reader.statistics().partitions, 0U);
}

TEST_F(BusReader, ALookBackThatCannotBeMeantIsRefused) {
    for (const milliseconds wrong : {milliseconds(-1), milliseconds(3'600'001), milliseconds::max()}) {
        tivra::BusOptions options;
        options.lookBack = wrong;
        EXPECT_THROW((void)tivra::BusReader::open(options, std::make_unique<FakeSource>(engine)),
                     tivra::Error);
    }
}

TEST_F(BusReader, AHandlerMayThrowAndMayCloseItsSubscription) {
    writer.image(1).close();
    writer.last(1);
    tivra::BusHandlers handlers = seen.handlers();
    std::mutex mutex;
    tivra::BusSubscription subscription;
    handlers.onUpdate = [&](const tivra::BusUpdate& update) {
        const std::lock_guard<std::mutex> lock(mutex);
        if (update.number() == 2)
            throw std::runtime_error("no room");
        if (update.number() == 3)
            subscription.close();
        EXPECT_LE(update.number(), 3U);
    };
    {
        const std::lock_guard<std::mutex> lock(mutex);
        subscription = reader.subscribe(100, {"IBM"}, handlers);
    }
    const tivra::BusSubscription other = subscribe();
    writer.updates(2, 4).close();
    (void)seen.upTo("update 4");
    EXPECT_THAT(problems.upTo("onUpdate of a subscription has thrown: no room"), testing::SizeIs(1));
    EXPECT_EQ(subscription.state({100, "IBM"}), tivra::DataState::Closed);
}

TEST_F(BusReader, ASymbolWithoutLastValuesStaysPendingUntilItsImageAndFieldsAreChosen) {
    const tivra::BusSubscription subscription = reader.subscribe(100, {"IBM"}, {}, {"ASK"});
    EXPECT_EQ(subscription.state({100, "IBM"}), tivra::DataState::Pending);
    EXPECT_THROW((void)reader.subscribe(100, {"A|B"}, {}), tivra::Error);
    const tivra::BusSubscription all = reader.subscribe(100, {"IBM"}, seen.handlers(), {kBid});
    writer.image(1).updates(2, 3).close();
    (void)seen.upTo("update 3");
    EXPECT_EQ(subscription.statistics().withoutField, 2U);
    EXPECT_EQ(subscription.state({100, "IBM"}), tivra::DataState::Live);
}

TEST(FieldTypesTest, AHubMayHaveVeryManyFields) {
    std::string dictionary = R"({"tivra":1,"fields":{)";
    for (int i = 0; i < 20'000; ++i)
        dictionary += (i == 0 ? "\"F" : ",\"F") + std::to_string(i) + R"(":"integer")";
    const FieldTypes types(dictionary + "}}");
    EXPECT_EQ(types.typeOf("F19999"), tivra::Value::Type::Integer);
    for (const char* other : {"", "[]", "{}", R"({"fields":3})", R"({"fields":{})"})
        EXPECT_THROW(FieldTypes{other}, BatchError) << other;
}
