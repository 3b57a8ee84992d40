#include "kvnparse/Denom.h"
#include "kvnparse/Message.h"

#include <tp/te_error.h>

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <vector>

namespace {

using namespace KVNAPI;

TEST(Denom, CodesLeadToTheirRecordsAndNeverOutOfTheTables) {
    const Denom* const unknown = Denom::getUnknown();
    const Denom* const unnormalized = Denom::getUnnormalized();
    for (int n = 0; n < 10; ++n)
        EXPECT_EQ(Denom::lookupKVNcode(64 + n), Denom::getDecimal(n));
    for (int n = 0; n < 6; ++n)
        EXPECT_EQ(Denom::lookupKVNcode(128 + n), Denom::getFunky(n));
    for (int n = 0; n < 9; ++n)
        EXPECT_EQ(Denom::lookupKVNcode(32 + n)->denominator, 1 << n);
    EXPECT_EQ(Denom::lookupKVNcode(32 + 5), Denom::getFrac32());
    EXPECT_EQ(Denom::lookupKVNcode(32 + 6), Denom::getFrac64());
    EXPECT_EQ(Denom::lookupKVNcode(32 + 7), Denom::getFrac128());
    EXPECT_EQ(Denom::lookupKVNcode(0xA0 + 8), Denom::getFrac256());
    EXPECT_EQ(Denom::lookupKVNcode(0x60), Denom::getDecimal(0));
    EXPECT_EQ(Denom::lookupKVNcode(0xE0 + 9), Denom::getDecimal(9));
    for (const int code : {0, 2, INT_MIN})
        EXPECT_EQ(Denom::lookupKVNcode(code), unnormalized) << code;
    for (const int code : {1, 64 + 10, 128 + 6, 32 + 9, 32 + 31, -1, INT_MIN + 0x20, INT_MIN + 0x40,
                           INT_MIN + 0x80, INT_MAX, 0x120, 0x140, 0x180})
        EXPECT_EQ(Denom::lookupKVNcode(code), unknown) << code;
    for (const int index : {-1, INT_MAX, INT_MIN}) {
        EXPECT_EQ(Denom::getDecimal(index), unknown) << index;
        EXPECT_EQ(Denom::getFunky(index), unknown) << index;
    }
}

TEST(Denom, FunkyIntegersReadAsPartsAndStepsAndGoBack) {
    const int steps[] = {32, 64, 128, 64, 128}; // in a whole
    for (int n = 1; n < Denom::MAX_Funky_; ++n) {
        const Denom& d = *Denom::getFunky(n);
        int valid = 0;
        for (int wire = 5 * d.decimalModulo; wire < 6 * d.decimalModulo; ++wire) {
            double value = -wire;
            if (d.normalizeValue(&value) != 0)
                continue;
            EXPECT_EQ(value, -5 - valid / static_cast<double>(steps[n - 1])) << d.name;
            EXPECT_EQ(d.unNormalizeValue(value), -wire) << d.name;
            ++valid;
        }
        EXPECT_EQ(valid, steps[n - 1]) << d.name;
    }
    double value = 99125;
    EXPECT_EQ(Denom::getFunky(3)->normalizeValue(&value), 0);
    EXPECT_EQ(value, 99.390625);
    EXPECT_EQ(Denom::getFunky(3)->unNormalizeValue(value), 99125);
}

TEST(Denom, ARefusedPriceStaysAndSaysWhy) {
    const struct {
        int funky;
        double value;
        const char* text;
    } rows[] = {{3, 99123, "Invalid fractional fraction 3 on 99123"},
                {2, -99122, "Invalid fractional fraction 2 on -99122"},
                {1, 140, "Fraction too large on 140 (40 > 32)"},
                {1, 132, "Fraction too large on 132 (32 > 32)"},
                {0, 5, "Invalid fractional fraction 0 on 5"},
                {1, 18446744073709551616.0, "Invalid fractional fraction 0 on 18446744073709551616"},
                {1, NAN, "Invalid fractional fraction 0 on nan"}};
    for (const auto& row : rows) {
        double value = row.value;
        EXPECT_EQ(Denom::getFunky(row.funky)->normalizeValue(&value), -1);
        EXPECT_STREQ(tp::te_geterror(), row.text);
        EXPECT_TRUE(value == row.value || std::isnan(value));
    }
}

TEST(Denom, DecimalsScaleBothWays) {
    for (int n = 0; n < Denom::MAX_Decimals_; ++n) {
        const Denom& d = *Denom::getDecimal(n);
        for (const std::int64_t wire : {0L, 1L, -1L, 7L, 123456789L, -987654321987L}) {
            double value = static_cast<double>(wire);
            EXPECT_EQ(d.normalizeValue(&value), 0);
            EXPECT_NEAR(value, static_cast<double>(wire) / std::pow(10.0, n), std::fabs(value) * 1e-15);
            EXPECT_EQ(d.unNormalizeValue(value), wire) << d.name;
        }
    }
    EXPECT_EQ(Denom::getDecimal(2)->unNormalizeValue(1.006), 101);
    EXPECT_EQ(Denom::getDecimal(2)->unNormalizeValue(-1.006), -101);
}

TEST(Denom, WayBackClampsWhatAnInt64CannotHold) {
    for (const int code : {0, 1, 32, 64, 73, 128}) {
        const Denom& d = *Denom::lookupKVNcode(code);
        EXPECT_EQ(d.unNormalizeValue(INFINITY), INT64_MAX) << code;
        EXPECT_EQ(d.unNormalizeValue(-1e300), INT64_MIN) << code;
        EXPECT_EQ(d.unNormalizeValue(NAN), 0) << code;
    }
    EXPECT_EQ(Denom::getUnknown()->unNormalizeValue(-12.9), -12);
    EXPECT_EQ(Denom::getFunky(0)->unNormalizeValue(5.9), 5);
    EXPECT_EQ(Denom::getFunky(1)->unNormalizeValue(NAN), 0);
    // A fraction that rounds up to a whole carries into it.
    EXPECT_EQ(Denom::getFunky(1)->unNormalizeValue(7.999), 800);
    EXPECT_EQ(Denom::getFunky(1)->unNormalizeValue(9007199254740993.0), 900719925474099200);
    (void)Denom::getFunky(3)->unNormalizeValue(INFINITY);
    (void)Denom::getFunky(3)->unNormalizeValue(9007199254740991.0);
}

class DenomOnMessage : public testing::Test {
protected:
    /// The values of a message, each second one no price, after their conversion.
    std::vector<double> converted(const Denom& denom, std::vector<double> values, int expected = 0) {
        price.storage = plain.storage = Token::TY_DOUBLE;
        price.priceNormalize = 1;
        message.reset();
        message.denomcode = before;
        for (const double value : values)
            message.addPair()->setD(message.pairCount() % 2 == 1 ? &price : &plain, value);
        EXPECT_EQ(denom.normalizeDenom(&message), expected);
        for (int i = 0; i < message.pairCount(); ++i)
            values[static_cast<std::size_t>(i)] = message.pair(i)->d;
        return values;
    }

