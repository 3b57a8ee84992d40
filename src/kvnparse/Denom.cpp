#include "kvnparse/Denom.h"

#include "kvnparse/Message.h"
#include "kvnparse/NumberDecode.h"
#include "kvnparse/Token.h"

#include <tp/te_error.h>

#include <cmath>

namespace KVNAPI {
namespace {

constexpr double TWO_POW_53 = 9007199254740992.0;
constexpr double TWO_POW_63 = 9223372036854775808.0;
constexpr double TWO_POW_64 = 18446744073709551616.0;

/// The value of a step by the last digit of a funky price.
constexpr double FunkyFractionValues[10] = {0.0, 0.0, 0.25, 0.0, 0.0, 0.5, 0.0, 0.75, 0.0, 0.0};

/// 10 to the power -n, 1.0 beyond the table.
double decimalFraction(std::int32_t n) {
    return n >= 0 && n <= static_cast<std::int32_t>(detail::MAX_FRACTION_DIGITS)
               ? detail::DECIMAL_FRACTIONS[n]
               : 1.0;
}

bool isStepDigit(int digit, std::int32_t multiplier) {
    return digit == 0 || digit == 5 || (multiplier == 4 && (digit == 2 || digit == 7));
}

int refuseStep(int digit, double value) {
    tp::te_error("Invalid fractional fraction %d on %.0f", digit, value);
    return -1;
}

/// Reads a wire integer that holds its whole part and its parts of a whole side by side in decimal digits.
int normalizeFunkyValue(double* value, const Denom* d) {
    const double magnitude = std::fabs(*value);
    // The record "XX" has no modulo to split by, and what 64 bits can't hold has no digits to look at.
    if (d->decimalModulo == 0 || !(magnitude < TWO_POW_64))
        return refuseStep(0, *value);
    const auto i = static_cast<std::uint64_t>(magnitude);
    const auto modulo = static_cast<std::uint64_t>(d->decimalModulo);
    const std::uint64_t whole = i / modulo;
    const auto rest = static_cast<int>(i % modulo);
    int parts = rest;
    double step = 0.0;
    if (d->funkyMultiplier >= 2) {
        const int digit = rest % 10;
        if (!isStepDigit(digit, d->funkyMultiplier))
            return refuseStep(digit, *value);
        step = FunkyFractionValues[digit];
        parts = rest / 10;
    }
    if (parts >= d->funkyBase) {
        tp::te_error("Fraction too large on %.0f (%d > %d)", *value, parts, d->funkyBase);
        return -1;
    }
    const double result = static_cast<double>(whole) + (parts + step) / d->funkyBase;
    *value = *value < 0 ? -result : result;
    return 0;
}

/// The double cut to an int64, clamped to what that holds; NaN gives 0.
std::int64_t truncated(double value) {
    if (std::isnan(value))
        return 0;
    if (value >= TWO_POW_63)
        return INT64_MAX;
    if (value < -TWO_POW_63)
        return INT64_MIN;
    return static_cast<std::int64_t>(value);
}

std::int64_t funkyInteger(double value, const Denom& d) {
    const double magnitude = std::fabs(value);
    const double scale = static_cast<double>(d.funkyBase) * d.funkyMultiplier;
    std::uint64_t whole = magnitude < TWO_POW_64 ? static_cast<std::uint64_t>(magnitude) : UINT64_MAX;
    std::uint64_t steps = 0;
    // From 2^53 on a double has no fraction, and its steps would not fit 64 bits.
    if (magnitude < TWO_POW_53) {
        steps =
            static_cast<std::uint64_t>(scale * magnitude + 0.5) - static_cast<std::uint64_t>(scale) * whole;
        if (steps >= static_cast<std::uint64_t>(scale)) {
            ++whole;
            steps = 0;
        }
    }
    static constexpr std::uint64_t STEP_DIGITS[4] = {0, 2, 5, 7};
    std::uint64_t result = 0;
    if (d.funkyMultiplier == 1)
        result = whole * 100 + steps;
    else if (d.funkyMultiplier == 2)
        result = whole * 1000 + (steps / 2) * 10 + (steps % 2) * 5;
    else
        result = whole * 1000 + (steps / 4) * 10 + STEP_DIGITS[steps % 4];
    return static_cast<std::int64_t>(value < 0 ? 0 - result : result);
}

} // namespace

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

constinit const std::array<Denom, Denom::MAX_Fractions_> Denom::Fractions_ = {{
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

int Denom::normalizeDenom(Message* message) const {
    if (type == Unknown)
        return 0;
    const Denom* const earlier = message->denomcode;
    message->denomcode = this;
    if (earlier != &Unnormalized_ || type == Fraction)
        return 0;
    for (int i = 0; i < message->pairCount(); ++i) {
        TVPair* const pair = message->pair(i);
        if (!pair->token->priceNormalize || pair->token->storage != Token::TY_DOUBLE)
            continue;
        if (normalizeValue(&pair->d) != 0)
            return -1;
    }
    return 0;
}

int Denom::normalizeValue(double* value) const {
    if (type == Decimal)
        *value *= decimalFraction(decimalPrecision);
    else if (type == Funky)
        return normalizeFunkyValue(value, this);
    return 0;
}

std::int64_t Denom::unNormalizeValue(double value) const noexcept {
    if (type == Decimal)
        return truncated(denominator * value + (value < 0 ? -0.5 : 0.5));
    // The record "XX" names no parts to count in.
    if (type == Funky && funkyBase != 0 && !std::isnan(value))
        return funkyInteger(value, *this);
    return truncated(value);
}

} // namespace KVNAPI
