#pragma once

#include <cstddef>
#include <cstdint>

namespace KVNAPI {

inline constexpr std::size_t kVector = 16;

/// What to do with a number whose text ends at the last byte of a vector, by the place of its point.
struct PointPlace {
    std::uint8_t toHalves[kVector];   ///< moves up to eight whole digits and up to eight of the fraction
    std::uint8_t toWhole[kVector];    ///< moves the whole digits to the right end
    std::uint8_t toFraction[kVector]; ///< leaves the digits of the fraction, zeros before them
    double fraction;                  ///< the value of the last digit
    double unused;                    ///< makes it 64 bytes
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
    std::uint8_t moveDown[2 * kVector]; ///< the vector n bytes in moves bytes n places down, zeros after them
    alignas(kVector) PointPlace places[kVector + 1]; ///< the last one for numbers without a point
};
extern const DigitTables kDigitTables;

/// Vectors of one byte repeated, which the look for separators, digits and points compares with. From here
/// for the same reason.
struct ByteTables {
    alignas(64) std::uint8_t bars[64]; ///< "|"
    std::uint8_t ends[64];             ///< the end byte
    std::uint8_t zeroes[64];           ///< the text "0"
    std::uint8_t nines[64];            ///< the number 9
};
extern const ByteTables kByteTables;

/// A bit for each byte of a block, the first one lowest.
struct ByteBits {
    std::uint64_t separators;
    std::uint64_t digits;
};

} // namespace KVNAPI
