#pragma once

#include <cstddef>
#include <cstring>

namespace KVNAPI {

/// Judges lines: a frame is everything up to and including the next newline. Stateless, never fails.
class NLVerify {
public:
    static constexpr int SynchChar = '\n';
    /// A resynchronisation lands behind the sync byte, which ends the frame before.
    static constexpr int SynchToHeader = 0;

    /// The length of the line at `start`, or 0 if its end has not come yet.
    [[nodiscard]] std::ptrdiff_t verifyFrame(const char* start, const char* end) const noexcept {
        if (start == end)
            return 0;
        const void* const found = std::memchr(start, SynchChar, static_cast<std::size_t>(end - start));
        return found == nullptr ? 0 : static_cast<const char*>(found) - start + 1;
    }
};

} // namespace KVNAPI
