#pragma once

#include "kvnparse/NumberDecode.h"
#include "kvnparse/bufref.h"

#include <cstdint>

namespace KVNAPI {

// Writers. Each takes the first byte of the output and returns the position behind the last byte written.
// None writes a terminator, allocates or knows a locale. kNumberTextMax bytes hold the output of any of
// them but i64toa_wp with a larger width.
inline constexpr int kNumberTextMax = 24;

/// Digits padded with zeros on the left to `width`, which does not count the sign. The value 0 has no
/// digits of its own: with width 0 it writes nothing.
char* i64toa_wp(char* buf, std::int64_t value, int width);

/// Exactly `width` digits (1 to 9); digits of the value above that are dropped.
char* uitoa_wl(char* buf, unsigned value, unsigned width);

/// Decimal digits.
char* u64toa(char* buf, std::uint64_t value);
char* i64toa(char* buf, std::int64_t value);

/// The value rounded to a whole number. NaN writes "0", 2^64 and more 18446744073709551615.
char* wholetoa(char* buf, double value);

/// The value with as many decimals as a double can honestly carry: at most 15 significant digits, never an
/// exponent. NaN writes "0", 2^64 and more 18446744073709551615.
char* dtoa(char* buf, double value);

/// A zero-terminated printable copy of `in` in `out`: other bytes stand as <0xNN>. Stops where `out` ends.
void hexifyStr(bufref out, bufref in);

} // namespace KVNAPI
