#pragma once

#include "kvnparse/TVPair.h"

#include <span>

namespace KVNAPI {

class buildkvn;

/// Writes a pair at `out` in a way of its token's own, with the "|" behind it, in at most
/// buildkvn::kPairRoom bytes. Returns the position behind.
using kvnencoder_t = char* (*)(buildkvn* build, char* out, const TVPair* pair);

/// Nothing: the token is suppressed.
char* nullencoder(buildkvn* build, char* out, const TVPair* pair);
/// The value 1, whatever the pair says.
char* recdeleteencoder(buildkvn* build, char* out, const TVPair* pair);
/// The deletion of the token whose number is the pair's value.
char* deleteencoder(buildkvn* build, char* out, const TVPair* pair);
/// Dates, which repeat from pair to pair.
char* dateencoder(buildkvn* build, char* out, const TVPair* pair);
char* intdateencoder(buildkvn* build, char* out, const TVPair* pair);

/// A token that is written in a way of its own.
struct KVNEncodeRule {
    const char* name;
    unsigned storage; ///< what the token's storage must be
    kvnencoder_t encoder;
};

[[nodiscard]] std::span<const KVNEncodeRule> kvnEncodeRules() noexcept;

} // namespace KVNAPI
