#ifndef TIVRA_SIM_OUTPUTQUEUE_H
#define TIVRA_SIM_OUTPUTQUEUE_H

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tivra_sim {

using Clock = std::chrono::steady_clock;

/// What a frame is counted as once it has gone out.
enum class FrameKind : std::uint32_t { Answer = 0, System = 1, Update = 2, Playback = 3 };

/// Frames and bytes that went out, by kind.
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
    std::size_t offset = 0; ///< each longer frame is cut behind that many bytes, 0 for never
    std::chrono::microseconds pause{0};
};

/// The bytes that wait for one socket, with the places where frames end, so that they can be counted, cut and
/// stopped exactly. Used by the hub's thread alone.
class OutputQueue {
public:
    enum class Result {
        Empty,   ///< all is written
        Blocked, ///< the socket takes no more now
        Pausing, ///< go on at resumeAt()
        Finished ///< the limit of a drop is reached, or the peer has gone: close
    };

    void append(std::string_view frame, FrameKind kind);

    /// Writes what may be written at `now`.
    [[nodiscard]] Result flush(int fd, Clock::time_point now);

    /// Ends a pause as well.
    void setShape(const WriteShape& shape) {
        m_shape = shape;
        m_resumeAt = {};
    }
    void stopAfterBytes(std::uint64_t bytes) { m_bytesLeft = static_cast<std::int64_t>(bytes); }
    void stopAfterFrames(std::uint64_t frames) { m_framesLeft = static_cast<std::int64_t>(frames); }
    [[nodiscard]] bool mustFinish() const { return m_bytesLeft == 0 || m_framesLeft == 0; }

    [[nodiscard]] std::size_t pending() const { return m_bytes.size() - m_head; }
    [[nodiscard]] std::size_t playbackPending() const { return m_playbackPending; }
    [[nodiscard]] Clock::time_point resumeAt() const { return m_resumeAt; }
    /// What went out since the last call.
    [[nodiscard]] OutputCounters takeCounters();

private:
    [[nodiscard]] std::size_t nextPiece() const;
    [[nodiscard]] std::size_t currentFrameLength() const;
    void written(std::size_t count);

    std::string m_bytes;
    std::size_t m_head = 0;
    /// Lengths of the waiting frames, the kind in the two highest bits.
    std::vector<std::uint32_t> m_frames;
    std::size_t m_firstFrame = 0;
    /// Bytes of the first waiting frame that are written already.
    std::size_t m_frameDone = 0;
    std::size_t m_playbackPending = 0;

    WriteShape m_shape;
    std::int64_t m_bytesLeft = -1;
    std::int64_t m_framesLeft = -1;
    Clock::time_point m_resumeAt{};

    OutputCounters m_counters;
};

} // namespace tivra_sim

#endif
