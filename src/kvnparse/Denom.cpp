#include "kvnparse/Denom.h"

namespace KVNAPI {

constinit const std::array<Denom, Denom::MAX_Decimals_> Denom::Decimals_ = {{
    {64, Decimal, 1, 1, "1", 0, 0, 0, 0},
    {65, Decimal, 10, 10, "10", 1, 0, 0, 0},
    {66, Decimal, 100, 100, "100", 2, 0, 0, 0},
    {67, Decimal, 1000, 1000, "1000", 3, 0, 0, 0},
    {68, Decimal, 10000, 10000, "10000", 4, 0, 0, 0},
    {69, Decimal, 100000, 100000, "100000", 5, 0, 0, 0},
    {70, Decimal, 1000000, 1000000, "1000000", 6, 0, 0, 0},
    {71, Decimal, 10000000, 10000000, "10000000", 7, 0, 0, 0},
    {72, Decimal, 100000000, 100000000, "100000000", 8, 0, 0, 0},
    {73, Decimal, 1000000000, 1000000000, "1000000000", 9, 0, 0, 0},
}};

constinit const std::array<Denom, Denom::kMaxFractions> Denom::Fractions_ = {{
    {32, Fraction, 1, 1, "X", 0, 0, 0, 0},
    {33, Fraction, 10, 2, "2", 1, 0, 0, 0},
    {34, Fraction, 10, 4, "4", 2, 0, 0, 0},
    {35, Fraction, 10, 8, "8", 3, 0, 0, 0},
    {36, Fraction, 100, 16, "16", 4, 0, 0, 0},
    {37, Fraction, 100, 32, "32", 5, 0, 0, 0},
    {38, Fraction, 100, 64, "64", 6, 0, 0, 0},
    {39, Fraction, 1000, 128, "128", 7, 0, 0, 0},
    {40, Fraction, 1000, 256, "256", 8, 0, 0, 0},
}};

constinit const std::array<Denom, Denom::MAX_Funky_> Denom::Funky_ = {{
    {128, Funky, 0, 0, "XX", 0, 0, 0, 0},
    {129, Funky, 100, 32, "32.0", 5, 1, 32, 1},
    {130, Funky, 1000, 64, "32.5", 6, 2, 32, 2},
    {131, Funky, 1000, 128, "32.25", 7, 3, 32, 4},
    {132, Funky, 100, 64, "64.0", 6, 4, 64, 1},
    {133, Funky, 1000, 128, "64.5", 7, 5, 64, 2},
}};

constinit const Denom Denom::Unknown_ = {1, Unknown, 0, 0, "Unknown", 9, 0, 0, 0};
constinit const Denom Denom::Unnormalized_ = {0, Unknown, 0, 0, "Unnormalized", 0, 0, 0, 0};

const Denom* Denom::getDecimal(int index) noexcept {
    return index >= 0 && index < MAX_Decimals_ ? &Decimals_[static_cast<std::size_t>(index)] : &Unknown_;
}

const Denom* Denom::getFunky(int index) noexcept {
    return index >= 0 && index < MAX_Funky_ ? &Funky_[static_cast<std::size_t>(index)] : &Unknown_;
}

} // namespace KVNAPI
