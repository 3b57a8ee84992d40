// What readers get of bodies and of Arrow streams is what they get of text, whatever the hub has sent and
// whoever has numbered it.
#include "bridge/FakeBus.h"
#include "bridge/FakeSource.h"
#include "bus/BatchReader.h"
#include "bus/BusError.h"
#include "feed/FeedFixture.h"
#include "reader/BusReader.h"
#include "run/PartitionWriter.h"

#include <tivra_sim/Wire.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

using namespace tivra_bus;
using bridge_test::FakeBus;
using bridge_test::FakeEngine;
using bridge_test::FakeSource;
using testing::HasSubstr;

namespace {

constexpr unsigned kPartition = 0;

void waitUntil(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline);
        std::this_thread::yield();
    }
}

/// A writer of one payload with a stream of its own.
struct Written {
    explicit Written(Payload payload, std::uint64_t epoch = 1) {
        WriterOptions options;
        options.payload = payload;
        writer =
            std::make_shared<PartitionWriter>(kPartition, epoch, StreamEnd{}, bus, options, counters,
                                              std::make_shared<FieldNames>(), std::make_shared<SendBell>());
    }
    /// All that was written up to now.
    std::vector<std::string> stream() {
        while (!writer->isDrained())
            writer->pump(now += std::chrono::minutes(1));
        return bus.stream(kPartition);
    }
    /// Its values, those of a field that comes twice side by side.
    std::vector<BusRecord> records() {
        std::vector<BusRecord> all;
        for (const std::string& message : stream()) {
            BatchReader reader(message);
            for (BusRecord record; reader.next(record);)
                if (record.type != RecordType::State && record.type != RecordType::Gap)
                    all.push_back(record);
        }
        for (BusRecord& record : all) {
            // Each subscription has a tag of its own.
            std::erase_if(record.fields, [](const auto& field) { return field.first == "QUERY.TAG"; });
            std::stable_sort(record.fields.begin(), record.fields.end(),
                             [](const auto& a, const auto& b) { return a.first < b.first; });
        }
        return all;
    }

    FakeBus bus;
    std::shared_ptr<WriterCounters> counters = std::make_shared<WriterCounters>();
    std::shared_ptr<PartitionWriter> writer;
    PartitionWriter::Clock::time_point now = PartitionWriter::Clock::now();
};

class BodyPayload : public FeedTest {
protected:
    void subscribe(Written& written, tivra::Feed& from, const char* symbol = "IBM") {
        const std::uint64_t before = written.counters->updates;
        groups.push_back(from.subscribeAll({{100, symbol}}, written.writer->handlers()));
        waitUntil([&] {
            return written.writer->stateOf(100, symbol) == tivra::DataState::Live &&
                   written.counters->updates > before;
        });
    }
    /// A message of these fields, as the hub sends it.
    void push(std::string_view fields, const std::vector<Written*>& to) {
        std::vector<std::uint64_t> before;
        before.reserve(to.size());
        for (const Written* written : to)
            before.push_back(written->counters->updates);
        hub.sendRaw(tivra_sim::encodeFrame("3=100|4=100|5=IBM|" + std::string(fields)));
        for (std::size_t i = 0; i < to.size(); ++i)
            waitUntil([&] { return to[i]->counters->updates > before[i]; });
    }

    static void expectSame(const std::vector<BusRecord>& read, const std::vector<BusRecord>& wanted) {
        ASSERT_EQ(read.size(), wanted.size());
        for (std::size_t i = 0; i < read.size(); ++i) {
            SCOPED_TRACE(read[i].symbol);
            EXPECT_EQ(read[i].type, wanted[i].type);
            EXPECT_EQ(read[i].source, wanted[i].source);
            EXPECT_EQ(read[i].symbol, wanted[i].symbol);
            EXPECT_EQ(read[i].number, wanted[i].number);
            EXPECT_EQ(read[i].fields, wanted[i].fields);
        }
    }

    std::vector<tivra::SubscriptionGroup> groups;
};

struct Case {
    const char* what;
    std::string_view fields;
    bool isBody = true; ///< the bytes are in the stream
};

class BodyPayloadOf : public BodyPayload, public testing::WithParamInterface<Case> {};

} // namespace

