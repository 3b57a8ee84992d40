#include "kvnparse/NumericText.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>

namespace KVNAPI {
namespace {

constexpr double kTwoPow64 = 18446744073709551616.0;
constexpr unsigned kBillion = 1000000000;

/// The 1000 texts "000" to "999", one behind the other.
constexpr std::array<char, 3000> LowNum = [] {
    std::array<char, 3000> digits{};
    for (std::size_t i = 0; i < 1000; ++i) {
        digits[i * 3] = static_cast<char>('0' + i / 100);
        digits[i * 3 + 1] = static_cast<char>('0' + i / 10 % 10);
        digits[i * 3 + 2] = static_cast<char>('0' + i % 10);
    }
    return digits;
}();

const char* lowDigits(unsigned group) {
    return &LowNum[std::size_t{group} * 3];
}

char* writeThree(char* buf, unsigned group) {
    std::memcpy(buf, lowDigits(group), 3);
    return buf + 3;
}

char* writeNine(char* buf, unsigned value) {
    buf = writeThree(buf, value / 1000000);
    buf = writeThree(buf, value / 1000 % 1000);
    return writeThree(buf, value % 1000);
}

/// The significant digits of a group of three.
char* writeLeading(char* buf, unsigned group) {
    const unsigned count = group >= 100 ? 3 : group >= 10 ? 2 : 1;
    std::memcpy(buf, lowDigits(group) + (3 - count), count);
    return buf + count;
}

std::uint64_t magnitudeOf(std::int64_t value) {
    const auto bits = static_cast<std::uint64_t>(value);
    return value < 0 ? 0 - bits : bits;
}

/// The magnitude plus one half, cut to what 64 bits hold; NaN gives 0.
std::uint64_t roundedMagnitude(double magnitude) {
    if (std::isnan(magnitude))
        return 0;
    const double sum = magnitude + 0.5;
    return sum < kTwoPow64 ? static_cast<std::uint64_t>(sum) : UINT64_MAX;
}

/// Number of decimals that a double below the bound carries within 15 significant digits.
struct DecimalsBelow {
    double bound;
    unsigned decimals;
};

constexpr DecimalsBelow kHonestDecimals[] = {
    {999999.9999999995, 9}, {9999999.999999994, 8}, {99999999.99999996, 7},
    {999999999.9999995, 6}, {9999999999.999994, 5}, {99999999999.99995, 4},
    {999999999999.9995, 3}, {9999999999999.994, 2}, {99999999999999.95, 1},
};

char* writeWithDecimals(char* buf, double magnitude, unsigned decimals) {
    const std::uint64_t power = detail::kDecimalPowers[decimals];
    const auto whole = static_cast<std::uint64_t>(magnitude);
    const auto scaled = static_cast<std::uint64_t>(magnitude * static_cast<double>(power) + 0.5);
    const std::uint64_t frac = scaled - whole * power;
    if (frac >= power)
        return u64toa(buf, whole + 1);
    buf = u64toa(buf, whole);
    if (frac == 0)
        return buf;
    *buf++ = '.';
    buf = uitoa_wl(buf, static_cast<unsigned>(frac), decimals);
    while (buf[-1] == '0')
        --buf;
    return buf;
}

} // namespace

char* u64toa(char* buf, std::uint64_t value) {
    if (value >= kBillion) {
        buf = u64toa(buf, value / kBillion);
        return writeNine(buf, static_cast<unsigned>(value % kBillion));
    }
    const auto narrow = static_cast<unsigned>(value);
    if (narrow < 1000)
        return writeLeading(buf, narrow);
    if (narrow < 1000000) {
        buf = writeLeading(buf, narrow / 1000);
        return writeThree(buf, narrow % 1000);
    }
    buf = writeLeading(buf, narrow / 1000000);
    buf = writeThree(buf, narrow / 1000 % 1000);
    return writeThree(buf, narrow % 1000);
}

char* i64toa(char* buf, std::int64_t value) {
    if (value < 0)
        *buf++ = '-';
    return u64toa(buf, magnitudeOf(value));
}

char* i64toa_wp(char* buf, std::int64_t value, int width) {
    char digits[20];
    char* const digitsEnd = digits + sizeof digits;
    char* first = digitsEnd;
    for (std::uint64_t rest = magnitudeOf(value); rest != 0; rest /= 10)
        *--first = static_cast<char>('0' + rest % 10);
    if (value < 0)
        *buf++ = '-';
    const std::ptrdiff_t zeros = std::max<std::ptrdiff_t>(width - (digitsEnd - first), 0);
    buf = std::fill_n(buf, zeros, '0');
    return std::copy(first, digitsEnd, buf);
}

char* uitoa_wl(char* buf, unsigned value, unsigned width) {
    char nine[9];
    writeNine(nine, value % kBillion);
    const std::size_t count = std::min(width, 9u);
    std::memcpy(buf, nine + (9 - count), count);
    return buf + count;
}

char* wholetoa(char* buf, double value) {
    if (value < 0)
        *buf++ = '-';
    return u64toa(buf, roundedMagnitude(std::fabs(value)));
}

char* dtoa(char* buf, double value) {
    if (value < 0)
        *buf++ = '-';
    const double magnitude = std::fabs(value);
    for (const DecimalsBelow& row : kHonestDecimals) {
        if (magnitude < row.bound)
            return writeWithDecimals(buf, magnitude, row.decimals);
    }
    return u64toa(buf, roundedMagnitude(magnitude));
}

void hexifyStr(bufref out, bufref in) {
    static constexpr char kHexDigits[] = "0123456789ABCDEF";
    static constexpr bufref_len_t kReserve = 7;
    if (out.len == 0)
        return;
    char* to = out.room();
    const char* const stop = out.buf + (out.len > kReserve ? out.len - kReserve : 0);
    for (bufref_len_t i = 0; i < in.len && to < stop; ++i) {
        const char byte = in.buf[i];
        if (byte >= 0x20 && byte <= 0x7E) {
            *to++ = byte;
            continue;
        }
        const auto code = static_cast<unsigned char>(byte);
        for (const char c : {'<', '0', 'x', kHexDigits[code >> 4], kHexDigits[code & 15], '>'})
            *to++ = c;
    }
    *to = '\0';
}

} // namespace KVNAPI
