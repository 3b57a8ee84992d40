#include <data/MessageReader.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "ReadHandlerFakes.h"
#include "receive/MessageReaderImpl.h"
#include "receive/PairValue.h"

namespace tivra_internal {
namespace {

constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
constexpr int64_t kMin = std::numeric_limits<int64_t>::min();

class MessageReaderTest : public testing::Test {
protected:
    MessageReaderTest() {
        loadTestDictionary(dictionary);
        reader.setDicMap(&dictionary);
    }
    KVNAPI::Token* token(int number) const { return dictionary.lookupTokenViaNum(number); }

    /// Stands on the only pair of a message, which `fill` has set.
    template<class Fill>
    void standOn(Fill fill) {
        message.reset();
        fill(*message.addPair());
        reader.setMessage(&message);
        reader.next();
    }
    /// A text whose bytes end where it ends.
    void standOnText(int number, const std::string& text) {
        bytes.assign(text.begin(), text.end());
        standOn([&](auto& pair) { pair.setS(token(number), bytes.data(), static_cast<long>(bytes.size())); });
    }
    void standOnDouble(int number, double value) {
        standOn([&](auto& pair) { pair.setD(token(number), value); });
    }
    void standOnInteger(int number, int64_t value) {
        standOn([&](auto& pair) { pair.setI(token(number), value); });
    }

    MetaTokenMap dictionary;
    KVNAPI::Message message;
    MessageReaderImpl reader;
    std::vector<char> bytes;
};

TEST_F(MessageReaderTest, TextsAreReadAsNumbersWithinTheirBounds) {
    const struct {
        const char* text;
        int64_t integer;
        double number;
    } cases[] = {{"", 0, 0},
                 {"12abc", 12, 12},
                 {"-7", -7, -7},
                 {"+7", 7, 7},
                 {"-", 0, 0},
                 {"--1", 0, 0},
                 {"-12.25x", -12, -12.25},
                 {"9223372036854775807", kMax, 9223372036854775807.0}};
    for (const auto& c : cases) {
        standOnText(30, c.text);
        EXPECT_EQ(reader.getValueAsInteger(), c.integer) << c.text;
        EXPECT_DOUBLE_EQ(reader.getValueAsDouble(), c.number) << c.text;
        EXPECT_EQ(reader.getValueAsStringView(), c.text);
    }
    standOnText(30, "-9223372036854775808");
    EXPECT_EQ(reader.getValueAsInteger(), kMin);
}

TEST_F(MessageReaderTest, NumbersAreReadAsIntegersWithinTheirLimits) {
    const struct {
        double value;
        int64_t integer;
    } cases[] = {{1.9, 1},
                 {-1.9, -1},
                 {1e19, kMax},
                 {-1e19, kMin},
                 {9223372036854775807.0, kMax},
                 {-9223372036854775808.0, kMin},
                 {NAN, 0},
                 {INFINITY, kMax},
                 {-INFINITY, kMin}};
    for (const auto& c : cases) {
        standOnDouble(8, c.value);
        EXPECT_EQ(reader.getValueAsInteger(), c.integer) << c.value;
    }
    standOnDouble(8, -1.9);
    EXPECT_EQ(reader.getValueAsStringView(), "-1.9");
    standOnInteger(9, kMin);
    EXPECT_EQ(reader.getValueAsInteger(), kMin);
    EXPECT_DOUBLE_EQ(reader.getValueAsDouble(), -9223372036854775808.0);
    EXPECT_EQ(reader.getValueAsStringView(), "-9223372036854775808");
}

TEST_F(MessageReaderTest, TheStorageOfATokenDecidesWhatIsReadNotItsTypeWord) {
    struct Case {
        int number;
        tivra::ValueTypes type;
    };
    const Case cases[] = {{5002, tivra::INT64},  {9, tivra::INT64},     {8, tivra::DOUBLE},
                          {30, tivra::STRING},   {16, tivra::DATETIME}, {17, tivra::DATETIME},
                          {18, tivra::DATETIME}, {19, tivra::DATETIME}, {60, tivra::STRING}};
    for (const Case& c : cases) {
        standOnInteger(c.number, 0);
        EXPECT_EQ(reader.getValueType(), c.type) << c.number;
    }
    // Its type word is unknown, so it is a string that is held as an integer.
    standOnInteger(60, 1234567890123);
    EXPECT_EQ(reader.getValueAsStringView(), "1234567890123");
    EXPECT_EQ(reader.getValueAsInteger(), 1234567890123);
    EXPECT_DOUBLE_EQ(reader.getValueAsDouble(), 1234567890123.0);
    EXPECT_EQ(reader.getValueAsDateTime().date().year(), 0) << "beyond every calendar";
}

TEST_F(MessageReaderTest, EveryValueCanBeReadAsAMoment) {
    const auto expectMoment = [&](int milliseconds) {
        const tivra::DateTime moment = reader.getValueAsDateTime();
        EXPECT_EQ(moment.date().year() * 10000 + moment.date().month() * 100 + moment.date().day(), 20131007);
        EXPECT_EQ(moment.time().hour(), 13);
        EXPECT_EQ(moment.time().millisecond(), milliseconds);
        EXPECT_FALSE(moment.hasDate());
    };
    standOnDouble(16, 1381152600.5);
    expectMoment(500);
    standOnInteger(9, 1381152600);
    expectMoment(0);
    standOnText(30, "1381152600.25");
    expectMoment(250);
}

TEST_F(MessageReaderTest, WalksThePairsAndStopsAfterTheLast) {
    for (const int number : {9, 60, 9})
        message.addPair()->setI(token(number), message.pairCount());
    reader.setMessage(&message);
    EXPECT_EQ(reader.getTokenNumber(), -1);
    EXPECT_EQ(reader.peek(), 9);
    EXPECT_EQ(reader.next(), 9);
    EXPECT_EQ(reader.getTokenName(), "TRADE.SIZE");
    EXPECT_EQ(reader.next(), 60);
    EXPECT_EQ(reader.next(), 9);
    EXPECT_EQ(reader.getValueAsInteger(), 3);
    EXPECT_EQ(reader.peek(), tivra::MessageReader::END_OF_MESSAGE);
    EXPECT_EQ(reader.getTokenNumber(), 9);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(reader.next(), tivra::MessageReader::END_OF_MESSAGE);
        EXPECT_EQ(reader.peek(), tivra::MessageReader::END_OF_MESSAGE);
    }
    EXPECT_EQ(reader.getTokenNumber(), -1);

