#pragma once

#include "kvnparse/bufref.h"

#include <memory>

namespace KVNAPI {

/// Cuts a byte stream into frames without copying them. It looks at bytes that stay the caller's, and is
/// used by one thread.
class Framer {
public:
    Framer() = default;
    Framer(const Framer&) = delete;
    Framer& operator=(const Framer&) = delete;
    virtual ~Framer() = default;

    /// Makes `bytes` the ones to work on. Whatever was left of the last ones is forgotten: call
    /// moveRemaining first.
    virtual void push(bufref bytes) = 0;

    /// Moves the unconsumed bytes to the start of `dst` (which may overlap them), at most its length, and
    /// goes on there. Bytes past that length are lost. Returns the count moved.
    [[nodiscard]] virtual int moveRemaining(bufref dst) = 0;

    /// Returns 0 with the next frame in `*out`, 1 when more input is needed and -1 after a format error,
    /// with its text in te_geterror. A caller that wants to survive garbage keeps on pulling after -1.
    [[nodiscard]] virtual int pull(bufref* out) = 0;

    /// Forgets all bytes and any loss of step.
    virtual void reset() = 0;

    /// A framer of that short name ("kvn", "newline"), which waits for frames of less than
    /// `maxBufferSize` bytes. Null, with a text in te_geterror, for an unknown name.
    [[nodiscard]] static std::unique_ptr<Framer> alloc(const char* name, int maxBufferSize);
};

} // namespace KVNAPI
