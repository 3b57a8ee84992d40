#include "OutputQueue.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace tivra_sim {

namespace {

constexpr unsigned kKindShift = 29;
constexpr std::uint32_t kLengthMask = (std::uint32_t{1} << kKindShift) - 1;
/// Written bytes are cut off the buffer once they are that many and no fewer than those that wait, which the
/// cut moves.
constexpr std::size_t kCompactSize = std::size_t{1} << 20;
/// An empty buffer gives its memory back once it has grown beyond this for a peer that was slow.
constexpr std::size_t kKeptSize = std::size_t{4} << 20;
/// Bytes that are compressed at once, unless a single frame is longer: each time costs a flush.
constexpr std::size_t kCompressionBatch = std::size_t{1} << 18;

/// Whether a compressor must not hold such a frame back.
bool isPushedOut(FrameKind kind) {
    return kind != FrameKind::Update && kind != FrameKind::Playback;
}

} // namespace

void OutputQueue::append(std::string_view frame, FrameKind kind) {
    if (frame.empty())
        return;
    m_bytes.append(frame);
    m_frames.push_back(static_cast<std::uint32_t>(frame.size()) |
                       (static_cast<std::uint32_t>(kind) << kKindShift));
    if (kind == FrameKind::Playback)
        ++m_playbackPending;
}

void OutputQueue::startCompression(int level, Flush flush) {
    if (!m_hasWritten && !m_compressor)
        m_compressor = std::make_unique<StreamCompressor>(level, flush);
}

std::size_t OutputQueue::frameLength(std::size_t frame) const {
    return m_frames[frame] & kLengthMask;
}

FrameKind OutputQueue::frameKind(std::size_t frame) const {
    return static_cast<FrameKind>(m_frames[frame] >> kKindShift);
}

bool OutputQueue::isInside() const {
    return isCompressed() ? m_compressedDone > 0 : m_frameDone > 0;
}

std::string_view OutputQueue::nextPiece() const {
    const std::string& bytes = isCompressed() ? m_compressed : m_bytes;
    const std::size_t begin = isCompressed() ? m_compressedDone : m_head;
    std::size_t piece = bytes.size() - begin;
    if (m_bytesLeft >= 0)
        piece = std::min(piece, static_cast<std::size_t>(m_bytesLeft));
    if (m_shape.size > 0)
        piece = std::min(piece, m_shape.size);
    if (m_framesLeft >= 0 || m_shape.offset > 0) {
        const std::size_t length = isCompressed() ? m_compressed.size() : frameLength(m_firstFrame);
        const std::size_t done = isCompressed() ? m_compressedDone : m_frameDone;
        const bool cut = m_shape.offset > 0 && length > m_shape.offset && done < m_shape.offset;
        piece = std::min(piece, (cut ? m_shape.offset : length) - done);
    }
    return std::string_view(bytes).substr(begin, piece);
}

void OutputQueue::compressNext() {
    if (!m_compressed.empty())
        return;
    // A frame that is to be cut, or counted down to a drop, is compressed for itself.
    const bool isExact = m_shape.offset > 0 || m_framesLeft >= 0;
    const bool oneByOne = isExact || m_compressor->takesFramesOneByOne();
    std::size_t frame = m_firstFrame;
    std::size_t length = frameLength(frame);
    const bool passes = frameKind(frame) == FrameKind::PastCompression;
    bool isUrgent = isExact || isPushedOut(frameKind(frame));
    while (!passes && !oneByOne && ++frame < m_frames.size() &&
           frameKind(frame) != FrameKind::PastCompression &&
           length + frameLength(frame) <= kCompressionBatch) {
        length += frameLength(frame);
        isUrgent = isUrgent || isPushedOut(frameKind(frame));
    }
    const std::string_view bytes = std::string_view(m_bytes).substr(m_head, length);
    if (passes)
        m_compressed = bytes;
    else
        m_compressor->compress(bytes, isUrgent, m_compressed);
    m_compressedFrom = length;
}

OutputQueue::Result OutputQueue::flush(int fd, TlsSession* tls, Clock::time_point now) {
    if (mustFinish())
        return Result::Finished;
    if (now < m_resumeAt)
        return pending() > 0 ? Result::Pausing : Result::Empty;
    while (pending() > 0) {
        if (isCompressed())
            compressNext();
        if (isCompressed() && m_compressed.empty()) {
            retire(m_compressedFrom); // the compressor holds it back
            continue;
        }
        const std::string_view piece = nextPiece();
        const ssize_t count = tls != nullptr
                                  ? tls->send(piece.data(), piece.size())
                                  : ::send(fd, piece.data(), piece.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count < 0) {
            if (errno == EINTR)
                continue;
            return errno == EAGAIN || errno == EWOULDBLOCK ? Result::Blocked : Result::Finished;
        }
        written(static_cast<std::size_t>(count));
        if (mustFinish())
            return Result::Finished;
        const bool pauses = m_shape.size > 0 || (m_shape.offset > 0 && isInside());
        if (pauses && m_shape.pause.count() > 0 && pending() > 0) {
            m_resumeAt = now + m_shape.pause;
            return Result::Pausing;
        }
    }
    m_bytes.clear();
    if (m_bytes.capacity() > kKeptSize)
        m_bytes.shrink_to_fit();
    m_head = 0;
    return Result::Empty;
}

void OutputQueue::written(std::size_t count) {
    m_hasWritten = true;
    m_counters.bytes += count;
    if (m_bytesLeft >= 0)
        m_bytesLeft -= static_cast<std::int64_t>(count);
    if (!isCompressed()) {
        retire(count);
        return;
    }
    m_compressedDone += count;
    if (m_compressedDone < m_compressed.size())
        return;
    m_compressed.clear();
    m_compressedDone = 0;
    retire(m_compressedFrom);
}

void OutputQueue::retire(std::size_t count) {
    m_head += count;
    m_frameDone += count;
    while (m_firstFrame < m_frames.size() && m_frameDone >= frameLength(m_firstFrame)) {
        m_frameDone -= frameLength(m_firstFrame);
        const FrameKind kind = frameKind(m_firstFrame);
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
    const std::size_t framesLeft = m_frames.size() - m_firstFrame;
    if (framesLeft == 0 || (m_firstFrame >= kCompactSize && m_firstFrame >= framesLeft)) {
        m_frames.erase(m_frames.begin(), m_frames.begin() + static_cast<std::ptrdiff_t>(m_firstFrame));
        m_firstFrame = 0;
    }
    if (m_head >= kCompactSize && m_head >= pending()) {
        m_bytes.erase(0, m_head);
        m_head = 0;
    }
}

OutputCounters OutputQueue::takeCounters() {
    return std::exchange(m_counters, OutputCounters{});
}

} // namespace tivra_sim