    // find goes to the first of its kind and leaves the position alone when there is none.
    EXPECT_TRUE(reader.find(9));
    EXPECT_EQ(reader.getValueAsInteger(), 1);
    EXPECT_FALSE(reader.find(8));
    EXPECT_FALSE(reader.find(77777));
    EXPECT_EQ(reader.getValueAsInteger(), 1);
    EXPECT_EQ(reader.next(), 60);
}

TEST_F(MessageReaderTest, OffAPairEveryAnswerIsASentinel) {
    message.addPair()->setI(token(9), 1);
    const auto expectSentinels = [&] {
        EXPECT_EQ(reader.getTokenNumber(), -1);
        EXPECT_EQ(reader.getTokenName(), "UNKNOWN");
        EXPECT_EQ(reader.getValueType(), tivra::UNKNOWN);
        EXPECT_EQ(reader.getValueAsInteger(), -1);
        EXPECT_EQ(reader.getValueAsDouble(), -1.0);
        EXPECT_EQ(reader.getValueAsStringView(), "");
        EXPECT_EQ(reader.getValueAsDateTime().date().year(), 1970);
    };
    expectSentinels();
    EXPECT_EQ(reader.next(), -1);
    EXPECT_FALSE(reader.find(9));
    reader.setMessage(&message);
    expectSentinels();
    reader.next();
    reader.next();
    expectSentinels();
    // A pair that was taken out from under the reader is gone.
    EXPECT_TRUE(reader.find(9));
    message.popPair();
    expectSentinels();
}

} // namespace
} // namespace tivra_internal
