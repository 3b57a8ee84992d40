#pragma once

#include <cstddef>
#include <cstdint>

namespace KVNAPI {

inline constexpr std::size_t kVector = 16;

/// What to do with a decimal number whose text ends at the last byte of a vector, by the place of its point.
struct PointPlace {
    std::uint8_t toHalves[kVector]; ///< moves up to eight whole digits and up to eight of the fraction
    std::uint8_t closeUp[kVector];  ///< moves all digits together, without the point
    double fraction;                ///< the value of the last digit
    std::uint64_t power;            ///< the power of ten that divides whole digits from the fraction
    std::uint64_t factor;           ///< 2^(64 + shift) / power, rounded up: division as a multiplication
    std::uint64_t shift;
};

/// What the vector forms of the body parser share. A compiler that sees the values makes them anew at each
/// use; it does better to fetch them from here.
struct DigitTables {
    alignas(kVector) std::uint8_t zeroes[kVector]; ///< the text "0"
    std::uint8_t nines[kVector];                   ///< the number 9
    std::int8_t byTen[kVector];                    ///< weights of two digits
    std::int16_t byHundred[kVector / 2];           ///< weights of two pairs of digits
    std::int16_t byTenThousand[kVector / 2];       ///< weights of two groups of four digits
    std::uint8_t lastBytes[2 * kVector]; ///< the vector n bytes in has all bits of its last n bytes set
    alignas(kVector) PointPlace places[kVector];
};
extern const DigitTables kDigitTables;

} // namespace KVNAPI
