#include "kvnparse/Denom.h"
#include "kvnparse/Message.h"

#include <tp/te_error.h>

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

namespace {

using namespace KVNAPI;

/// The record of a code, which says so itself.
const Denom& recordOf(int code, Denom::Type type) {
    const Denom* const record = Denom::lookupKVNcode(code);
    EXPECT_EQ(record->kvncode, code);
    EXPECT_EQ(record->type, type);
    return *record;
}

TEST(Denom, RecordsOfTheTablesAgreeWithTheirCodesAndNames) {
    double power = 1;
    for (int n = 0; n < Denom::MAX_Decimals_; ++n, power *= 10) {
        const Denom& d = recordOf(64 + n, Denom::Decimal);
        EXPECT_EQ(&d, Denom::getDecimal(n));
        EXPECT_EQ(d.decimalPrecision, n);
        EXPECT_EQ(d.decimalModulo, power);
        EXPECT_EQ(d.denominator, power);
        EXPECT_EQ(d.name, std::to_string(d.denominator));
    }
    for (int n = 1; n < Denom::MAX_Fractions_; ++n) {
        const Denom& d = recordOf(32 + n, Denom::Fraction);
        EXPECT_EQ(d.denominator, 1 << n);
        EXPECT_EQ(d.decimalPrecision, n);
        EXPECT_EQ(d.name, std::to_string(1 << n));
        // The modulo has room for the denominator's digits.
        EXPECT_GT(d.decimalModulo, (1 << n) - 1);
        EXPECT_LE(d.decimalModulo, 10 << n);
    }
    EXPECT_STREQ(Denom::lookupKVNcode(32)->name, "X");
    for (int n = 1; n < Denom::MAX_Funky_; ++n) {
        const Denom& d = recordOf(128 + n, Denom::Funky);
        EXPECT_EQ(&d, Denom::getFunky(n));
        EXPECT_EQ(d.funkyDDFcode, n);
        EXPECT_EQ(d.denominator, d.funkyBase * d.funkyMultiplier);
        EXPECT_EQ(d.decimalModulo, d.funkyMultiplier == 1 ? 100 : 1000);
        EXPECT_EQ(d.denominator, 1 << d.decimalPrecision);
        EXPECT_EQ(std::string(d.name).substr(0, 3), std::to_string(d.funkyBase) + ".");
    }
    EXPECT_EQ(Denom::getFrac32()->denominator, 32);
    EXPECT_EQ(Denom::getFrac64()->denominator, 64);
    EXPECT_EQ(Denom::getFrac128()->denominator, 128);
    EXPECT_EQ(Denom::getFrac256()->denominator, 256);
}

TEST(Denom, CodesWithoutARecordNeverLeaveTheTables) {
    const Denom* const unknown = Denom::getUnknown();
    const Denom* const unnormalized = Denom::getUnnormalized();
    EXPECT_EQ(Denom::lookupKVNcode(0), unnormalized);
    EXPECT_EQ(Denom::lookupKVNcode(1), unknown);
    EXPECT_EQ(Denom::lookupKVNcode(2), unnormalized);
    EXPECT_EQ(Denom::lookupKVNcode(0x60), Denom::getDecimal(0));
    EXPECT_EQ(Denom::lookupKVNcode(0xE0 + 9), Denom::getDecimal(9));
    EXPECT_EQ(Denom::lookupKVNcode(0xA0 + 8), &Denom::Fractions_[8]);
    for (const int code : {64 + 10, 128 + 6, 32 + 9, 32 + 31, -1, INT_MIN + 0x20, INT_MIN + 0x40,
                           INT_MIN + 0x80, INT_MAX, 0x120, 0x140, 0x180})
        EXPECT_EQ(Denom::lookupKVNcode(code), unknown) << code;
    EXPECT_EQ(Denom::lookupKVNcode(INT_MIN), unnormalized);
    for (const int index : {-1, 10, INT_MAX, INT_MIN})
        EXPECT_EQ(Denom::getDecimal(index), unknown) << index;
    for (const int index : {-1, 6, INT_MAX, INT_MIN})
        EXPECT_EQ(Denom::getFunky(index), unknown) << index;
}

/// The price of a wire integer in quarter steps of a part, or -1 when its digits name none.
int quarterSteps(const Denom& d, int wire) {
    int rest = wire % d.decimalModulo;
    int quarters = 0;
    if (d.funkyMultiplier > 1) {
        const std::string valid = d.funkyMultiplier == 4 ? "0 2 5 7" : "0   5  ";
        const auto place = valid.find(static_cast<char>('0' + rest % 10));
        if (place == std::string::npos)
            return -1;
        quarters = static_cast<int>(place) / 2;
        rest /= 10;
    }
    return rest < d.funkyBase ? (wire / d.decimalModulo * d.funkyBase + rest) * 4 + quarters : -1;
}

TEST(Denom, FunkyIntegersReadAsPartsAndStepsAndGoBack) {
    for (int n = 1; n < Denom::MAX_Funky_; ++n) {
        const Denom& d = *Denom::getFunky(n);
        int refused = 0;
        for (int wire = 0; wire < 5 * d.decimalModulo; ++wire) {
            const int quarters = quarterSteps(d, wire);
            for (const int sign : {1, -1}) {
                double value = sign * wire;
                const int result = d.normalizeValue(&value);
                if (quarters < 0) {
                    ASSERT_EQ(result, -1) << d.name << " " << wire;
                    ASSERT_EQ(value, sign * wire);
                    ++refused;
                    continue;
                }
                ASSERT_EQ(result, 0) << d.name << " " << wire;
                ASSERT_EQ(value, sign * quarters / (4.0 * d.funkyBase)) << d.name << " " << wire;
                ASSERT_EQ(d.unNormalizeValue(value), sign * wire) << d.name;
            }
        }
        EXPECT_GT(refused, 0);
    }
    double value = 99125;
    EXPECT_EQ(Denom::getFunky(3)->normalizeValue(&value), 0);
    EXPECT_EQ(value, 99.390625);
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
            EXPECT_NEAR(value, static_cast<double>(wire) / d.denominator, std::fabs(value) * 1e-15);
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
    DenomOnMessage() {
        m_price.storage = Token::TY_DOUBLE;
        m_price.priceNormalize = 1;
        m_plain.storage = Token::TY_DOUBLE;
        m_message.addPair()->setD(&m_price, 16742);
        m_message.addPair()->setD(&m_plain, 16742);
        m_message.addPair()->setD(&m_price, 200);
        m_message.denomcode = Denom::getUnnormalized();
    }
    [[nodiscard]] std::vector<double> values() const {
        std::vector<double> all;
        for (int i = 0; i < m_message.pairCount(); ++i)
            all.push_back(m_message.pair(i)->d);
        return all;
    }

    Token m_price;
    Token m_plain;
    Message m_message;
};

TEST_F(DenomOnMessage, ConvertsPricesOnlyOnceAndFractionsNone) {
    EXPECT_EQ(Denom::getFrac32()->normalizeDenom(&m_message), 0);
    EXPECT_EQ(m_message.denomcode, Denom::getFrac32());
    EXPECT_EQ(values(), (std::vector<double>{16742, 16742, 200}));
    m_message.denomcode = Denom::getUnnormalized();
    EXPECT_EQ(Denom::getUnknown()->normalizeDenom(&m_message), 0);
    EXPECT_EQ(m_message.denomcode, Denom::getUnnormalized());
    for (const int decimals : {2, 1}) {
        EXPECT_EQ(Denom::getDecimal(decimals)->normalizeDenom(&m_message), 0);
        EXPECT_EQ(m_message.denomcode, Denom::getDecimal(decimals));
        EXPECT_EQ(values(), (std::vector<double>{16742 * 0.01, 16742, 2}));
    }
}

TEST_F(DenomOnMessage, BadFunkyPriceLeavesTheOnesBeforeItConverted) {
    m_message.pair(0)->d = 16716;
    m_message.pair(2)->d = 250;
    m_message.addPair()->setD(&m_price, 100);
    EXPECT_EQ(Denom::getFunky(1)->normalizeDenom(&m_message), -1);
    EXPECT_STREQ(tp::te_geterror(), "Fraction too large on 250 (50 > 32)");
    EXPECT_EQ(values(), (std::vector<double>{167.5, 16742, 250, 100}));
}

} // namespace
