#include "OutputQueue.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace tivra_sim {

namespace {

constexpr unsigned KIND_SHIFT = 30;
constexpr std::uint32_t LENGTH_MASK = (std::uint32_t{1} << KIND_SHIFT) - 1;
/// Written bytes are cut off the buffer once they are that many.
constexpr std::size_t COMPACT_SIZE = std::size_t{1} << 20;

} // namespace

void OutputQueue::append(std::string_view frame, FrameKind kind) {
    if (frame.empty())
        return;
    m_bytes.append(frame);
    m_frames.push_back(static_cast<std::uint32_t>(frame.size()) |
                       (static_cast<std::uint32_t>(kind) << KIND_SHIFT));
    if (kind == FrameKind::Playback)
        ++m_playbackPending;
}

std::size_t OutputQueue::currentFrameLength() const {
    return m_frames[m_firstFrame] & LENGTH_MASK;
}

std::size_t OutputQueue::nextPiece() const {
    std::size_t piece = pending();
    if (m_bytesLeft >= 0)
        piece = std::min(piece, static_cast<std::size_t>(m_bytesLeft));
    if (m_shape.size > 0)
        piece = std::min(piece, m_shape.size);
    if (m_framesLeft >= 0 || m_shape.offset > 0) {
        const std::size_t length = currentFrameLength();
        const bool cut = m_shape.offset > 0 && length > m_shape.offset && m_frameDone < m_shape.offset;
        piece = std::min(piece, (cut ? m_shape.offset : length) - m_frameDone);
    }
    return piece;
}

OutputQueue::Result OutputQueue::flush(int fd, Clock::time_point now) {
    if (mustFinish())
        return Result::Finished;
    if (now < m_resumeAt)
        return pending() > 0 ? Result::Pausing : Result::Empty;
    while (pending() > 0) {
        const std::size_t piece = nextPiece();
        const ssize_t count = ::send(fd, m_bytes.data() + m_head, piece, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count < 0) {
            if (errno == EINTR)
                continue;
            return errno == EAGAIN || errno == EWOULDBLOCK ? Result::Blocked : Result::Finished;
        }
        written(static_cast<std::size_t>(count));
        if (mustFinish())
            return Result::Finished;
        const bool pauses = m_shape.size > 0 || (m_shape.offset > 0 && m_frameDone > 0);
        if (pauses && m_shape.pause.count() > 0 && pending() > 0) {
            m_resumeAt = now + m_shape.pause;
            return Result::Pausing;
        }
    }
    m_bytes.clear();
    m_head = 0;
    return Result::Empty;
}

void OutputQueue::written(std::size_t count) {
    m_head += count;
    m_counters.bytes += count;
    if (m_bytesLeft >= 0)
        m_bytesLeft -= static_cast<std::int64_t>(count);
    m_frameDone += count;
    while (m_firstFrame < m_frames.size() && m_frameDone >= currentFrameLength()) {
        m_frameDone -= currentFrameLength();
        const auto kind = static_cast<FrameKind>(m_frames[m_firstFrame] >> KIND_SHIFT);
        ++m_firstFrame;
        ++m_counters.frames;
        if (kind == FrameKind::Update || kind == FrameKind::Playback)
            ++m_counters.updates;
        if (kind == FrameKind::Playback) {
            ++m_counters.playback;
            --m_playbackPending;
        }
        if (m_framesLeft > 0)
            --m_framesLeft;
    }
    if (m_firstFrame == m_frames.size() || m_firstFrame >= COMPACT_SIZE) {
        m_frames.erase(m_frames.begin(), m_frames.begin() + static_cast<std::ptrdiff_t>(m_firstFrame));
        m_firstFrame = 0;
    }
    if (m_head >= COMPACT_SIZE) {
        m_bytes.erase(0, m_head);
        m_head = 0;
    }
}

OutputCounters OutputQueue::takeCounters() {
    return std::exchange(m_counters, OutputCounters{});
}

} // namespace tivra_sim
