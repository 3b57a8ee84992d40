#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "StreamCompressor.h"
#include "TlsServer.h"

namespace tivra_sim {

using Clock = std::chrono::steady_clock;

/// What a frame is counted as once it has gone out. PastCompression goes out as it is, whatever is done to
/// the others, and counts as an answer.
enum class FrameKind : std::uint32_t {
    Answer = 0,
    System = 1,
    Update = 2,
    Playback = 3,
    PastCompression = 4
};

/// Frames and bytes that went out, by kind; of a compressed stream the bytes are those on the wire.
struct OutputCounters {
    std::uint64_t bytes = 0;
    std::uint64_t frames = 0;
    std::uint64_t updates = 0;
    std::uint64_t playback = 0;

    OutputCounters& operator+=(const OutputCounters& other) {
        bytes += other.bytes;
        frames += other.frames;
        updates += other.updates;
        playback += other.playback;
        return *this;
    }
};

/// How pieces are cut on their way to the socket.
struct WriteShape {
    std::size_t size = 0;   ///< most bytes in one write, 0 for any number
    std::size_t offset = 0; ///< each longer frame is cut behind that many bytes, 0 for never; with
                            ///< compression, what a frame is compressed to
    std::chrono::microseconds pause{0};
};

/// The bytes that wait for one socket, with the places where frames end, so that they can be counted, cut and
/// stopped exactly, and the compression that they may pass on their way. Used by the hub's thread alone.
class OutputQueue {
public:
    enum class Result {
        Empty,   ///< all is written
        Blocked, ///< the socket takes no more now
        Pausing, ///< go on at resumeAt()
        Finished ///< the limit of a drop is reached, or the peer has gone: close
    };

    void append(std::string_view frame, FrameKind kind);

    /// Makes one zlib stream of all that goes out, which must begin with the first byte: no effect once bytes
    /// have gone out plainly.
    void startCompression(int level, Flush flush);
    [[nodiscard]] bool isCompressed() const { return m_compressor != nullptr; }

    /// Writes what may be written at `now`, to the socket or encrypted.
    [[nodiscard]] Result flush(int fd, TlsSession* tls, Clock::time_point now);

    /// Ends a pause as well.
    void setShape(const WriteShape& shape) {
        m_shape = shape;
        m_resumeAt = {};
    }
    void stopAfterBytes(std::uint64_t bytes) { m_bytesLeft = static_cast<std::int64_t>(bytes); }
    void stopAfterFrames(std::uint64_t frames) { m_framesLeft = static_cast<std::int64_t>(frames); }
    [[nodiscard]] bool mustFinish() const { return m_bytesLeft == 0 || m_framesLeft == 0; }

    /// Bytes that wait, before compression.
    [[nodiscard]] std::size_t pending() const { return m_bytes.size() - m_head; }
    [[nodiscard]] std::size_t playbackPending() const { return m_playbackPending; }
    [[nodiscard]] Clock::time_point resumeAt() const { return m_resumeAt; }
    /// What went out since the last call.
    [[nodiscard]] OutputCounters takeCounters();

private:
    /// The bytes that the next write may take: of what waits, or of what has been compressed.
    [[nodiscard]] std::string_view nextPiece() const;
    [[nodiscard]] std::size_t frameLength(std::size_t frame) const;
    [[nodiscard]] FrameKind frameKind(std::size_t frame) const;
    /// Whether a write has ended inside a frame, or inside what has been compressed.
    [[nodiscard]] bool isInside() const;
    void compressNext();
    void written(std::size_t count);
    void retire(std::size_t count);

    std::string m_bytes;
    std::size_t m_head = 0;
    /// Lengths of the waiting frames, the kind in the three highest bits.
    std::vector<std::uint32_t> m_frames;
    std::size_t m_firstFrame = 0;
    /// Bytes of the first waiting frame that are written already.
    std::size_t m_frameDone = 0;
    std::size_t m_playbackPending = 0;
    bool m_hasWritten = false;

    std::unique_ptr<StreamCompressor> m_compressor;
    /// What the first frames that wait have been compressed to, how many of its bytes are written, and the
    /// bytes of these frames.
    std::string m_compressed;
    std::size_t m_compressedDone = 0;
    std::size_t m_compressedFrom = 0;

    WriteShape m_shape;
    std::int64_t m_bytesLeft = -1;
    std::int64_t m_framesLeft = -1;
    Clock::time_point m_resumeAt{};

    OutputCounters m_counters;
};

} // namespace tivra_sim
