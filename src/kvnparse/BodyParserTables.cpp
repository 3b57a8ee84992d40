#include "kvnparse/BodyParserTables.h"

#include "kvnparse/NumberDecode.h"

#include <bit>

namespace KVNAPI {

namespace {

constexpr void setMoves(PointPlace& place, std::size_t point) {
    constexpr std::uint8_t ZERO = 0x80;
    const std::size_t fraction = kVector - 1 - point;
    for (std::size_t i = 0; i < kVector; ++i) {
        // The byte that comes to place i, counted from the right end of its part.
        const bool inWhole = i < kVector / 2;
        const std::size_t fromRight = (inWhole ? kVector / 2 : kVector) - 1 - i;
        const std::size_t end = inWhole ? point : kVector;
        const bool isThere = fromRight < (inWhole ? point : fraction);
        place.toHalves[i] = isThere ? static_cast<std::uint8_t>(end - 1 - fromRight) : ZERO;
        place.closeUp[i] = i > point ? static_cast<std::uint8_t>(i)
                           : i == 0  ? ZERO
                                     : static_cast<std::uint8_t>(i - 1);
    }
}

/// For numbers below 10^16.
constexpr void setDivision(PointPlace& place, std::uint64_t power) {
    const auto shift = static_cast<unsigned>(std::bit_width(power) - 1);
    // Long division of 2^(64 + shift); the power is below 2^54, so that doubling the rest keeps to 64 bits.
    std::uint64_t quotient = 0;
    std::uint64_t rest = std::uint64_t{1} << shift;
    for (int bit = 0; bit < 64; ++bit) {
        quotient <<= 1;
        rest <<= 1;
        if (rest >= power) {
            rest -= power;
            quotient |= 1;
        }
    }
    place.power = power;
    place.factor = rest == 0 ? quotient : quotient + 1;
    place.shift = shift;
}

constexpr DigitTables makeTables() {
    DigitTables tables{};
    for (std::size_t i = 0; i < kVector; ++i) {
        const bool first = i % 2 == 0;
        tables.zeroes[i] = '0';
        tables.nines[i] = 9;
        tables.byTen[i] = first ? 10 : 1;
        tables.byHundred[i / 2] = i / 2 % 2 == 0 ? 100 : 1;
        tables.byTenThousand[i / 2] = i / 2 % 2 == 0 ? 10000 : 1;
        tables.lastBytes[kVector + i] = 0xFF;
        setMoves(tables.places[i], i);
    }
    std::uint64_t power = 1;
    for (std::size_t fraction = 0; fraction < kVector; ++fraction, power *= 10) {
        PointPlace& place = tables.places[kVector - 1 - fraction];
        place.fraction = detail::kDecimalFractions[fraction];
        setDivision(place, power);
    }
    return tables;
}

} // namespace

constinit const DigitTables kDigitTables = makeTables();

} // namespace KVNAPI
