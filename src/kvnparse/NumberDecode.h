#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace KVNAPI {

/// Result of reading an unsigned number: the first byte not consumed, and the value.
struct atou64_ret {
    const char* p;
    std::uint64_t i;
};

/// Result of reading a signed number: the first byte not consumed, and the value.
struct SignedNumber {
    const char* p;
    std::int64_t i;
};

/// Result of reading a decimal number: the first byte not consumed, and the value.
struct atod_ret {
    const char* p;
    double d;
};

// Readers of decimal text. They fail by not moving the position. The forms without `end` rely on a byte
// behind the number that is no digit, such as the end byte of a frame; the forms with `end` never look at
// `*end` or past it, which lets them read eight digits at a time where there is room.

/// Reads decimal digits; the value wraps modulo 2^64. Without a digit the value is 0 and `p` unchanged.
[[nodiscard]] atou64_ret _atou64(const char* p) noexcept;
[[nodiscard]] atou64_ret _atou64(const char* p, const char* end) noexcept;

/// Reads an optional sign and decimal digits; the value wraps likewise. Without a digit the value is 0 and
/// `p` unchanged.
[[nodiscard]] SignedNumber _atoi64(const char* p, const char* end) noexcept;

/// Reads an optional sign, digits, an optional "." and up to 17 fraction digits. The value is the whole part
/// plus the fraction digits times a power of ten, in double arithmetic: not a correctly rounded conversion,
/// and the same on every machine.
[[nodiscard]] atod_ret _atod(const char* p) noexcept;
[[nodiscard]] atod_ret _atod(const char* p, const char* end) noexcept;

namespace detail {

inline constexpr double kDecimalFractions[] = {1.0,  1e-1,  1e-2,  1e-3,  1e-4,  1e-5,  1e-6,  1e-7,  1e-8,
                                               1e-9, 1e-10, 1e-11, 1e-12, 1e-13, 1e-14, 1e-15, 1e-16, 1e-17};
inline constexpr unsigned kMaxFractionDigits = 17;
inline constexpr std::uint64_t kDecimalPowers[] = {1ULL,
                                                   10ULL,
                                                   100ULL,
                                                   1000ULL,
                                                   10000ULL,
                                                   100000ULL,
                                                   1000000ULL,
                                                   10000000ULL,
                                                   100000000ULL,
                                                   1000000000ULL,
                                                   10000000000ULL,
                                                   100000000000ULL,
                                                   1000000000000ULL,
                                                   10000000000000ULL,
                                                   100000000000000ULL,
                                                   1000000000000000ULL,
                                                   10000000000000000ULL,
                                                   100000000000000000ULL};

[[nodiscard]] constexpr bool isDigit(char c) noexcept {
    return static_cast<unsigned char>(c - '0') < 10;
}

[[nodiscard]] constexpr unsigned digitOf(char c) noexcept {
    return static_cast<unsigned>(c - '0');
}

/// Up to eight digits that stood at the start of eight bytes of text.
struct DigitGroup {
    unsigned count;
    std::uint64_t value;
};

/// The digits that start eight bytes, which were loaded with the first one lowest.
[[nodiscard]] inline DigitGroup decodeEight(std::uint64_t bytes) noexcept {
    constexpr std::uint64_t PAIR_MASK = 0x000000FF000000FF;
    std::uint64_t digits = bytes ^ 0x3030303030303030;
    // The high bit of a byte that is no digit; a carry can only spoil bytes behind the first such byte.
    const std::uint64_t others = ((digits + 0x7676767676767676) | digits) & 0x8080808080808080;
    const unsigned count = static_cast<unsigned>(std::countr_zero(others)) / 8;
    if (count == 0)
        return {0, 0};
    // Leading zeros come in from below, and what is no digit goes out above.
    digits <<= 64 - count * 8;
    digits = digits * 10 + (digits >> 8);
    const std::uint64_t value = ((digits & PAIR_MASK) * (100 + (1000000ULL << 32)) +
                                 ((digits >> 16) & PAIR_MASK) * (1 + (10000ULL << 32))) >>
                                32;
    return {count, value & 0xFFFFFFFF};
}

/// Text up to a byte that is no digit.
struct OpenText {
    [[nodiscard]] static bool digitAt(const char* p) noexcept { return isDigit(*p); }
    [[nodiscard]] static bool byteAt(const char* p, char c) noexcept { return *p == c; }
    [[nodiscard]] static atou64_ret digits(const char* p) noexcept { return _atou64(p); }
};

/// Text up to an end that must not be read.
struct BoundedText {
    const char* end;
    [[nodiscard]] bool digitAt(const char* p) const noexcept { return p < end && isDigit(*p); }
    [[nodiscard]] bool byteAt(const char* p, char c) const noexcept { return p < end && *p == c; }
    [[nodiscard]] atou64_ret digits(const char* p) const noexcept { return _atou64(p, end); }
};

template<class Text>
[[nodiscard]] inline atod_ret readDouble(const Text text, const char* const start) noexcept {
    const char* p = start;
    const bool negative = text.byteAt(p, '-');
    if (negative || text.byteAt(p, '+')) {
        ++p;
        if (!text.digitAt(p) && !(text.byteAt(p, '.') && text.digitAt(p + 1)))
            return {start, 0.0};
    }
    const atou64_ret whole = text.digits(p);
    double value = static_cast<double>(static_cast<std::int64_t>(whole.i));
    p = whole.p;
    if (text.byteAt(p, '.')) {
        ++p;
        const atou64_ret fraction = text.digits(p);
        const auto count = static_cast<std::size_t>(fraction.p - p);
        if (count > kMaxFractionDigits)
            return {start, 0.0};
        if (count > 0)
            value += static_cast<double>(static_cast<std::int64_t>(fraction.i)) * kDecimalFractions[count];
        p = fraction.p;
    }
    return {p, negative ? -value : value};
}

} // namespace detail

