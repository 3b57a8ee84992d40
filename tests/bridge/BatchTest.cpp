#include "bridge/FakeValues.h"
#include "bus/BatchReader.h"
#include "bus/BatchWriter.h"
#include "bus/BusError.h"
#include "bus/FieldsText.h"
#include "bus/JsonText.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <deque>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <string>

using namespace tivra_bus;
using bridge_test::addRecord;
using bridge_test::FakeImage;
using bridge_test::FakeValues;
using bridge_test::lastMessageOf;
using testing::HasSubstr;

namespace {

const std::string kBid = "BID", kName = "NAME", kTime = "TIME", kSize = "BID.SIZE";

FakeValues someValues() {
    return {{{&kBid}, tivra::Value::ofDouble(12)},
            {{&kSize}, tivra::Value::ofInteger(std::numeric_limits<std::int64_t>::min())},
            {{&kName}, tivra::Value::ofText("a \"b\"\\\n\xff")},
            {{&kTime}, tivra::Value::ofTime(1381152600.123456)}};
}

std::string textIn(const SymbolImage& image, const SymbolImage::Entry& entry) {
    return entry.type == tivra::Value::Type::Text ? std::string(image.textOf(entry))
                                                  : std::to_string(entry.content.integer);
}

const char* const kFrom = "2026-11-27T06:00:00.000001Z";

std::string batchOf(const FakeValues& values, Payload payload = Payload::Json) {
    const std::unique_ptr<OpenBatch> open = openBatch(payload, 0);
    OpenBatch& writer = *open;
    addRecord(writer, RecordType::Image, {100, "IBM", 7}, values);
    writer.addState({100, "IBM", 7}, "live", "");
    const BusGap gap{"overflow", kFrom, kFrom, 12, std::nullopt};
    writer.addGap(nullptr, gap);
    return std::string(writer.close({"json", 3, 5, 9, 0, 2, "writer", "now"}).message());
}

/// Its records, each as a text of all that it says; a time that isn't one is nothing to an Arrow stream.
std::vector<std::string> textsOf(std::string_view message) {
    BatchReader reader(message);
    std::vector<std::string> texts;
    for (BusRecord record; reader.next(record);) {
        std::string& text = texts.emplace_back(
            fmt::format("{} {} {} {} {} {} {} {} {} {} {}", nameOf(record.type), record.source, record.symbol,
                        record.number, record.state, record.cause, record.gap.cause, record.gap.from,
                        record.gap.to, record.gap.messages.value_or(99), record.gap.bytes.value_or(99)));
        std::sort(record.fields.begin(), record.fields.end());
        for (const auto& [name, value] : record.fields) {
            const auto textOfValue = [](const auto& content) { return fmt::format("{}", content); };
            text += fmt::format("|{}={}:{}", name, value.index(), std::visit(textOfValue, value));
        }
    }
    return texts;
}

/// Empty for a batch that can be read.
std::string faultOf(const std::string& batch) {
    try {
        return textsOf(batch).empty() ? "nothing" : "";
    } catch (const BatchError& error) {
        return error.what();
    }
}

/// Adds records of all kinds to two batches alike, and sometimes takes the last one out again.
class RandomRecords {
public:
    void addTo(OpenBatch& one, OpenBatch& other) {
        const std::size_t before = other.bytes();
        const std::function<void(OpenBatch&)> add = any();
        add(one);
        add(other);
        if (chance() % 5 != 0)
            return;
        one.removeLast();
        other.removeLast();
        EXPECT_EQ(other.bytes(), before);
    }
    unsigned chance() { return static_cast<unsigned>(m_chance()); }

private:
    std::function<void(OpenBatch&)> any() {
        const RecordKey key{static_cast<int>(chance() % 3), chance() % 9 == 0 ? "caf\xe9" : "IBM", chance()};
        const unsigned kind = chance() % 8;
        if (kind == 0)
            return [key](OpenBatch& batch) { batch.addState(key, "stale", "no \xff"); };
        if (kind == 1) {
            const BusGap gap{"loss", kFrom, chance() % 2 == 0 ? kFrom : "", chance(), std::nullopt};
            return [key, gap, isOfAll = chance() % 2 == 0](OpenBatch& batch) {
                batch.addGap(isOfAll ? nullptr : &key, gap);
            };
        }
        return [key, values = anyValues()](OpenBatch& batch) {
            addRecord(batch, RecordType::Update, key, values);
        };
    }
    FakeValues anyValues() {
        FakeValues values;
        for (const std::string& name : m_names)
            if (chance() % 3 == 0)
                values.push_back({{&name}, anyValue()});
        return values;
    }
    tivra::Value anyValue() {
        switch (chance() % 6) {
        case 0:
            return tivra::Value::ofInteger(std::numeric_limits<std::int64_t>::max() - chance());
        case 1:
            return tivra::Value::ofTime(-1.5 + chance());
        case 2:
            return tivra::Value::ofText(m_texts[chance() % m_texts.size()]);
        default:
            return tivra::Value::ofDouble(chance() / 7.0);
        }
    }

