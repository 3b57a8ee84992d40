#include "bridge/FakeValues.h"
#include "bus/BatchReader.h"
#include "bus/BatchWriter.h"
#include "bus/BusError.h"

#include <gmock/gmock.h>

#include <limits>
#include <string>

using namespace tivra_bus;
using bridge_test::FakeValues;
using testing::HasSubstr;

namespace {

const std::string kBid = "BID", kName = "NAME", kTime = "TIME", kSize = "BID.SIZE";

FakeValues someValues() {
    return {{{&kBid}, tivra::Value::ofDouble(12)},
            {{&kSize}, tivra::Value::ofInteger(std::numeric_limits<std::int64_t>::min())},
            {{&kName}, tivra::Value::ofText("a \"b\"\\\n\xff")},
            {{&kTime}, tivra::Value::ofTime(1381152600.123456)}};
}

std::string batchOf(const FakeValues& values) {
    BatchWriter writer;
    writer.add(RecordType::Image, {100, "IBM", 7}, values);
    writer.addState({100, "IBM", 7}, "live", "");
    const BusGap gap{"overflow", "a", "b", 12, std::nullopt};
    writer.addGap(nullptr, gap);
    return std::string(writer.close({"json", 3, 5, 9, 0, 2, "now"}).message());
}

} // namespace

TEST(Batch, WhatIsWrittenIsReadWithItsTypes) {
    const std::string batch = batchOf(someValues());
    BatchReader reader(batch);
    EXPECT_EQ(reader.header().epoch, 5U);
    EXPECT_EQ(reader.header().batch, 9U);
    BusRecord record;
    ASSERT_TRUE(reader.next(record));
    EXPECT_EQ(record.symbol, "IBM");
    EXPECT_EQ(record.number, 7U);
    ASSERT_EQ(record.fields.size(), 4U);
    EXPECT_EQ(record.fields[0].second, BusValue(12.0));
    EXPECT_EQ(record.fields[1].second, BusValue(std::numeric_limits<std::int64_t>::min()));
    EXPECT_EQ(record.fields[2].second, BusValue(std::string("a \"b\"\\\n\xef\xbf\xbd")));
    EXPECT_EQ(record.fields[3].second, BusValue(std::string("2013-10-07T13:30:00.123456Z")));
    ASSERT_TRUE(reader.next(record));
    EXPECT_EQ(record.state, "live");
    ASSERT_TRUE(reader.next(record));
    EXPECT_EQ(record.symbol, "");
    EXPECT_EQ(record.gap.messages, 12U);
    EXPECT_FALSE(record.gap.bytes);
    EXPECT_FALSE(reader.next(record));
}

TEST(Batch, AFieldThatComesTwiceKeepsBothValues) {
    const std::string batch = batchOf({{{&kBid}, tivra::Value::ofDouble(1)},
                                       {{&kName}, tivra::Value::ofText("x")},
                                       {{&kBid}, tivra::Value::ofDouble(2)}});
    BatchReader reader(batch);
    BusRecord record;
    ASSERT_TRUE(reader.next(record));
    ASSERT_EQ(record.fields.size(), 3U);
    EXPECT_EQ(record.fields[0], (std::pair<std::string, BusValue>("BID", 1.0)));
    EXPECT_EQ(record.fields[1], (std::pair<std::string, BusValue>("BID", 2.0)));
}

TEST(Batch, EachFaultIsNamedWithItsLine) {
    const std::string good = batchOf(someValues());
    const auto changed = [&good](const std::string& from, const std::string& to) {
        std::string batch = good;
        batch.replace(batch.find(from), from.size(), to);
        return batch;
    };
    const std::vector<std::pair<std::string, std::string>> cases{
        {"", "first line"},
        {"x\n", "line 1: a JSON object"},
        {changed("\"tivra\":1", "\"tivra\":2"), "layout 2"},
        {changed("\"epoch\":5", "\"epoch\":-5"), "\"epoch\""},
        {changed("\"epoch\":5", "\"epoch\":18446744073709551615"), "\"epoch\""},
        {changed("\"records\":3", "\"records\":4"), "line 5: it ends"},
        {changed("\"records\":3", "\"records\":2"), "are left"},
        {changed("image", "imago"), "line 2: \"type\""},
        {changed("\"n\":7", "\"m\":7"), "\"n\""},
        {changed(":12.0", ":{}"), "\"BID\""},
        {changed("json", "body"), "payload"},
        {good.substr(0, good.size() - 1), "line 4"}};
    for (const auto& [batch, message] : cases) {
        try {
            BatchReader reader(batch);
            BusRecord record;
            while (reader.next(record)) {
            }
            ADD_FAILURE() << "read: " << message;
        } catch (const BatchError& error) {
            EXPECT_THAT(error.what(), HasSubstr(message));
        }
    }
}

TEST(Batch, LastValuesAreReadWithTheirPlaceInTheStream) {
    const LastValues last = readLastValues(lastMessage({100, "BRK.B", 8}, 6, "stale", "now", someValues()));
    EXPECT_EQ(last.symbol, "BRK.B");
    EXPECT_EQ(last.epoch, 6U);
    EXPECT_EQ(last.number, 8U);
    EXPECT_EQ(last.state, "stale");
    EXPECT_EQ(last.fields.size(), 4U);
    EXPECT_THROW((void)readLastValues("{}"), BatchError);
}
