#pragma once

#include <cstddef>
#include <cstdint>

namespace KVNAPI {

inline constexpr std::size_t VECTOR = 16;

/// What to do with a decimal number whose text ends at the last byte of a vector, by the place of its point.
struct PointPlace {
    std::uint8_t toHalves[VECTOR]; ///< moves up to eight whole digits and up to eight of the fraction
    std::uint8_t closeUp[VECTOR];  ///< moves all digits together, without the point
    double fraction;               ///< the value of the last digit
    std::uint64_t power;           ///< the power of ten that divides whole digits from the fraction
    std::uint64_t factor;          ///< 2^(64 + shift) / power, rounded up: division as a multiplication
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
    alignas(VECTOR) PointPlace places[VECTOR];
};
extern const DigitTables DIGIT_TABLES;

} // namespace KVNAPI