    std::minstd_rand m_chance{7};
    /// Some are those of columns that every batch has, or of columns that others make necessary.
    const std::deque<std::string> m_names{"BID",      "ASK",   "type",  "n", "cause",
                                          "BID:text", "BID[]", "N\xff", "X"};
    const std::vector<std::string> m_texts{"", "N", "caf\xc3\xa9", "\xff|", std::string(40, 'x')};
};

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

TEST(Batch, AsAnArrowStreamItSaysWhatItSaysAsText) {
    RandomRecords random;
    BatchWriter text;
    const std::unique_ptr<OpenBatch> arrow = openBatch(Payload::Arrow, 0);
    const auto expectSame = [&] {
        const BatchHeader header{"", 3, 5, random.chance(), 0, 2, "writer", "now"};
        const std::size_t most = arrow->messageBytes();
        const std::string message(arrow->close(header).message());
        EXPECT_LE(message.size(), most);
        EXPECT_EQ(textsOf(message), textsOf(text.close(header).message()));
        EXPECT_EQ(headerOf(message).batch, header.batch);
        // Where it stands in memory doesn't matter.
        EXPECT_EQ(textsOf(std::string_view(" " + message).substr(1)), textsOf(message));
    };
    for (int batch = 0; batch < 200; ++batch) {
        for (unsigned records = random.chance() % 40; text.count() < records || text.count() == 0;)
            random.addTo(text, *arrow);
        expectSame();
    }
    // The columns of the batch before, whose texts were something else.
    for (const char* const each : {"N", "\xff", "N"}) {
        for (OpenBatch* const batch : {static_cast<OpenBatch*>(&text), arrow.get()})
            addRecord(*batch, RecordType::Update, {1, "IBM", 1}, {{{&kName}, tivra::Value::ofText(each)}});
        expectSame();
    }
}

TEST(Batch, AFieldThatComesTwiceKeepsBothValues) {
    std::string line = R"({"type":"update","source":100,"symbol":"IBM","n":1,"fields":)";
    appendFields(line, FakeValues{{{&kBid}, tivra::Value::ofDouble(1)},
                                  {{&kName}, tivra::Value::ofText("x")},
                                  {{&kBid}, tivra::Value::ofDouble(2)}});
    BatchWriter writer;
    writer.addLine(line + "}\n");
    const ClosedBatch batch = writer.close({});
    BatchReader reader(batch.message());
    BusRecord record;
    ASSERT_TRUE(reader.next(record));
    ASSERT_EQ(record.fields.size(), 3U);
    EXPECT_EQ(record.fields[0], (std::pair<std::string, BusValue>("BID", 1.0)));
    EXPECT_EQ(record.fields[1], (std::pair<std::string, BusValue>("BID", 2.0)));
}

TEST(Batch, NumbersComeBackAsTheyWereAndStayShort) {
    const auto textOf = [](double number) {
        std::string text;
        appendValue(text, tivra::Value::ofDouble(number));
        return text;
    };
    std::vector<double> numbers{-0.0, 0.1 + 0.2, 5e-324,           1e300,  0.00005,   1e11,
                                1e15, 1e22,      99999999999.9999, 2.5e-4, -143.8901, 1.0 / 3};
    std::minstd_rand chance(7);
    for (int i = 0; i < 20'000; ++i)
        numbers.push_back((static_cast<double>(chance()) - 1e9) / std::pow(10.0, chance() % 8));
    for (const double number : numbers) {
        const std::string text = textOf(number);
        EXPECT_EQ(std::bit_cast<std::uint64_t>(std::strtod(text.c_str(), nullptr)),
                  std::bit_cast<std::uint64_t>(number))
            << text;
        EXPECT_NE(text.find_first_of(".e"), std::string::npos) << text;
        EXPECT_LE(text.size(), fmt::format("{}", number).size() + 10) << text;
    }
    EXPECT_EQ(textOf(181.52), "181.52");
    EXPECT_EQ(textOf(-0.25), "-0.25");
    EXPECT_EQ(textOf(12), "12.0");
}

TEST(Batch, TimesOfOneSecondAndOfAnotherAreToldApart) {
    std::string text;
    for (const double time : {1.5, 1.000001, -0.5, 86'399.0, 1.5}) {
        appendValue(text, tivra::Value::ofTime(time));
        text += ' ';
    }
    EXPECT_EQ(text, R"("1970-01-01T00:00:01.500000Z" "1970-01-01T00:00:01.000001Z" )"
                    R"("1969-12-31T23:59:59.500000Z" "1970-01-01T23:59:59.000000Z" )"
                    R"("1970-01-01T00:00:01.500000Z" )");
}

TEST(Batch, AnImageKeepsTheLastOfEachFieldHoweverManyThereAreAndInWhateverOrder) {
    constexpr std::size_t kMost = std::size_t{1} << 20;
    std::deque<std::string> names;
    FakeValues values;
    for (int i = 0; i < 900; ++i) {
        names.push_back(fmt::format("F{}", i));
        values.push_back(
            {{&names.back()}, i % 3 == 0 ? tivra::Value::ofText(names.back()) : tivra::Value::ofInteger(i)});
    }
    std::minstd_rand chance(7);
    for (const std::size_t fields : {std::size_t{5}, std::size_t{64}, std::size_t{65}, values.size()}) {
        const FakeValues first(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(fields));
        FieldNames cache;
        SymbolImage image;
        SymbolImage::Change change;
        image.apply(first, true, kMost, cache, change);
        std::map<std::string, std::string> wanted;
        for (int round = 0; round < 20; ++round) {
            FakeValues some(first);
            std::shuffle(some.begin(), some.end(), chance);
            some.resize(1 + chance() % fields);
            for (auto& [field, value] : some) {
                const auto number = static_cast<std::int64_t>(chance() % 1000);
                // Texts of all lengths, the empty one too, and numbers in their place.
                std::string& text = wanted[field.name()];
                text = number % 2 == 0 ? std::to_string(number)
                                       : std::string(static_cast<std::size_t>(number % 50) / 2, 'x');
                value = number % 2 == 0 ? tivra::Value::ofInteger(number) : tivra::Value::ofText(text);
            }
            image.apply(some, false, kMost, cache, change);
            ASSERT_TRUE(change.isWhole);
            ASSERT_EQ(change.fields.size(), some.size());
            for (std::size_t i = 0; i < some.size(); ++i)
                ASSERT_EQ(image.entries()[change.fields[i]].name->name, some[i].first.name());
        }
        ASSERT_EQ(image.entries().size(), fields);
        for (const SymbolImage::Entry& entry : image.entries()) {
            if (const auto found = wanted.find(entry.name->name); found != wanted.end()) {
                EXPECT_EQ(textIn(image, entry), found->second);
            } else if (entry.type == tivra::Value::Type::Text) {
                EXPECT_EQ(textIn(image, entry), entry.name->name);
            }
        }
        image.apply(FakeValues{}, true, kMost, cache, change);
        EXPECT_TRUE(image.entries().empty());
    }
}

TEST(Batch, AnImageSaysWhenItIsNotTheWholeMessage) {
    const FakeValues twice{{{&kBid}, tivra::Value::ofDouble(1)}, {{&kBid}, tivra::Value::ofDouble(2)}};
    const FakeImage repeated(twice);
    EXPECT_FALSE(repeated.change.isWhole);
    EXPECT_FALSE(repeated.image.isCut());
    const std::string large(1 << 20, 'x');
    const FakeImage cut(FakeValues{{{&kName}, tivra::Value::ofText(large)}});
    EXPECT_FALSE(cut.change.isWhole);
    EXPECT_TRUE(cut.image.isCut());
}

TEST(Batch, EachFaultIsNamedWithItsLine) {
    const std::string good = batchOf(someValues());
    const auto changed = [&good](const std::string& from, const std::string& to) {
        std::string batch = good;
        batch.replace(batch.find(from), from.size(), to);
        return batch;
    };
    std::string many = ":[1";
    for (std::size_t i = 0; i < kMostValues; ++i)
        many += ",1";
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
        {changed(":12.0", many + ']'), "at most 65536 values"},
        {changed("\"BID\"", '"' + std::string(kMostFieldName + 1, 'B') + '"'), "at most 256 bytes"},
        {changed("json", "wire"), "payload"},
        {changed("json", "body"), "line 2: \"BID\""},
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

TEST(Batch, OfBodiesEachFaultIsNamedAndThoseThatAreFieldsOfTheBatchAreRead) {
    struct Case {
        std::string fields, first;
        const char* error; ///< null where the values are right
        bool endsBatch = false;
    };
    const std::string bid = R"({"fields":{"101":["BID","double"]}})";
    const std::string good = "7}\n101=1.5\n";
    const std::vector<Case> cases{
        {bid, good, nullptr},
        {bid, "3}\n\n\n\n\n", "line 4: "},
        {bid, "0}\n\n", "line 4: "},
        {bid, "7}\n102=1.5\n", "line 4: a field isn't among the \"fields\""},
        {bid, "7}\n101=1|5\n", "line 4: "},
        {bid, "7}\n101=\x03|5\n", "line 4: "},
        {bid, "6}\n101=1.5\n", "line 4: 6 bytes and a line end", true},
        {bid, "99}\n101=1.5\n", "line 4: 99 bytes and a line end", true},
        {bid, "262145}\n101=1.5\n", "line 3: \"body\"", true},
        {bid, "-1}\n101=1.5\n", "line 3: \"body\"", true},
        {bid, "18446744073709551615}\n101=1.5\n", "line 3: \"body\"", true},
        {R"({"fields":{"101":["BID","price"]}})", good, "line 2: \"101\"", true},
        {R"({"fields":{"101":["BID","double"],"102":["BID","double"]}})", good, "line 2: \"fields\"", true},
        {R"({"fields":{"-1":["BID","double"]}})", good, "line 2: \"-1\"", true},
        {R"({"fields":{"101":["TOKEN.DEL","text"]}})", good, "line 2: \"fields\"", true},
        {R"({"fields":{"101":[")" + std::string(100, 'N') + R"(","double"]}})", good, "line 2: \"fields\"",
         true}};
    BodyDecoder decoder; // what is wrong in one batch is forgotten in the next
    for (const Case& each : cases) {
        SCOPED_TRACE(each.fields + each.first);
        const std::string record = R"({"type":"update","source":100,"symbol":"IBM","n":1,"body":)";
        std::string batch = headerLine({"body", 0, 1, 1, 2, 0, "writer", "now"});
        for (const std::string& part : {each.fields, std::string("\n"), record, each.first, record, good})
            batch += part;
        std::string error, second;
        try {
            BatchReader reader(batch, decoder);
            BusRecord read;
            try {
                EXPECT_TRUE(reader.next(read));
                EXPECT_EQ(read.fields, (BusFields{{"BID", 1.5}}));
            } catch (const BodyError& fault) {
                error = fault.what();
            }
            EXPECT_TRUE(reader.next(read));
            EXPECT_EQ(read.fields, (BusFields{{"BID", 1.5}}));
            EXPECT_FALSE(reader.next(read));
        } catch (const BatchError& fault) {
            second = fault.what();
        }
        EXPECT_THAT(each.endsBatch ? second : error, HasSubstr(each.error != nullptr ? each.error : ""));
        EXPECT_EQ(error.empty(), each.error == nullptr || each.endsBatch) << error;
        EXPECT_EQ(second.empty(), !each.endsBatch) << second;
        // Nobody who wants none of it looks at its values.
        if (!each.endsBatch) {
            BatchReader reader(batch, decoder);
            BusRecord read;
            EXPECT_FALSE(reader.next(read, [](int, std::string_view) { return false; }));
        }
    }
}

TEST(Batch, LastValuesAreReadWithTheirPlaceInTheStream) {
    const LastValues last = readLastValues(lastMessageOf({100, "BRK.B", 8}, 6, "stale", someValues()));
    EXPECT_EQ(last.symbol, "BRK.B");
    EXPECT_EQ(last.epoch, 6U);
    EXPECT_EQ(last.number, 8U);
    EXPECT_EQ(last.state, "stale");
    EXPECT_EQ(last.fields.size(), 4U);
    EXPECT_THROW((void)readLastValues("{}"), BatchError);
}

TEST(Batch, AnArrowStreamIsASchemaAndItsTablesAndNothingElse) {
    const std::string good = batchOf(someValues(), Payload::Arrow);
    const std::size_t places[] = {
        0, 8 + static_cast<unsigned char>(good[4]) + 256U * static_cast<unsigned char>(good[5]),
        good.size() - 8};
    const std::string schema = good.substr(0, places[1]), end = good.substr(places[2]);
    const std::string table = good.substr(places[1], places[2] - places[1]);
    const auto withRecords = [&](const char* count) {
        std::string changed = schema;
        return changed.replace(changed.find("\"records\":3") + 10, 1, count);
    };
    // What says which texts the numbers of a column stand for, with no content.
    const std::string dictionary("\xff\xff\xff\xff\x28\0\0\0"
                                 "\x10\0\0\0\x0c\0\x0c\0\0\0\x04\0\x08\0\0\0"
                                 "\x0c\0\0\0\x02\0\0\0\x08\0\0\0\x04\0\x04\0"
                                 "\x04\0\0\0\0\0\0\0",
                                 48);
    const std::vector<std::string> once = textsOf(good);
    std::vector<std::string> twice = once;
    twice.insert(twice.end(), once.begin(), once.end());
    EXPECT_EQ(textsOf(withRecords("6") + table + table + end), twice);
    for (const auto& [batch, message] : std::vector<std::pair<std::string, std::string>>{
             {schema + table + table + end, "it has 6 rows, and its header says 3"},
             {schema + end, "it has 0 rows, and its header says 3"},
             {table + end, "it has no schema"},
             {schema + schema + table + end, "a batch was wanted after the schema"},
             {schema + dictionary + table + end, "a batch was wanted after the schema"},
             {schema + table + dictionary + end, "a batch was wanted after the schema"},
             {schema + table, "a message was wanted"},
             {good + good, "bytes are left after its end"}})
        EXPECT_THAT(faultOf(batch), HasSubstr(message));
}

TEST(Batch, OfAnArrowStreamEachFaultIsNamed) {
    const std::string good = batchOf(someValues(), Payload::Arrow);
    const auto changed = [&good](const std::string& from, const std::string& to) {
        std::string batch = good;
        batch.replace(batch.find(from), from.size(), to);
        return batch;
    };
    const std::vector<std::pair<std::string, std::string>> cases{
        {changed("\"tivra\":1", "\"tivra\":2"), "metadata: this is layout 2"},
        {changed("\"epoch\":5", "\"epoch\":x"), "metadata: a JSON object"},
        {changed("\"records\":3", "\"records\":4"), "it has 3 rows, and its header says 4"},
        {changed("symbol", "cymbol"), "column \"symbol\": it is missing"},
        {changed("symbol", "source"), "column \"source\": "},
        {changed("UTC", "CET"), "column \"TIME\": another type"},
        {changed(std::string("tivra\0", 6), std::string("zivra\0", 6)), "no metadata \"tivra\""},
        {changed("imagestategap", "imagostategap"), "row 1: \"type\""},
        {good + "x", "1 bytes are left"},
        {std::string("\xff\xff\xff\xff\0\0\0\0", 8), "it has no schema"}};
    for (const auto& [batch, message] : cases)
        EXPECT_THAT(faultOf(batch), HasSubstr(message));
    for (std::size_t length = 0; length < good.size(); ++length)
        EXPECT_THAT(faultOf(good.substr(0, length)), HasSubstr("a batch")) << length;
    EXPECT_EQ(faultOf(good), "");
    // Whatever a byte becomes, the batch is read or its fault is named.
    for (std::size_t at = 0; at < good.size(); ++at)
        for (const char bits : {'\x01', '\x80', '\xff'}) {
            std::string batch = good;
            batch[at] = static_cast<char>(batch[at] ^ bits);
            EXPECT_THAT(faultOf(batch), testing::AnyOf("", testing::StartsWith("a batch"))) << at;
        }
}
