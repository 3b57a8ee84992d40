#pragma once

#include "kvnparse/FrameFormat.h"

#include <cstddef>

namespace KVNAPI {

/// Judges whether a frame of the token format starts at some byte. Stateless.
class KVNVerify {
public:
    static constexpr int SynchChar = KVN_START;
    /// A resynchronisation lands on the sync byte itself, which starts the header.
    static constexpr int SynchToHeader = 1;

    /// The length of the complete frame at `start`, 0 if more bytes are needed, or -1, with a text in
    /// te_geterror, if the bytes can't be a frame. Nothing is judged before the whole header is there.
    [[nodiscard]] std::ptrdiff_t verifyFrame(const char* start, const char* end) const;

private:
    [[nodiscard]] static std::ptrdiff_t refuseHeader(const char* start);
    [[nodiscard]] static std::ptrdiff_t refuseSize(std::uint32_t frameSize);
    [[nodiscard]] static std::ptrdiff_t refuseEnd(char endByte);
};

inline std::ptrdiff_t KVNVerify::verifyFrame(const char* start, const char* end) const {
    const auto available = static_cast<std::uint64_t>(end - start);
    if (available < kKvnHeaderSize)
        return 0;
    if (start[0] != KVN_START || start[1] != kKvnMark)
        return refuseHeader(start);
    // In 64 bits a false length can't wrap round to a frame that seems to be here already.
    const std::uint64_t bodyLength = frameBodyLength(start);
    const std::uint64_t frameLength = bodyLength + kKvnFrameExtra;
    const auto wrapped = static_cast<std::uint32_t>(frameLength);
    if (wrapped <= kKvnHeaderSize)
        return refuseSize(wrapped);
    if (available < frameLength)
        return 0;
    if (start[frameLength - 1] != ETX)
        return refuseEnd(start[frameLength - 1]);
    return static_cast<std::ptrdiff_t>(frameLength);
}

} // namespace KVNAPI
