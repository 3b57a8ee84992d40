#include "kvnparse/NumericText.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <random>
#include <string>
#include <string_view>

namespace {

using namespace KVNAPI;
using namespace std::string_literals;

/// What a writer puts into a buffer of the documented size.
template<class Writer>
std::string textOf(const Writer& writer) {
    char buf[kNumberTextMax + 8];
    std::fill(std::begin(buf), std::end(buf), '~');
    const char* const end = writer(buf);
    EXPECT_EQ(std::string_view(buf + kNumberTextMax, 8), "~~~~~~~~");
    return std::string(static_cast<const char*>(buf), end);
}

void expectInteger(std::uint64_t value) {
    const auto asSigned = static_cast<std::int64_t>(value);
    ASSERT_EQ(textOf([=](char* buf) { return u64toa(buf, value); }), std::to_string(value));
    ASSERT_EQ(textOf([=](char* buf) { return i64toa(buf, asSigned); }), std::to_string(asSigned));
    ASSERT_EQ(textOf([=](char* buf) { return i64toa_wp(buf, asSigned, 1); }), std::to_string(asSigned));
}

TEST(NumericText, IntegersOfEveryLengthAndTheirNeighboursAreWritten) {
    for (const std::uint64_t value : {UINT64_MAX, UINT64_MAX / 2, UINT64_MAX / 2 + 1})
        expectInteger(value);
    std::uint64_t power = 1;
    for (int n = 0; n < 20; ++n, power *= 10) {
        for (const std::uint64_t value : {power - 1, power, power + 1, power * 7 + 3, 0 - power})
            expectInteger(value);
    }
    std::mt19937_64 random(1);
    for (int n = 0; n < 100000; ++n)
        expectInteger(random() >> random() % 64);
}

TEST(NumericText, WidthPadsAndNeverCuts) {
    const auto padded = [](std::int64_t value, int width) {
        return textOf([=](char* buf) { return i64toa_wp(buf, value, width); });
    };
    EXPECT_EQ(padded(5, 3), "005");
    EXPECT_EQ(padded(-5, 3), "-005");
    EXPECT_EQ(padded(1234, 2), "1234");
    EXPECT_EQ(padded(0, 0), "");
    EXPECT_EQ(padded(0, 2), "00");
    EXPECT_EQ(padded(7, -3), "7");
    EXPECT_EQ(padded(INT64_MIN, 21), "-009223372036854775808");
}

TEST(NumericText, FixedWidthDropsHigherDigits) {
    std::mt19937 random(2);
    for (unsigned width = 1; width <= 9; ++width) {
        for (const unsigned value :
             {0u, 9u, 1234u, 999999999u, 1000000000u, UINT32_MAX, static_cast<unsigned>(random())}) {
            const std::string digits = "00000000" + std::to_string(value);
            EXPECT_EQ(textOf([=](char* buf) { return uitoa_wl(buf, value, width); }),
                      digits.substr(digits.size() - width));
        }
    }
}

TEST(NumericText, DoublesAreWrittenWithHonestDecimalsAndAsAWhole) {
    const struct {
        double value;
        const char* text;
        const char* whole;
    } rows[] = {{0.0, "0", "0"},
                {-0.0, "0", "0"},
                {0.1, "0.1", "0"},
                {-0.3, "-0.3", "-0"},
                {0.5, "0.5", "1"},
                {1e-9, "0.000000001", "0"},
                {4e-10, "0", "0"},
                {0.9999999999, "1", "1"},
                {-12.25, "-12.25", "-12"},
                {1000000.5, "1000000.5", "1000001"},
                // Either side of the bounds between nine, eight and fewer decimals.
                {999999.999999999, "999999.999999999", "1000000"},
                {999999.9999999995, "1000000", "1000000"},
                {9999999.99999999, "9999999.99999999", "10000000"},
                {9999999999.99999, "9999999999.99999", "10000000000"},
                {10000000000.12349, "10000000000.1235", "10000000000"},
                {9999999999999.99, "9999999999999.99", "10000000000000"},
                {99999999999999.9, "99999999999999.9", "100000000000000"},
                {99999999999999.95, "100000000000000", "100000000000000"},
                {1e15, "1000000000000000", "1000000000000000"},
                {9223372036854775808.0, "9223372036854775808", "9223372036854775808"},
                {-18446744073709549568.0, "-18446744073709549568", "-18446744073709549568"},
                {18446744073709551616.0, "18446744073709551615", "18446744073709551615"},
                {-INFINITY, "-18446744073709551615", "-18446744073709551615"},
                {1e300, "18446744073709551615", "18446744073709551615"},
                {NAN, "0", "0"}};
    for (const auto& row : rows) {
        EXPECT_EQ(textOf([&](char* buf) { return dtoa(buf, row.value); }), row.text);
        EXPECT_EQ(textOf([&](char* buf) { return wholetoa(buf, row.value); }), row.whole);
    }
}

TEST(NumericText, DecimalsOfFifteenDigitsSurviveTheDouble) {
    std::mt19937_64 random(3);
    for (int n = 0; n < 200000; ++n) {
        const auto digits = static_cast<unsigned>(1 + random() % 15);
        const unsigned decimals = static_cast<unsigned>(random() % (std::min(digits, 9u) + 1));
        std::string text = std::to_string(random());
        text = text.substr(text.size() - std::min<std::size_t>(text.size(), digits));
        text.insert(0, decimals + 1, '0');
        text.insert(text.size() - decimals, ".");
        double value = 0;
        std::from_chars(text.data(), text.data() + text.size(), value);
        text.erase(0, std::min(text.find_first_not_of('0'), text.find('.') - 1));
        text.erase(text.find_last_not_of('0') + 1);
        if (text.back() == '.')
            text.pop_back();
        ASSERT_EQ(textOf([=](char* buf) { return dtoa(buf, value); }), text);
    }
}

TEST(NumericText, HexifyStopsSevenBytesShortOfItsBuffer) {
    const auto hexified = [](std::size_t room, std::string_view in) {
        std::string out(room + 1, '~');
        hexifyStr(bufref(out.data(), room), bufref(in.data(), in.size()));
        EXPECT_EQ(out.back(), '~') << "written past the buffer";
        return room == 0 ? ""s : std::string(out.c_str());
    };
    EXPECT_EQ(hexified(64, " ~\x7f\xfe\n"), " ~<0x7F><0xFE><0x0A>");
    EXPECT_EQ(hexified(64, ""), "");
    EXPECT_EQ(hexified(0, "abc"), "");
    EXPECT_EQ(hexified(7, "abc"), "");
    EXPECT_EQ(hexified(8, "abc"), "a");
    EXPECT_EQ(hexified(10, "abcdef"), "abc");
    EXPECT_EQ(hexified(10, "ab\x01z"), "ab<0x01>");
}

} // namespace
