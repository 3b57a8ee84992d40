#include <data/MessageReader.h>

#include <gtest/gtest.h>

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

    /// Stands on the only pair of a message, whose bytes end where the text ends.
    void standOnText(int number, const std::string& text) {
        bytes.assign(text.begin(), text.end());
        message.reset();
        message.addPair()->setS(token(number), bytes.data(), static_cast<long>(bytes.size()));
        reader.setMessage(&message);
        reader.next();
    }
    void standOnDouble(int number, double value) {
        message.reset();
        message.addPair()->setD(token(number), value);
        reader.setMessage(&message);
        reader.next();
    }
    void standOnInteger(int number, int64_t value) {
        message.reset();
        message.addPair()->setI(token(number), value);
        reader.setMessage(&message);
        reader.next();
    }

    MetaTokenMap dictionary;
    KVNAPI::Message message;
    MessageReaderImpl reader;
    std::vector<char> bytes;
};

TEST_F(MessageReaderTest, TextsAreReadAsNumbersWithinTheirBounds) {
    struct Case {
        const char* text;
        int64_t integer;
        double number;
    };
    const Case cases[] = {
        {"", 0, 0.0},
        {"12", 12, 12.0},
        {"12abc", 12, 12.0},
        {"-7", -7, -7.0},
        {"+7", 7, 7.0},
        {"abc", 0, 0.0},
        {" 12", 0, 0.0},
        {"-", 0, 0.0},
        {"+", 0, 0.0},
        {"--1", 0, 0.0},
        {".5", 0, 0.5},
        {"-.5", 0, -0.5},
        {"-.", 0, 0.0},
        {".", 0, 0.0},
        {"12.", 12, 12.0},
        {"-12.25x", -12, -12.25},
        {"1e5", 1, 1.0},
        {"9223372036854775807", kMax, 9223372036854775807.0},
        {"18446744073709551617", 1, 1.0},                      // wraps
        {"1.12345678901234567", 1, 1.12345678901234567},
        {"1.123456789012345678", 1, 0.0}, // 18 decimals
    };
    for (const Case& c : cases) {
        standOnText(30, c.text);
        EXPECT_EQ(reader.getValueAsInteger(), c.integer) << c.text;
        EXPECT_DOUBLE_EQ(reader.getValueAsDouble(), c.number) << c.text;
        EXPECT_EQ(reader.getValueAsString(), c.text);
    }
    standOnText(30, "-9223372036854775808");
    EXPECT_EQ(reader.getValueAsInteger(), kMin);
}

TEST_F(MessageReaderTest, NumbersAreReadAsIntegersWithinTheirLimits) {
    struct Case {
        double value;
        int64_t integer;
        const char* text;
    };
    const double infinity = std::numeric_limits<double>::infinity();
    const Case cases[] = {
        {1.9, 1, "1.9"},
        {-1.9, -1, "-1.9"},
        {0.0, 0, "0"},
        {1e19, kMax, "10000000000000000000"},
        {-1e19, kMin, "-10000000000000000000"},
        {9223372036854775807.0, kMax, "9223372036854775808"},
        {-9223372036854775808.0, kMin, "-9223372036854775808"},
        {std::numeric_limits<double>::quiet_NaN(), 0, "0"},
        {infinity, kMax, "18446744073709551615"},
        {-infinity, kMin, "-18446744073709551615"},
    };
    for (const Case& c : cases) {
        standOnDouble(8, c.value);
        EXPECT_EQ(reader.getValueAsInteger(), c.integer) << c.value;
        EXPECT_EQ(reader.getValueAsString(), c.text);
    }
    standOnInteger(9, kMin);
    EXPECT_EQ(reader.getValueAsInteger(), kMin);
    EXPECT_DOUBLE_EQ(reader.getValueAsDouble(), -9223372036854775808.0);
    EXPECT_EQ(reader.getValueAsString(), "-9223372036854775808");
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
    EXPECT_EQ(reader.getValueAsString(), "1234567890123");
    EXPECT_EQ(reader.getValueAsInteger(), 1234567890123);
    EXPECT_DOUBLE_EQ(reader.getValueAsDouble(), 1234567890123.0);
    EXPECT_EQ(reader.getValueAsDateTime().date().year(), 9999 - 9999); // beyond every calendar
}

TEST_F(MessageReaderTest, EveryValueCanBeReadAsAMoment) {
    const auto expectMoment = [&](const char* what) {
        const tivra::DateTime moment = reader.getValueAsDateTime();
        EXPECT_EQ(moment.date().year(), 2013) << what;
        EXPECT_EQ(moment.date().month(), 10) << what;
        EXPECT_EQ(moment.date().day(), 7) << what;
        EXPECT_EQ(moment.time().hour(), 13) << what;
        EXPECT_FALSE(moment.hasDate()) << what;
    };
    standOnDouble(16, 1381152600.5);
    expectMoment("double");
    EXPECT_EQ(reader.getValueAsDateTime().time().millisecond(), 500);
    standOnInteger(9, 1381152600);
    expectMoment("integer");
    standOnText(30, "1381152600.25");
    expectMoment("text");
    EXPECT_EQ(reader.getValueAsDateTime().time().millisecond(), 250);
}

TEST_F(MessageReaderTest, WalksThePairsAndStopsBehindTheLast) {
    message.addPair()->setI(token(9), 1);
    message.addPair()->setI(token(60), 2);
    message.addPair()->setI(token(9), 3);
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
        EXPECT_EQ(reader.getValueAsString(), "");
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
