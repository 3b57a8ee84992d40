// What one partition's writers make of an engine that loses answers, refuses, forgets or has another writer.
#include "bridge/FakeBus.h"
#include "bridge/FakeValues.h"
#include "bus/BatchReader.h"
#include "bus/BatchWriter.h"
#include "bus/JsonText.h"
#include "feed/FeedFixture.h"
#include "run/LastValuesWriter.h"
#include "run/PartitionWriter.h"

#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

using namespace tivra_bus;
using bridge_test::FakeBus;
using bridge_test::FakeValues;
using bridge_test::lastMessageOf;
using testing::ElementsAre;
using testing::HasSubstr;
using Deed = FakeBus::Deed;
namespace token = tivra_sim::token;

namespace {

constexpr unsigned kPartition = 3;
constexpr std::uint64_t kEpoch = 5;

std::string messageOf(std::uint64_t epoch, std::uint64_t batch) {
    BatchWriter writer;
    writer.addGap(nullptr, {"takeover", "a", "b", std::nullopt, std::nullopt});
    return std::string(writer.close({"json", kPartition, epoch, batch, 0, 0, "another", "then"}).message());
}

/// Writers of one partition, between a hub and an engine in memory; the test is the thread that sends.
class WriterTest : public FeedTest {
protected:
    void begin(const WriterOptions& options = {}) {
        writer = std::make_shared<PartitionWriter>(kPartition, kEpoch, bus.endOf(kPartition), bus, options,
                                                   counters, std::make_shared<FieldNames>(),
                                                   std::make_shared<SendBell>());
        lastValues = std::make_shared<LastValuesWriter>(writer, bus, counters);
    }
    void subscribe() {
        const std::uint64_t before = counters->updates;
        group = feed.subscribeAll({{100, "IBM"}}, writer->handlers());
        waitUntil([&] {
            return writer->stateOf(100, "IBM") == tivra::DataState::Live && counters->updates > before;
        });
    }
    /// Prices from `first` to `last`, which the writer has when it returns.
    void push(int first, int last) {
        const std::uint64_t before = counters->updates;
        for (int price = first; price <= last; ++price)
            pushBid(price);
        waitUntil([&] { return counters->updates >= before + static_cast<std::uint64_t>(last - first + 1); });
    }
    static void waitUntil(const std::function<bool()>& condition) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!condition()) {
            ASSERT_LT(std::chrono::steady_clock::now(), deadline);
            std::this_thread::yield();
        }
    }
    void pump() {
        m_now += std::chrono::minutes(1);
        writer->pump(m_now);
    }
    /// As often as needed, with every pause over.
    void pumpAll() {
        for (int i = 0; i < 200 && !writer->isFenced(); ++i) {
            pump();
            if (writer->needsLook())
                writer->looked(bus.endOf(kPartition));
            lastValues->pump(m_now, true);
        }
    }
    /// The stream's records; each batch has to have the number after the one before, and fit.
    std::vector<BusRecord> records(std::size_t largest = std::size_t{1} << 20) const {
        std::vector<BusRecord> all;
        std::uint64_t batch = 0;
        for (const std::string& message : bus.stream(kPartition)) {
            BatchReader reader(message);
            if (reader.header().epoch != kEpoch)
                continue;
            EXPECT_EQ(reader.header().batch, ++batch);
            EXPECT_LE(message.size(), largest);
            for (BusRecord record; reader.next(record);)
                all.push_back(record);
        }
        return all;
    }
    /// The prices of all updates of the stream.
    std::vector<double> prices() const {
        std::vector<double> prices;
        for (const BusRecord& record : records())
            if (record.type == RecordType::Update && record.fields.front().first == "BID")
                prices.push_back(std::get<double>(record.fields.front().second));
        return prices;
    }
    static std::vector<double> upTo(int last) {
        std::vector<double> prices;
        for (int price = 1; price <= last; ++price)
            prices.push_back(price);
        return prices;
    }

    std::shared_ptr<WriterCounters> counters = std::make_shared<WriterCounters>();
    FakeBus bus;
    std::shared_ptr<PartitionWriter> writer;
    std::shared_ptr<LastValuesWriter> lastValues;
    tivra::SubscriptionGroup group;

private:
    PartitionWriter::Clock::time_point m_now = PartitionWriter::Clock::now();
};

class EngineFaults : public WriterTest, public testing::WithParamInterface<std::deque<Deed>> {};

} // namespace

