#include "kvnparse/BodyParserTables.h"

#include "kvnparse/NumberDecode.h"

namespace KVNAPI {

namespace {

constexpr std::uint8_t kZero = 0x80;

/// The moves that bring the bytes up to `end` to the right end of `size` places.
constexpr void setMoves(std::uint8_t* moves, std::size_t size, std::size_t start, std::size_t end) {
    for (std::size_t i = 0; i < size; ++i) {
        const std::size_t fromRight = size - i;
        moves[i] = fromRight <= end - start ? static_cast<std::uint8_t>(end - fromRight) : kZero;
    }
}

constexpr PointPlace makePlace(std::size_t point) {
    PointPlace place{};
    const std::size_t fraction = point < kVector ? point + 1 : kVector;
    setMoves(place.toHalves, kVector / 2, 0, point);
    setMoves(place.toHalves + kVector / 2, kVector / 2, fraction, kVector);
    setMoves(place.toWhole, kVector, 0, point);
    setMoves(place.toFraction, kVector, fraction, kVector);
    place.fraction = detail::kDecimalFractions[kVector - fraction];
    return place;
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
        tables.moveDown[i] = static_cast<std::uint8_t>(i);
        tables.moveDown[kVector + i] = kZero;
    }
    for (std::size_t point = 0; point <= kVector; ++point)
        tables.places[point] = makePlace(point);
    return tables;
}

constexpr ByteTables makeByteTables() {
    ByteTables tables{};
    for (std::size_t i = 0; i < sizeof tables.bars; ++i) {
        tables.bars[i] = '|';
        tables.ends[i] = 3;
        tables.zeroes[i] = '0';
        tables.nines[i] = 9;
    }
    return tables;
}

} // namespace

constinit const DigitTables kDigitTables = makeTables();
constinit const ByteTables kByteTables = makeByteTables();

} // namespace KVNAPI
