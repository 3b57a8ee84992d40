// Prices of the wire by their records, and the way back.
#include "kvnparse/Denom.h"

#include "kvnparse/Message.h"
#include "kvnparse/NumberDecode.h"
#include "kvnparse/Token.h"

#include <tp/te_error.h>

#include <cmath>

namespace KVNAPI {
namespace {

constexpr double kTwoPow53 = 9007199254740992.0;
constexpr double kTwoPow63 = 9223372036854775808.0;
constexpr double kTwoPow64 = 18446744073709551616.0;

/// The value of a step by the last digit of a funky price.
constexpr double FunkyFractionValues[10] = {0.0, 0.0, 0.25, 0.0, 0.0, 0.5, 0.0, 0.75, 0.0, 0.0};

/// 10 to the power -n, 1.0 beyond the table.
double decimalFraction(std::int32_t n) {
    return n >= 0 && n <= static_cast<std::int32_t>(detail::kMaxFractionDigits) ? detail::kDecimalFractions[n]
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
    if (d->decimalModulo == 0 || !(magnitude < kTwoPow64))
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
    if (value >= kTwoPow63)
        return INT64_MAX;
    if (value < -kTwoPow63)
        return INT64_MIN;
    return static_cast<std::int64_t>(value);
}

std::int64_t funkyInteger(double value, const Denom& d) {
    const double magnitude = std::fabs(value);
    const double scale = static_cast<double>(d.funkyBase) * d.funkyMultiplier;
    std::uint64_t whole = magnitude < kTwoPow64 ? static_cast<std::uint64_t>(magnitude) : UINT64_MAX;
    std::uint64_t steps = 0;
    // From 2^53 on a double has no fraction, and its steps would not fit 64 bits.
    if (magnitude < kTwoPow53) {
        steps =
            static_cast<std::uint64_t>(scale * magnitude + 0.5) - static_cast<std::uint64_t>(scale) * whole;
        if (steps >= static_cast<std::uint64_t>(scale)) {
            ++whole;
            steps = 0;
        }
    }
    static constexpr std::uint64_t kStepDigits[4] = {0, 2, 5, 7};
    std::uint64_t result = 0;
    if (d.funkyMultiplier == 1)
        result = whole * 100 + steps;
    else if (d.funkyMultiplier == 2)
        result = whole * 1000 + (steps / 2) * 10 + (steps % 2) * 5;
    else
        result = whole * 1000 + (steps / 4) * 10 + kStepDigits[steps % 4];
    return static_cast<std::int64_t>(value < 0 ? 0 - result : result);
}

} // namespace

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
