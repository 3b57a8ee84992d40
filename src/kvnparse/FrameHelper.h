#pragma once

#include "kvnparse/Framer.h"

#include <tp/te_error.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace KVNAPI {

/// The framer over a verifier that knows one frame format. Once out of step it scans for the next byte at
/// which the verifier sees a frame, and says how much it has skipped.
template<class Verify>
class FrameHelper final : public Framer {
public:
    explicit FrameHelper(int maxBufferSize) noexcept : m_maxBufferSize(maxBufferSize) {}

    void push(bufref bytes) override {
        m_work = bytes.buf;
        m_end = bytes.end();
    }

    [[nodiscard]] int moveRemaining(bufref dst) override;
    [[nodiscard]] int pull(bufref* out) override;

    void reset() override {
        m_work = nullptr;
        m_end = nullptr;
        m_mustsync = 0;
    }

private:
    [[nodiscard]] int pullOutOfStep();
    [[nodiscard]] const char* nextCandidate() const;
    /// Whether a frame that is incomplete now can never complete within the caller's buffer.
    [[nodiscard]] bool isFull() const noexcept { return m_end - m_work >= m_maxBufferSize; }

    Verify m_verify;
    const char* m_work = nullptr; // first unconsumed byte
    const char* m_end = nullptr;
    std::int32_t m_mustsync = 0; // non-zero while the stream is out of step
    std::int32_t m_maxBufferSize;
};

template<class Verify>
int FrameHelper<Verify>::moveRemaining(bufref dst) {
    const std::size_t held = static_cast<std::size_t>(m_end - m_work);
    const std::size_t count = std::min<std::size_t>(held, dst.len);
    if (count > 0)
        std::memmove(dst.room(), m_work, count);
    m_work = dst.buf;
    m_end = dst.buf + count;
    return static_cast<int>(count);
}

template<class Verify>
int FrameHelper<Verify>::pull(bufref* out) {
    if (m_mustsync != 0)
        return pullOutOfStep();
    const std::ptrdiff_t length = m_verify.verifyFrame(m_work, m_end);
    if (length > 0) {
        *out = bufref(m_work, static_cast<bufref_len_t>(length));
        m_work += length;
        return 0;
    }
    if (length == 0) {
        if (!isFull())
            return 1;
        tp::te_error("Block too large (max is %d).", m_maxBufferSize);
    }
    m_mustsync = 1;
    return -1;
}

/// Where a frame may start next, the end of the bytes if nowhere.
template<class Verify>
const char* FrameHelper<Verify>::nextCandidate() const {
    const char* const from = m_work + Verify::SynchToHeader;
    if (from >= m_end)
        return m_end;
    const void* const found = std::memchr(from, Verify::SynchChar, static_cast<std::size_t>(m_end - from));
    if (found == nullptr)
        return m_end;
    return static_cast<const char*>(found) + (Verify::SynchToHeader != 0 ? 0 : 1);
}

template<class Verify>
int FrameHelper<Verify>::pullOutOfStep() {
    if (m_work == m_end)
        return 1;
    const char* const start = m_work;
    while (m_work < m_end) {
        const std::ptrdiff_t length = m_verify.verifyFrame(m_work, m_end);
        if (length > 0) {
            // The frame itself comes with the next pull.
            m_mustsync = 0;
            tp::te_error("Skipping %d bytes", static_cast<int>(m_work - start));
            return -1;
        }
        if (length == 0 && !isFull())
            break;
        m_work = nextCandidate();
    }
    if (m_work == start)
        return 1;
    tp::te_error("Skipping %d bytes (still searching)", static_cast<int>(m_work - start));
    return -1;
}

} // namespace KVNAPI