TEST_P(EngineFaults, EachBatchIsInTheStreamOnceAndInOrderAndLastValuesAreTheLast) {
    bus.setStream(kPartition, {messageOf(kEpoch - 1, 7)});
    begin();
    subscribe();
    bus.script(GetParam());
    for (int price = 1; price <= 9; price += 3) {
        push(price, price + 2);
        pumpAll();
    }
    EXPECT_EQ(prices(), upTo(9));
    const std::vector<BusRecord> all = records();
    EXPECT_EQ(all.front().gap.cause, "takeover");
    EXPECT_EQ(all.front().gap.from, "then") << "since the batch before";
    EXPECT_EQ(counters->waitingBytes, 0U);
    EXPECT_EQ(readLastValues(bus.last(100, "IBM").message).number, all.back().number);
    EXPECT_EQ(writer->trouble(), "");
}

INSTANTIATE_TEST_SUITE_P(
    Writer, EngineFaults,
    testing::Values(std::deque<Deed>{}, std::deque<Deed>{Deed::LoseAnswer},
                    std::deque<Deed>{Deed::Refuse, Deed::Refuse, Deed::LoseAnswer},
                    std::deque<Deed>{Deed::Store, Deed::Store, Deed::LoseAnswer, Deed::Refuse},
                    // That of the second last values.
                    std::deque<Deed>{Deed::Store, Deed::Store, Deed::Store, Deed::LoseAnswer},
                    std::deque<Deed>{Deed::Store, Deed::LoseAnswer, Deed::LoseAnswer, Deed::LoseAnswer,
                                     Deed::LoseAnswer}));

TEST_F(WriterTest, ItGivesUpWhereTheStreamIsNotAsItWasLeft) {
    const std::string foreign = "hello", mine = messageOf(kEpoch, 1), higher = messageOf(kEpoch + 1, 1);
    using Stream = std::vector<std::string>;
    const std::vector<std::function<void(Stream&)>> changes{
        [&](Stream& stream) { stream.push_back(higher); },   // another has taken over
        [&](Stream& stream) { stream.pop_back(); },          // a server has lost what it had acknowledged
        [&](Stream& stream) { stream.push_back(foreign); }}; // somebody writes into it
    for (const auto& change : changes) {
        bus.setStream(kPartition, {});
        begin();
        subscribe();
        pumpAll();
        push(1, 2);
        pumpAll();
        Stream stream = bus.stream(kPartition);
        change(stream);
        bus.setStream(kPartition, stream);
        push(3, 3);
        pumpAll();
        EXPECT_TRUE(writer->isFenced());
        EXPECT_FALSE(writer->trouble().empty());
        EXPECT_EQ(bus.stream(kPartition), stream);
        group.close();
        EXPECT_EQ(counters->waitingBytes, 0U);
    }
}

TEST_F(WriterTest, OfTwoThatHaveTakenTheSameEpochTheSecondWritesNothing) {
    for (const std::uint64_t length : {1U, 2U}) {
        bus.setStream(kPartition, {});
        begin();
        std::vector<std::string> stream;
        for (std::uint64_t batch = 1; batch <= length; ++batch)
            stream.push_back(messageOf(kEpoch, batch));
        bus.setStream(kPartition, stream);
        pumpAll();
        EXPECT_TRUE(writer->isFenced());
        EXPECT_EQ(bus.stream(kPartition), stream);
    }
}

TEST_F(WriterTest, WhatThereIsNoRoomForIsCountedAndFollowedByThePresentState) {
    begin();
    subscribe();
    pumpAll();
    bus.always(Deed::Refuse);
    push(1, 1);
    writer->setRoom(1);
    push(2, 8);
    pumpAll();
    EXPECT_THAT(writer->trouble(), HasSubstr("refused"));
    hub.stop(); // a state and perhaps a gap, which take no room either
    waitUntil([&] { return writer->stateOf(100, "IBM") == tivra::DataState::Stale; });
    EXPECT_LT(counters->waitingBytes, 4096U);
    bus.always(Deed::Store);
    writer->setRoom(1 << 20);
    pumpAll();
    const std::vector<BusRecord> all = records();
    std::size_t gap = all.size();
    for (std::size_t i = 0; i < all.size(); ++i)
        if (all[i].type == RecordType::Gap && all[i].gap.cause == "overflow")
            gap = i;
    ASSERT_LT(gap + 2, all.size());
    EXPECT_EQ(all[gap].gap.messages, 7U);
    EXPECT_EQ(all[gap + 1].state, "stale");
    EXPECT_EQ(all[gap + 2].type, RecordType::Image);
    EXPECT_THAT(all[gap + 2].fields, testing::Contains(std::pair<std::string, BusValue>("BID", 8.0)));
    EXPECT_THAT(prices(), ElementsAre(1.0));
    waitUntil([&] { // the hub's end may still bring a gap of its own
        pumpAll();
        return writer->isDrained();
    });
}

