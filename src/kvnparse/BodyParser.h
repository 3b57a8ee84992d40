#pragma once

#include "kvnparse/bufref.h"

namespace KVNAPI {

class KVNParse;

/// A form of the loop over the fields of a frame, which starts at `position`. All forms give the same result;
/// none reads outside the frame. Returns 0, or -1 after a reported abort.
using BodyParser = int (*)(KVNParse& parse, const char* position);

/// One of the forms that this program has, for its tests and benchmarks.
struct BodyParserForm {
    const char* name;
    BodyParser parse;
    BodyParser parseLazily; ///< the same, but it may leave numbers in the frame as texts
    bool (*runsHere)();     ///< whether this processor can run it
};

/// All forms, the plainest first, up to a row without a name.
extern const BodyParserForm kBodyParserForms[];

/// The fastest form for this processor.
[[nodiscard]] const BodyParserForm& bestBodyParser() noexcept;

/// Field by field, byte by byte: the form that the others are judged by, and the only one for frames that are
/// not framed by a header and for names in place of numbers.
[[nodiscard]] int parseBodyScalar(KVNParse& parse, const char* position);

#if defined(__x86_64__)
[[nodiscard]] int parseBodySse42(KVNParse& parse, const char* position);
[[nodiscard]] int parseBodyAvx2(KVNParse& parse, const char* position);
[[nodiscard]] int parseBodyAvx512(KVNParse& parse, const char* position);

[[nodiscard]] int parseLazilySse42(KVNParse& parse, const char* position);
[[nodiscard]] int parseLazilyAvx2(KVNParse& parse, const char* position);
[[nodiscard]] int parseLazilyAvx512(KVNParse& parse, const char* position);
#endif

} // namespace KVNAPI
