#include "kvnparse/NumberDecode.h"

#include "ParserTestKit.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdlib>
#include <random>
#include <string>
#include <string_view>

namespace {

using namespace KVNAPI;
using namespace kvnparse_test;

class NumberDecode : public testing::Test {
protected:
    void expectInteger(const std::string& text, std::size_t consumed, std::uint64_t value) {
        expectRead(text, '\x03', consumed, value, [](auto... range) { return _atou64(range...); });
    }
    /// The value must agree to the last bit.
    void expectDouble(const std::string& text, std::size_t consumed, double value) {
        expectRead(text, '|', consumed, value, [](auto... range) { return _atod(range...); });
    }

    std::mt19937_64 m_random{7};

private:
    /// Reads the number that starts `text` in all forms: up to an end that is the end of memory, and up to a
    /// byte that can stand behind a number. All must agree.
    template<class Value, class Reader>
    void expectRead(const std::string& text, char behind, std::size_t consumed, Value value, Reader read) {
        const auto expectSame = [&](const char* start, auto result) {
            const auto& [end, got] = result;
            ASSERT_EQ(std::bit_cast<std::uint64_t>(got), std::bit_cast<std::uint64_t>(value)) << text;
            ASSERT_EQ(static_cast<std::size_t>(end - start), consumed) << text;
        };
        bufref bytes = m_memory.place(text, GuardedBytes::END_AT_GUARD);
        expectSame(bytes.buf, read(bytes.buf, bytes.end()));
        bytes = m_memory.place(text + behind, GuardedBytes::END_AT_GUARD);
        expectSame(bytes.buf, read(bytes.buf));
        expectSame(bytes.buf, read(bytes.buf, bytes.end()));
    }

    GuardedBytes m_memory{1};
};

TEST_F(NumberDecode, IntegersAreReadUpToTheirWrap) {
    expectInteger("", 0, 0);
    expectInteger("x1", 0, 0);
    expectInteger("0", 1, 0);
    expectInteger("18446744073709551615", 20, UINT64_MAX);
    expectInteger("18446744073709551616", 20, 0);
    expectInteger("000000000000000000000000000042", 30, 42);
    expectInteger("4294967296=x", 10, 4294967296);
    for (int n = 0; n < 100000; ++n) {
        const std::uint64_t value = m_random() >> m_random() % 64;
        const std::string text = std::to_string(value);
        expectInteger(n % 2 == 0 ? text : text + "|5026=17|2=x", text.size(), value);
    }
}

TEST_F(NumberDecode, EveryByteThatIsNoDigitEndsANumberAtEveryPlace) {
    const std::string digits = "908172635445362719998887776665554443332221110009"; // these wrap, too
    for (unsigned byte = 0; byte < 256; ++byte) {
        const char c = static_cast<char>(byte);
        if (c >= '0' && c <= '9')
            continue;
        std::uint64_t value = 0;
        for (std::size_t length = 0; length < digits.size(); ++length) {
            // Digits and bytes of every kind stand behind the end as well.
            for (const char* behind : {"", "99999999", "\xff\xff\xff\xff\xff\xff\xff\xff", "::::////"})
                expectInteger(digits.substr(0, length) + c + behind, length, value);
            value = value * 10 + static_cast<unsigned>(digits[length] - '0');
        }
    }
}

TEST_F(NumberDecode, DecimalsReadAsWholePlusFraction) {
    expectDouble("12.", 3, 12.0);
    expectDouble(".", 1, 0.0);
    expectDouble("-.5", 3, -0.5);
    expectDouble("+.25", 4, 0.25);
    expectDouble("-12.", 4, -12.0);
    expectDouble("-0", 2, -0.0);
    expectDouble("1.5.5", 3, 1.5);
    expectDouble("1.5e7", 3, 1.5);
    expectDouble("0.1", 3, 0.1);
    for (const char* text : {"", "x", "-", "+", "-x", "--5", "-.", "+.x", "e5", "nan"})
        expectDouble(text, 0, 0.0);
    expectDouble("1.12345678901234567", 19, 1 + 12345678901234567.0 * 1e-17);
    expectDouble("1.00000000000000000", 19, 1.0);
    expectDouble("1.123456789012345678", 0, 0.0);
    expectDouble("-1.000000000000000000", 0, 0.0);
    // A whole part beyond 63 bits is turned into a double as a signed number.
    expectDouble("18446744073709551615", 20, -1.0);
}

TEST_F(NumberDecode, DecimalsAreThatSumToTheLastBitAndNearTheExactValue) {
    for (int n = 0; n < 100000; ++n) {
        const std::string whole = std::to_string(m_random() >> (4 + m_random() % 60));
        const std::size_t count = 1 + m_random() % 17;
        std::string fraction = std::to_string(m_random()) + "0123456789";
        fraction = fraction.substr(m_random() % 10, count);
        const std::string power = "1e-" + std::to_string(fraction.size());
        const double scaled = static_cast<double>(std::strtoll(fraction.c_str(), nullptr, 10)) *
                              std::strtod(power.c_str(), nullptr);
        const double value = static_cast<double>(std::strtoll(whole.c_str(), nullptr, 10)) + scaled;
        const std::string text = "-" + whole + "." + fraction;
        expectDouble(text, text.size(), -value);
        const double exact = std::strtod(text.c_str(), nullptr);
        ASSERT_NEAR(-value, exact, std::fabs(exact) * 4e-16) << text;
    }
}

} // namespace