TEST_F(WriterTest, ABatchThatIsClosedLaterIsOfTheTimeAtWhichTheSubscriptionsEnded) {
    begin();
    subscribe();
    push(1, 1);
    writer->endTaking();
    std::string ended;
    appendTime(ended, std::chrono::system_clock::now());
    group.close();
    pumpAll();
    EXPECT_EQ(prices(), upTo(1));
    EXPECT_LE(bus.endOf(kPartition).time, ended);
}

TEST_F(WriterTest, ABatchThatIsTooBigBecomesAGapAndThePresentState) {
    for (const bool isUpdateFirst : {false, true}) {
        SCOPED_TRACE(isUpdateFirst ? "an update comes before the state is written"
                                   : "the state is written at once");
        bus.setStream(kPartition, {});
        begin();
        subscribe();
        pumpAll();
        push(1, 3);
        bus.script({Deed::TooBig});
        if (isUpdateFirst)
            pump();
        else
            pumpAll();
        push(4, 4);
        pumpAll();
        EXPECT_THAT(prices(), ElementsAre(4.0));
        const std::vector<BusRecord> all = records();
        const auto gap = std::find_if(all.begin(), all.end(),
                                      [](const BusRecord& record) { return record.gap.cause == "overflow"; });
        ASSERT_NE(gap, all.end());
        EXPECT_EQ(gap->gap.messages, 3U);
        const auto image = std::find_if(
            gap, all.end(), [](const BusRecord& record) { return record.type == RecordType::Image; });
        ASSERT_NE(image, all.end());
        EXPECT_THAT(image->fields, testing::Contains(std::pair<std::string, BusValue>("BID", 3.0)));
        group.close();
    }
}

TEST_F(WriterTest, NoBatchIsLargerThanTheEngineTakesWhateverIsAskedFor) {
    for (const Payload payload : {Payload::Json, Payload::Body, Payload::Arrow}) {
        SCOPED_TRACE(nameOf(payload));
        bus.setStream(kPartition, {});
        WriterOptions options;
        options.batchBytes = std::size_t{1} << 20;
        options.maxMessage = 8192;
        options.payload = payload;
        const std::uint64_t before = counters->updates;
        begin(options);
        subscribe();
        push(1, 300);
        pumpAll();
        EXPECT_EQ(records(options.maxMessage).back().number, counters->updates - before);
        EXPECT_EQ(prices(), upTo(300));
        group.close();
        EXPECT_EQ(counters->waitingBytes, 0U);
    }
}

TEST_F(WriterTest, LastValuesOfAnotherAreReplacedOnlyByTheWriterOfTheStream) {
    struct Case {
        const char* what;
        std::uint64_t lastEpoch;
        bool hasSuccessor;
        bool isReplaced;
    };
    for (const Case& each : {Case{"of the writer before", kEpoch - 1, false, true},
                             Case{"of the writer after", kEpoch + 1, true, false},
                             Case{"of a stream that is gone", kEpoch + 7, false, true}}) {
        bus.setStream(kPartition, {});
        begin();
        subscribe();
        writer->pump(PartitionWriter::Clock::now()); // the first batch is stored
        bus.setLast(100, "IBM", lastMessageOf({100, "IBM", 9}, each.lastEpoch, "live", FakeValues{}));
        const std::string before = bus.last(100, "IBM").message;
        std::vector<std::string> stream = bus.stream(kPartition);
        if (each.hasSuccessor)
            stream.push_back(messageOf(kEpoch + 1, 1));
        bus.setStream(kPartition, stream);
        pumpAll();
        EXPECT_EQ(bus.last(100, "IBM").message != before, each.isReplaced) << each.what;
        EXPECT_EQ(writer->isFenced(), each.hasSuccessor) << each.what;
        group.close();
    }
}
