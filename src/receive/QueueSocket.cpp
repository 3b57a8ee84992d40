// The producer's side of the ring: from the socket into it.
#include "receive/Queue.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <tp/Clock.h>
#include <tp/eprintf.h>
#include <tp/isTransient.h>
#include <tp/te_error.h>

#include "kvnparse/StreamParser.h"
#include "receive/StampedRead.h"

namespace tivra_internal {

namespace {

/// How long before the hub gives an idle reader up a suspended queue reads after all, in seconds.
constexpr double kForceMargin = 5.0;
/// The age of the last read, in seconds, that makes a forced read worth a notice.
constexpr double kTooSlow = 60.0;
/// The most that one read cycle inflates: a few compressed bytes can hold very many, and the thread serves
/// other hubs too.
constexpr std::size_t kMaxInflated = 16U << 20;

/// The most that a read brings whose callbacks the same thread runs: they find it in the processor's cache,
/// other hubs don't wait for long, and little piles up in the ring while callbacks are slow.
constexpr std::size_t kInlineRead = 262144;

} // namespace

bool Queue::readFromSocketThenWriteToQueue(const tp::ByteStream& stream, KVNAPI::StreamParser* parser,
                                           double curtime) {
    beginInlineRead();
    const bool mustClose = readOnce(stream, parser, curtime);
    endInlineRead();
    return mustClose;
}

bool Queue::readOnce(const tp::ByteStream& stream, KVNAPI::StreamParser* parser, double curtime) {
    const ReadMode mode = chooseReadMode(curtime);
    if (mode == ReadMode::Refused)
        return false;
    Room room = findRoom(mode);
    if (room.available < MIN_AVAIL_LEN) {
        if (mode == ReadMode::Normal && !mayHoldReads())
            return readWithoutRoom(stream);
        if (mode == ReadMode::Normal) {
            // Whatever the threshold: what is dropped now might be an answer, or a part of one.
            changeSuspension(true);
            return false;
        }
        if (room.available == 0) {
            eprintf(
                EPF_DBUG,
                "%s: Queue::readFromSocketThenWriteToQueue: queue is full; this forced read will be skipped",
                getSocketDesc().c_str());
            return false;
        }
        eprintf(EPF_DBUG,
                "%s: Queue::readFromSocketThenWriteToQueue: available_len (%zu) < MIN_AVAIL_LEN (%zu); will "
                "allow 1 "
                "byte read",
                getSocketDesc().c_str(), room.available, MIN_AVAIL_LEN);
        room.length = 1;
    }
    if (!m_compression)
        return readPlain(stream, std::min(room.length, mostOfARead()), curtime);
    return parser == nullptr || readCompressed(stream, *parser, room, mode, curtime);
}

bool Queue::continueInflating(const tp::ByteStream& stream, KVNAPI::StreamParser* parser, double curtime) {
    if (!m_inputLeft || parser == nullptr)
        return false;
    const ReadMode mode = chooseReadMode(curtime);
    if (mode == ReadMode::Refused)
        return false;
    const Room room = findRoom(mode);
    return room.available >= MIN_AVAIL_LEN && readCompressed(stream, *parser, room, mode, curtime);
}

bool Queue::takeOver(KVNAPI::bufref bytes) {
    if (bytes.len == 0)
        return false;
    leaveEnd(m_ReadQueue.load(std::memory_order_acquire));
    const Room room = roomAt(m_ReadQueue.load(std::memory_order_acquire));
    if (bytes.len > room.length) {
        eprintf(EPF_WARN, "%s: Queue::takeOver: no room for %lu bytes of the stream", getSocketDesc().c_str(),
                bytes.len);
        return true;
    }
    std::memcpy(m_WriteStream, bytes.buf, bytes.len);
    m_WriteStream += bytes.len;
    return PushMessage();
}

Queue::ReadMode Queue::chooseReadMode(double curtime) const {
    if (!readsSuspended())
        return ReadMode::Normal;
    const double waited = tp::Clock::monotonic() - m_lastReadMonotonic;
    if (waited >= 0.0 && waited < m_HubIdleTimeout - kForceMargin)
        return ReadMode::Refused;
    const double age = curtime - m_lastRead.load(std::memory_order_relaxed);
    if (waited > kTooSlow)
        eprintf(EPF_INFO, "%s: Force read after %f secs; m_pct_full=%d; client is reading too slow\n",
                getSocketDesc().c_str(), age, getPctFull());
    else
        eprintf(EPF_DBUG, "%s: Force read after %f secs; m_pct_full=%d \n", getSocketDesc().c_str(), age,
                getPctFull());
    return ReadMode::Forced;
}

std::size_t Queue::mostOfARead() const {
    return m_isInline ? kInlineRead : m_size;
}

void Queue::leaveEnd(const char* read) {
    if (m_WriteStream == m_BufferEnd && read != m_BufferStart)
        m_WriteStream = m_BufferStart;
}

Queue::Room Queue::roomAt(const char* read) const {
    if (read <= m_WriteStream) {
        const auto toEnd = static_cast<std::size_t>(m_BufferEnd - m_WriteStream);
        return {toEnd, toEnd + static_cast<std::size_t>(read - m_BufferStart)};
    }
    // One byte stays free, so that a full ring doesn't look like an empty one.
    const auto gap = static_cast<std::size_t>(read - m_WriteStream) - 1;
    return {gap, gap};
}

Queue::Room Queue::findRoom(ReadMode mode) {
    char* const read = m_ReadQueue.load(std::memory_order_acquire);
    leaveEnd(read);
    Room room = roomAt(read);
    if (room.available < MIN_AVAIL_LEN && read == m_WriteQueue.load(std::memory_order_relaxed)) {
        // The consumer has taken everything: what fills the ring is a frame that can never complete.
        eprintf(EPF_WARN, "Queue is full but no valid message in queue; discarding queue contents\n");
        m_stats.in.cum_dropped_bytes.add(m_size);
        room.length = room.available = static_cast<std::size_t>(m_BufferEnd - m_WriteStream);
        if (room.length < MIN_AVAIL_LEN) {
            m_WriteStream = read;
            leaveEnd(read);
            room = roomAt(read);
        }
    }
    if (mode == ReadMode::Forced)
        room.length = std::min(room.length, MIN_AVAIL_LEN);
    return room;
}

// The consumer is behind. A plain stream goes on with what comes later; a compressed one is worth nothing
// after a gap.
bool Queue::readWithoutRoom(const tp::ByteStream& stream) {
    eprintf(EPF_WARN, "%s: Queue::readFromSocketThenWriteToQueue: queue is full; this read will be dropped",
            getSocketDesc().c_str());
    if (m_compression) {
        calcQueueFullStats(); // the application hears of the queue before it hears of the loss
        eprintf(EPF_WARN, "%s: === Queue is full - Connection will be Reset ===; fd=%d",
                getSocketDesc().c_str(), stream.fd());
        return true;
    }
    char dropped[MIN_AVAIL_LEN];
    const ssize_t got = stream.read(dropped, sizeof dropped);
    if (got > 0) {
        m_stats.in.cum_dropped_bytes.add(static_cast<uint64_t>(got));
        dropUnframed();
        return judgeDropped({dropped, dropped + got});
    }
    if (got == 0) {
        m_sawEndOfStream = true;
    } else if (!tp::isTransient(errno)) {
        m_streamError = errno;
        eprintf(EPF_CRIT, "read error from socket: errno=%d\n", m_streamError);
        m_sawEndOfStream = true;
    }
    return false;
}

// The beginning of a frame, and what comes behind a hole, might look like a whole one.
void Queue::dropUnframed() {
    char* const end = m_WriteQueue.load(std::memory_order_relaxed);
    const auto unframed = m_WriteStream - end + (m_WriteStream < end ? m_BufferEnd - m_BufferStart : 0);
    m_stats.in.cum_dropped_bytes.add(static_cast<uint64_t>(unframed));
    m_WriteStream = end;
}

bool Queue::readPlain(const tp::ByteStream& stream, std::size_t length, double curtime) {
    double arrivedAt = 0.0;
    // What a layer hands out has come to this machine in other pieces.
    const bool isStamped = m_readsStamped && !stream.isLayered();
    const ssize_t got = isStamped ? readStamped(stream.fd(), m_WriteStream, length, arrivedAt)
                                  : stream.read(m_WriteStream, length);
    if (got > 0) {
        m_WriteStream += got;
        noteRead(curtime);
        if (static_cast<std::size_t>(got) < length && !stream.hasUnread())
            m_drainedAt = m_lastReadMonotonic;
        if (isStamped)
            m_arrivedAt = arrivedAt;
        return PushMessage();
    }
    // Neither a close nor an error is acted on here: what has come is still delivered, and the supervisor
    // finds the connection gone.
    if (got == 0) {
        m_sawEndOfStream = true;
    } else if (!tp::isTransient(errno)) {
        m_streamError = errno;
        eprintf(EPF_CRIT, "read error from socket: errno=%d\n", m_streamError);
        m_sawEndOfStream = true;
    }
    return false;
}

bool Queue::readCompressed(const tp::ByteStream& stream, KVNAPI::StreamParser& parser, Room room,
                           ReadMode mode, double curtime) {
    bool inputLeft = m_inputLeft;
    for (std::size_t total = 0;;) {
        m_inputLeft = false;
        std::size_t space = 0;
        const auto got = parser.push(stream, &space);
        if (got < 0 && !tp::isTransient(errno)) {
            eprintf(EPF_WARN, "KVNAPI::StreamParser error: %s - Connection will be Reset ===; fd=%d",
                    tp::te_geterror(), stream.fd());
            return true;
        }
        const bool inputFull = space == 0;
        m_inputIsAll =
            !inputFull && static_cast<std::size_t>(std::max<int64_t>(got, 0)) < space && !stream.hasUnread();
        const bool closed = got == 0 && !inputFull;
        if (got > 0 && !inputFull)
            m_stats.in.m_compressed_bytes_in.add(static_cast<uint64_t>(got));
        if (closed && !inputLeft) {
            eprintf(EPF_WARN, "=== Socket Close Detected on Read - Connection will be Reset ===; fd=%d",
                    stream.fd());
            return true;
        }
        std::size_t produced = 0;
        if (inflateOnce(parser, stream.fd(), room.length, curtime, produced))
            return true;
        // A full input that yields nothing will never yield anything.
        if (inputFull && produced == 0)
            return true;
        if (produced < room.length) {
            inputLeft = false;
            if (!closed)
                return false;
            continue; // all input is used up: the close counts now
        }
        m_inputLeft = inputLeft = true;
        total += produced;
        if (mode == ReadMode::Forced || total >= kMaxInflated)
            return false;
        room = findRoom(mode);
        if (room.available < MIN_AVAIL_LEN)
            return false;
    }
}

bool Queue::inflateOnce(KVNAPI::StreamParser& parser, int fd, std::size_t length, double curtime,
                        std::size_t& produced) {
    KVNAPI::bufref out{m_WriteStream, length};
    if (parser.pull(&out) != 0) {
        eprintf(EPF_WARN, "%s: Queue::readFromSocketThenWriteToQueue pull error: %s", getSocketDesc().c_str(),
                tp::te_geterror());
        return true;
    }
    produced = out.len;
    if (produced == 0)
        return false;
    if (produced > length) {
        eprintf(EPF_CRIT, "%s: Queue::readFromSocketThenWriteToQueue: fd=%d: pull returned %zu bytes for %zu",
                getSocketDesc().c_str(), fd, produced, length);
        return true;
    }
    m_WriteStream += produced;
    noteRead(curtime);
    if (m_inputIsAll && produced < length)
        m_drainedAt = m_lastReadMonotonic;
    return PushMessage();
}

void Queue::noteRead(double curtime) {
    m_lastRead.store(curtime, std::memory_order_relaxed);
    m_arrivedAt = m_lastReadMonotonic = tp::Clock::monotonic();
}

} // namespace tivra_internal
