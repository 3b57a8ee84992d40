#pragma once

#include <cstddef>
#include <cstdint>

namespace KVNAPI {

inline constexpr std::size_t VECTOR = 16;

/// How digits move for a number with some fraction digits, whose text ends at the last byte of a vector.
struct DigitMove {
    std::uint8_t toHalves[VECTOR]; ///< up to eight whole digits and up to eight of the fraction
    std::uint8_t closeUp[VECTOR];  ///< all digits, without the point
};

/// Division of numbers below 10^16 by a power of ten, as a multiplication.
struct PowerOfTen {
    std::uint64_t power;
    std::uint64_t factor; ///< 2^(64 + shift) / power, rounded up
    std::uint64_t shift;
};

/// What the vector forms of the body parser share. A compiler that sees the values makes them anew at each
/// use; it does better to fetch them from here.
struct DigitTables {
    alignas(VECTOR) std::uint8_t zeroes[VECTOR]; ///< the text "0"
    std::uint8_t nines[VECTOR];                  ///< the number 9
    std::int8_t byTen[VECTOR];                   ///< weights of two digits
    std::int16_t byHundred[VECTOR / 2];          ///< weights of two pairs of digits
    std::int16_t byTenThousand[VECTOR / 2];      ///< weights of two groups of four digits
    std::uint8_t lastBytes[2 * VECTOR]; ///< the vector n bytes in has all bits of its last n bytes set
    DigitMove moves[VECTOR];            ///< by the count of fraction digits
    PowerOfTen powers[VECTOR];
};
extern const DigitTables DIGIT_TABLES;

} // namespace KVNAPI