    Token price, plain;
    Message message;
    const Denom* before = Denom::getUnnormalized();
};

using Values = std::vector<double>;

TEST_F(DenomOnMessage, ConvertsPricesOnlyOnceAndFractionsNone) {
    const Values wire{16742, 16742, 200};
    EXPECT_EQ(converted(*Denom::getFrac32(), wire), wire);
    EXPECT_EQ(message.denomcode, Denom::getFrac32());
    EXPECT_EQ(converted(*Denom::getUnknown(), wire), wire);
    EXPECT_EQ(message.denomcode, before);
    EXPECT_EQ(converted(*Denom::getDecimal(2), wire), (Values{16742 * 0.01, 16742, 2}));
    EXPECT_EQ(message.denomcode, Denom::getDecimal(2));
    before = message.denomcode;
    EXPECT_EQ(converted(*Denom::getDecimal(1), wire), wire);
    EXPECT_EQ(message.denomcode, Denom::getDecimal(1));
}

TEST_F(DenomOnMessage, BadFunkyPriceLeavesTheOnesBeforeItConverted) {
    EXPECT_EQ(converted(*Denom::getFunky(1), {16716, 16742, 250, 100, 100}, -1),
              (Values{167.5, 16742, 250, 100, 100}));
    EXPECT_STREQ(tp::te_geterror(), "Fraction too large on 250 (50 > 32)");
}

} // namespace