TEST_P(BodyPayloadOf, SaysWhatTextSays) {
    const Case& each = GetParam();
    Written text(Payload::Json), body(Payload::Body), arrow(Payload::Arrow);
    const std::vector<Written*> all{&text, &body, &arrow};
    for (Written* written : all)
        subscribe(*written, feed);
    push("101=1.5", all);
    push(each.fields, all);
    push("101=2.5", all);
    for (Written* other : {&body, &arrow})
        expectSame(other->records(), text.records());
    std::string bodies;
    for (const std::string& message : body.stream())
        bodies += message;
    EXPECT_THAT(bodies, HasSubstr("|5=IBM|101=2.5\n"));
    EXPECT_EQ(bodies.find(each.fields) != std::string::npos, each.isBody);
}

INSTANTIATE_TEST_SUITE_P(
    Messages, BodyPayloadOf,
    testing::Values(
        Case{"Numbers",
             "101=181.52|103=-0|104=-3|102=9223372036854775807|111=0.0000001|112=-9223372036854775808"},
        Case{"Times",
             "203=1381152600.123456|204=1381104000|224=1380585600|226=1356998400|202=-1.5|206=99999999999"},
        Case{"Texts", "105=N|6=caf\xc3\xa9 \"q\"\\\t\xff\n|3123=|3125={\"n\":1}"},
        Case{"FlagsAndWhatTheHeaderTakes", "115=1|24=1|130=X|101=3"},
        Case{"SecondOnesOfTheHeader", "4=7|5=XYZ|3=9|101=3"}, Case{"EmptyValues", "101=|104=|105=|103=2"},
        Case{"AFieldTwice", "101=1|104=2|101=3|104=4"}, Case{"LeadingZeros", "0101=7|000104=8"},
        Case{"AnUnknownNumber", "64000=abc|101=3", false}, Case{"AHighNumber", "70000=abc|101=3", false}),
    [](const auto& test) { return std::string(test.param.what); });

TEST_F(BodyPayload, EachBatchHasTheNumbersOfOneHubWhateverOthersHave) {
    tivra_sim::HubConfig configuration = tivra_sim::HubConfig::realistic();
    for (tivra_sim::DictionaryRow& row : configuration.dictionary)
        if (row.name == "BID" || row.name == "ASK")
            row.number = row.name == "BID" ? 103 : 101;
    const tivra_testkit::StartedHub otherHub(configuration);
    tivra::Feed otherFeed = tivra::Feed::open(optionsFor(otherHub));
    Written text(Payload::Json), body(Payload::Body), arrow(Payload::Arrow);
    const std::vector<Written*> all{&text, &body, &arrow};
    for (Written* written : all) {
        subscribe(*written, feed);
        subscribe(*written, otherFeed, "AIG");
    }
    push("101=1.5|103=2.5", all);
    for (Written* other : {&body, &arrow})
        expectSame(other->records(), text.records());
}

TEST_F(BodyPayload, AStreamOfAllIsReadAsOne) {
    FakeEngine engine;
    Story seen;
    Written text(Payload::Json), body(Payload::Body, 2), arrow(Payload::Arrow, 3);
    std::size_t position = 0;
    for (Written* written : {&text, &body, &arrow}) {
        subscribe(*written, feed);
        push("101=1.5|203=1381152600.5", {written});
        for (const std::string& message : written->stream())
            position = engine.append(message);
    }
    ASSERT_GT(position, 2U);
    tivra::BusReader reader = tivra::BusReader::open({}, std::make_unique<FakeSource>(engine));
    tivra::BusHandlers handlers;
    handlers.onUpdate = [&seen](const tivra::BusUpdate& update) {
        if (update.kind() == tivra::Update::Kind::Update)
            seen.add(std::to_string(update.epoch()) + " " +
                     std::to_string(update.get<double>("BID").value_or(0)) + " " +
                     update.get("TRADE.DATETIME")->as<std::string>());
    };
    handlers.onGap = [&seen](const tivra::Instrument&, const tivra::BusGap& gap) {
        seen.add(nameOf(gap.cause));
    };
    const tivra::BusSubscription subscription = reader.subscribe(100, {"IBM"}, std::move(handlers));
    EXPECT_TRUE(seen.waitFor("3 1.500000 2013-10-07T13:30:00.500000Z"));
    EXPECT_THAT(seen.lines(), testing::ElementsAre("1 1.500000 2013-10-07T13:30:00.500000Z", "takeover",
                                                   "2 1.500000 2013-10-07T13:30:00.500000Z", "takeover",
                                                   "3 1.500000 2013-10-07T13:30:00.500000Z"));
}
