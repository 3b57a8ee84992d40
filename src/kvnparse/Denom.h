#pragma once

#include <array>
#include <cstdint>

namespace KVNAPI {

class Message;

/// How a price integer of the wire is read: one constant record per display precision. The records are
/// shared by pointer, and comparing pointers is how code tests for a particular one.
struct Denom {
    enum Type { Fraction = 0, Decimal = 1, Funky = 2, Unknown = 3 };

    static constexpr int MAX_Decimals_ = 10;
    static constexpr int kMaxFractions = 9;
    static constexpr int MAX_Funky_ = 6;

    std::int32_t kvncode;          ///< code on the wire, under "ENUM.DISPLAY.PRECISION"
    Type type;                     ///< which of the conversions applies
    std::int32_t decimalModulo;    ///< splits the wire integer: whole part and rest
    std::int32_t denominator;      ///< scale of one whole unit
    char name[16];                 ///< display name
    std::int32_t decimalPrecision; ///< Decimal: number of decimal places
    std::int32_t funkyDDFcode;     ///< number of the funky record, 0 to 5
    std::int32_t funkyBase;        ///< parts of a whole, 32 or 64
    std::int32_t funkyMultiplier;  ///< steps in one part: 1, 2 or 4

    static const std::array<Denom, MAX_Decimals_> Decimals_;
    static const std::array<Denom, kMaxFractions> Fractions_;
    static const std::array<Denom, MAX_Funky_> Funky_;
    static const Denom Unknown_;
    static const Denom Unnormalized_;

    /// The record of a wire code, never null. A wider number from the wire is cut to 32 bits first.
    [[nodiscard]] static const Denom* lookupKVNcode(int code) noexcept;

    [[nodiscard]] static const Denom* getUnnormalized() noexcept { return &Unnormalized_; }
    [[nodiscard]] static const Denom* getUnknown() noexcept { return &Unknown_; }
    /// The record of that index, Unknown_ when it is out of range.
    [[nodiscard]] static const Denom* getDecimal(int index) noexcept;
    [[nodiscard]] static const Denom* getFunky(int index) noexcept;
    [[nodiscard]] static const Denom* getFrac32() noexcept { return &Fractions_[5]; }
    [[nodiscard]] static const Denom* getFrac64() noexcept { return &Fractions_[6]; }
    [[nodiscard]] static const Denom* getFrac128() noexcept { return &Fractions_[7]; }
    [[nodiscard]] static const Denom* getFrac256() noexcept { return &Fractions_[8]; }

    /// Gives the message this record and, if its prices were still unnormalised, converts every pair whose
    /// token has `priceNormalize`. Returns 0, or -1 at the first bad funky value with the pairs before it
    /// converted and a text in te_geterror.
    [[nodiscard]] int normalizeDenom(Message* message) const;

    /// Turns one wire value into a price. Returns 0, or -1 with `*value` as it was for a bad funky value.
    [[nodiscard]] int normalizeValue(double* value) const;

    /// The way back: the wire integer of a price. A result beyond an int64 is clamped (for a
    /// funky record it wraps); NaN gives 0.
    [[nodiscard]] std::int64_t unNormalizeValue(double value) const noexcept;
};

inline const Denom* Denom::lookupKVNcode(int code) noexcept {
    // Cleared in unsigned arithmetic: a negative code keeps its high bits and so lies past every table.
    const auto bits = static_cast<std::uint32_t>(code);
    const std::uint32_t n = bits & ~std::uint32_t{0x20 | 0x40 | 0x80};
    if (bits & 0x40)
        return n < Decimals_.size() ? &Decimals_[n] : &Unknown_;
    if (bits & 0x20)
        return n < Fractions_.size() ? &Fractions_[n] : &Unknown_;
    if (bits & 0x80)
        return n < Funky_.size() ? &Funky_[n] : &Unknown_;
    return code == 1 ? &Unknown_ : &Unnormalized_;
}

} // namespace KVNAPI
