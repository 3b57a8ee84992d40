#include "kvnparse/NumberDecode.h"

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <string_view>

namespace {

using namespace KVNAPI;
using namespace std::string_literals;

/// A page whose end is the end of what may be read: a read past it ends the test.
class GuardedPage {
public:
    GuardedPage()
        : m_size(static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)))
        , m_page(static_cast<char*>(
              ::mmap(nullptr, m_size * 2, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {
        EXPECT_EQ(::mprotect(m_page + m_size, m_size, PROT_NONE), 0);
    }
    ~GuardedPage() { ::munmap(m_page, m_size * 2); }
    GuardedPage(const GuardedPage&) = delete;
    GuardedPage& operator=(const GuardedPage&) = delete;

    /// Places the text so that its last byte is the last one that may be read.
    const char* place(std::string_view text) {
        char* const start = m_page + m_size - text.size();
        text.copy(start, text.size());
        return start;
    }
    [[nodiscard]] const char* end() const { return m_page + m_size; }

private:
    std::size_t m_size;
    char* m_page;
};

class NumberDecode : public testing::Test {
protected:
    /// Reads the number that starts `text` in all forms: up to an end that is the end of memory, and up to
    /// each byte that can stand behind a number. All must agree.
    void expectInteger(const std::string& text, std::size_t consumed, std::uint64_t value) {
        const char* p = m_page.place(text);
        const atou64_ret bounded = _atou64(p, m_page.end());
        ASSERT_EQ(bounded.i, value) << text;
        ASSERT_EQ(static_cast<std::size_t>(bounded.p - p), consumed) << text;
        p = m_page.place(text + '\x03');
        for (const atou64_ret read : {_atou64(p), _atou64(p, m_page.end())}) {
            ASSERT_EQ(read.i, value) << text;
            ASSERT_EQ(static_cast<std::size_t>(read.p - p), consumed) << text;
        }
    }

    /// The same for a decimal number; the value must agree to the last bit.
    void expectDouble(const std::string& text, std::size_t consumed, double value) {
        const auto bits = std::bit_cast<std::uint64_t>(value);
        const char* p = m_page.place(text);
        const atod_ret bounded = _atod(p, m_page.end());
        ASSERT_EQ(std::bit_cast<std::uint64_t>(bounded.d), bits) << text << " gives " << bounded.d;
        ASSERT_EQ(static_cast<std::size_t>(bounded.p - p), consumed) << text;
        p = m_page.place(text + '|');
        for (const atod_ret read : {_atod(p), _atod(p, m_page.end())}) {
            ASSERT_EQ(std::bit_cast<std::uint64_t>(read.d), bits) << text << " gives " << read.d;
            ASSERT_EQ(static_cast<std::size_t>(read.p - p), consumed) << text;
        }
    }

    GuardedPage m_page;
    std::mt19937_64 m_random{7};
};

TEST_F(NumberDecode, IntegersAgreeWithFromCharsUpToTheirWrap) {
    expectInteger("", 0, 0);
    expectInteger("x1", 0, 0);
    expectInteger("0", 1, 0);
    expectInteger("18446744073709551615", 20, UINT64_MAX);
    expectInteger("18446744073709551616", 20, 0);
    expectInteger("000000000000000000000000000042", 30, 42);
    expectInteger("4294967296=x", 10, 4294967296);
    for (int n = 0; n < 100000; ++n) {
        std::string text = std::to_string(m_random() >> m_random() % 64);
        std::uint64_t value = 0;
        std::from_chars(text.data(), text.data() + text.size(), value);
        const std::size_t digits = text.size();
        if (n % 2 == 0)
            text += "|5026=17|2=x";
        expectInteger(text, digits, value);
    }
}

TEST_F(NumberDecode, LongRunsWrapModulo64Bits) {
    std::string text;
    std::uint64_t wrapped = 0;
    for (std::size_t length = 1; length <= 60; ++length) {
        const unsigned digit = static_cast<unsigned>(m_random() % 10);
        text += static_cast<char>('0' + digit);
        wrapped = wrapped * 10 + digit;
        expectInteger(text, length, wrapped);
        expectInteger(text + ".", length, wrapped);
    }
}

TEST_F(NumberDecode, EveryByteThatIsNoDigitEndsANumberAtEveryPlace) {
    const std::string digits = "90817263544536271";
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