inline atou64_ret _atou64(const char* p) noexcept {
    // Most numbers of a feed are short, and nine digits fit 32 bits.
    std::uint32_t narrow = 0;
    for (int i = 0; i < 9; ++i, ++p) {
        if (!detail::isDigit(*p))
            return {p, narrow};
        narrow = narrow * 10 + detail::digitOf(*p);
    }
    std::uint64_t value = narrow;
    for (; detail::isDigit(*p); ++p)
        value = value * 10 + detail::digitOf(*p);
    return {p, value};
}

inline atou64_ret _atou64(const char* p, const char* end) noexcept {
    std::uint64_t value = 0;
    if constexpr (std::endian::native == std::endian::little) {
        while (end - p >= 8) {
            std::uint64_t bytes;
            std::memcpy(&bytes, p, sizeof bytes);
            const detail::DigitGroup group = detail::decodeEight(bytes);
            value = value * detail::kDecimalPowers[group.count] + group.value;
            p += group.count;
            if (group.count < 8)
                return {p, value};
        }
    }
    for (; p < end && detail::isDigit(*p); ++p)
        value = value * 10 + detail::digitOf(*p);
    return {p, value};
}

inline SignedNumber _atoi64(const char* p, const char* end) noexcept {
    const char* digits = p;
    const bool negative = p < end && *p == '-';
    if (negative || (p < end && *p == '+'))
        ++digits;
    const atou64_ret read = _atou64(digits, end);
    return {read.p != digits ? read.p : p, static_cast<std::int64_t>(negative ? 0 - read.i : read.i)};
}

inline atod_ret _atod(const char* p) noexcept {
    return detail::readDouble(detail::OpenText{}, p);
}

inline atod_ret _atod(const char* p, const char* end) noexcept {
    return detail::readDouble(detail::BoundedText{end}, p);
}

} // namespace KVNAPI
