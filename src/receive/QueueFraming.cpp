// The producer's side of the ring: where frames end.
#include "receive/Queue.h"

#include <cstring>
#include <utility>

#include <tp/eprintf.h>

#include "kvnparse/FrameFormat.h"
#include "receive/QueueWaker.h"
#include "receive/RingFrame.h"

namespace tivra_internal {

namespace {

using KVNAPI::ETX;
using KVNAPI::kKvnFrameExtra;
using KVNAPI::kKvnHeaderSize;
using KVNAPI::KVN_START;

/// Bytes without a frame that are worth a warning, and those that no hub sends.
constexpr uint64_t kMuchGarbage = 65536;
constexpr uint64_t kTooMuchGarbage = 1048576;

/// Counts the whole frames that follow each other from there on, and returns where they end.
char* passFrames(char* at, const char* end, uint64_t& frames) {
    while (const std::size_t length = wholeFrameAt(at, end)) {
        at += length;
        ++frames;
    }
    return at;
}

/// The first start byte, or `end`; adds the bytes in front of it to `skipped`.
char* findStart(char* from, char* end, uint64_t& skipped) {
    if (from < end && *from == KVN_START)
        return from;
    const auto length = static_cast<std::size_t>(end - from);
    void* const found = length > 0 ? std::memchr(from, KVN_START, length) : nullptr;
    char* const start = found != nullptr ? static_cast<char*>(found) : end;
    skipped += static_cast<uint64_t>(start - from);
    return start;
}

} // namespace

bool Queue::frameMessage(const Stretch& where, FrameScan& scan, bool logFaults) const {
    scan = FrameScan{};
    scan.nextElement = where.end;
    scan.msgStart = findStart(where.start, where.end, scan.discardBytes);
    if (const std::size_t whole = wholeFrameAt(scan.msgStart, where.end)) {
        scan.nextElement = scan.msgStart + whole;
        scan.msgLen = whole;
        return true;
    }
    const auto remaining = static_cast<std::size_t>(where.end - scan.msgStart);
    uint32_t length = 0;
    if (remaining >= kKvnHeaderSize) {
        length = KVNAPI::frameBodyLength(scan.msgStart);
        if (length > kMaxBody) {
            ++scan.discardBytes;
            scan.nextElement = scan.msgStart + 1;
            if (logFaults)
                eprintf(EPF_DBUG,
                        "%s: frameMessage: Bad length; %u > %u; *discardBytes=%lu; pos=%p; end =%p; "
                        "bufferStart=%p, bufferEnd=%p; data_remaining=%zu\n",
                        getSocketDesc().c_str(), length, kMaxBody, scan.discardBytes,
                        static_cast<void*>(scan.msgStart), static_cast<void*>(where.end),
                        static_cast<void*>(where.start), static_cast<void*>(where.end), remaining);
            return false;
        }
        if (length + kKvnHeaderSize < remaining) {
            const char* const last = scan.msgStart + kKvnHeaderSize + length;
            ++scan.discardBytes;
            scan.nextElement = scan.msgStart + 1;
            if (logFaults)
                eprintf(EPF_DBUG, "%s: frameMessage: Bad eom char: expected x%x, but found x%x\n",
                        getSocketDesc().c_str(), static_cast<unsigned>(ETX),
                        static_cast<unsigned>(static_cast<unsigned char>(*last)));
            return false;
        }
    }
    scan.moreDataNeeded = true;
    return where.start2 != nullptr && frameInSecond(where, length, scan, logFaults);
}

// The first stretch holds no whole frame; `length` is 0 when it holds no whole length either.
bool Queue::frameInSecond(const Stretch& where, uint32_t length, FrameScan& scan, bool logFaults) const {
    scan.moreDataNeeded = false;
    scan.nextElement = where.end2;
    const auto firstLen = static_cast<std::size_t>(where.end - scan.msgStart);
    char* second = where.start2;
    if (firstLen == 0) {
        if (logFaults)
            eprintf(EPF_DBUG,
                    "%s: frameMessage: firstSegLen == 0; so moving pos back to start; secondSegLen=%zu; "
                    "*discardBytes=%lu",
                    getSocketDesc().c_str(), static_cast<std::size_t>(where.end2 - where.start2),
                    scan.discardBytes);
        scan.msgStart = second = findStart(where.start2, where.end2, scan.discardBytes);
        if (second == where.end2) {
            scan.moreDataNeeded = true;
            return false;
        }
    }
    const std::size_t remaining = firstLen + static_cast<std::size_t>(where.end2 - second);
    if (remaining < kKvnHeaderSize) {
        scan.moreDataNeeded = true;
        return false;
    }
    const auto byteAt = [&](std::size_t i) -> unsigned char {
        return static_cast<unsigned char>(i < firstLen ? scan.msgStart[i] : second[i - firstLen]);
    };
    if (length == 0) {
        for (std::size_t i = 2; i < kKvnHeaderSize; ++i)
            length = length << 8 | byteAt(i);
    }
    if (length > kMaxBody) {
        ++scan.discardBytes;
        scan.nextElement = scan.msgStart + 1;
        if (logFaults)
            eprintf(EPF_DBUG,
                    "%s: frameMessage: 2nd segment: Bad length; %u > %u; *discardBytes=%lu; pos=%p; end =%p; "
                    "bufferStart=%p, bufferEnd=%p; data_remaining=%zu; *nextElement=%p\n",
                    getSocketDesc().c_str(), length, kMaxBody, scan.discardBytes,
                    static_cast<void*>(scan.msgStart), static_cast<void*>(where.end2),
                    static_cast<void*>(where.start2), static_cast<void*>(where.end2), remaining,
                    static_cast<void*>(scan.nextElement));
        return false;
    }
    const std::size_t last = kKvnHeaderSize + length;
    if (last >= remaining) {
        scan.moreDataNeeded = true;
        return false;
    }
    if (byteAt(last) != static_cast<unsigned char>(ETX)) {
        ++scan.discardBytes;
        scan.nextElement = scan.msgStart + 1;
        return false;
    }
    scan.nextElement = second + (last + 1 - firstLen);
    scan.msgLen = last + 1;
    return true;
}

// The bytes that are not framed yet; false when the pointers contradict each other.
bool Queue::unframed(Stretch& where) const {
    char* start = m_WriteQueue.load(std::memory_order_relaxed);
    if (start == m_BufferEnd && m_WriteStream != m_BufferStart)
        start = m_BufferStart;
    if (start <= m_WriteStream) {
        where = {start, m_WriteStream};
        return true;
    }
    where = {start, m_BufferEnd, m_BufferStart, m_WriteStream};
    const auto firstLen = static_cast<std::size_t>(m_BufferEnd - start);
    const auto secondLen = static_cast<std::size_t>(m_WriteStream - m_BufferStart);
    if (firstLen <= m_size && secondLen <= m_size)
        return true;
    eprintf(EPF_CRIT,
            "%s: Queue::PushMessage: ABOUT to ABORT! isWraparound = true; firstSegLen=%zu; secondSegLen=%zu; "
            "m_BufferEnd=%p; pos=%p; end=%p; m_BufferStart=%p\n",
            getSocketDesc().c_str(), firstLen, secondLen, static_cast<void*>(m_BufferEnd),
            static_cast<void*>(start), static_cast<void*>(m_WriteStream), static_cast<void*>(m_BufferStart));
    return false;
}

// What is left of a stretch behind a position in it, which may lie on the end of the ring or beyond.
Queue::Stretch Queue::behind(const Stretch& where, char* position) {
    if (where.start2 == nullptr)
        return {position, where.end};
    if (position == where.end)
        return {where.start2, where.end2};
    if (position <= where.end2)
        return {position, where.end2};
    return {position, where.end, where.start2, where.end2};
}

bool Queue::PushMessage() {
    Stretch where{};
    if (!unframed(where)) {
        startAfresh();
        return true;
    }
    char* lastValid = nullptr;
    FrameScan scan;
    uint64_t frames = 0, bytes = 0;
    // Since the last frame, and in front of it; what follows the last one is looked at once more.
    uint64_t skipped = 0, skippedInAll = 0;
    bool mustClose = false;
    while (where.start < where.end) {
        if (skipped + m_garbage == 0) {
            // As nearly always: one whole frame after the other.
            char* const end = passFrames(where.start, where.end, frames);
            if (end != where.start) {
                bytes += static_cast<uint64_t>(end - where.start);
                lastValid = end;
                where = behind(where, end);
                continue;
            }
        }
        const bool valid = frameMessage(where, scan, skipped + skippedInAll == 0);
        where = behind(where, scan.nextElement);
        skipped += scan.discardBytes;
        if (!valid)
            continue;
        lastValid = scan.nextElement;
        if (skipped + m_garbage > 0) {
            mustClose |= countGarbage(skipped);
            endGarbage();
            skippedInAll += skipped;
            skipped = 0;
        }
        ++frames;
        bytes += scan.msgLen;
    }
    countFrames(frames, bytes);

    char* target = lastValid;
    if (target == nullptr && skipped > 0) {
        // Garbage that has been looked at need not be scanned again.
        target = scan.moreDataNeeded ? scan.msgStart : scan.nextElement;
        mustClose |= countGarbage(skipped);
        skippedInAll += skipped;
    }
    countSkipped(skippedInAll);
    if (target == nullptr)
        return false;
    if (target > m_BufferEnd) {
        eprintf(EPF_CRIT,
                "%s: Queue::PushMessage: discardBytes=%lu; about to set m_WriteQueue from nextElement=%p; "
                "calling "
                "ABORT",
                getSocketDesc().c_str(), scan.discardBytes, static_cast<void*>(target));
        startAfresh();
        return true;
    }
    m_readTimes.add(target, m_arrivedAt, m_drainedAt);
    publish(target);
    // Only now: a consumer that has taken all that was published before makes a full ring look empty.
    if (m_bytes_in_since_last_q_check > m_q_check_bytes) {
        calcQueueFullStats();
        m_bytes_in_since_last_q_check = 0;
    }
    return mustClose;
}

void Queue::countFrames(uint64_t frames, uint64_t bytes) {
    if (frames == 0)
        return;
    m_sawLife = true;
    m_bytes_in_since_last_q_check += bytes;
    m_stats.in.m_bytes_in.add(bytes);
    const uint64_t before = m_stats.in.m_msgs_in.get();
    m_stats.in.m_msgs_in.add(frames);
    if (before / kMessagesPerLine != (before + frames) / kMessagesPerLine)
        eprintf(EPF_DBUG, "%s: IN --> %lu; DROP --> %lu\n", getSocketDesc().c_str(),
                m_stats.in.m_msgs_in.get(), m_stats.in.cum_dropped_bytes.get());
}

void Queue::countSkipped(uint64_t bytes) {
    if (bytes == 0)
        return;
    m_stats.in.cum_dropped_bytes.add(bytes);
    eprintf(EPF_DBUG, "%s: Queue::PushMessage: discarded %lu bytes to resync", getSocketDesc().c_str(),
            bytes);
}

bool Queue::countGarbage(uint64_t bytes) {
    m_garbage += bytes;
    if (m_garbage >= kTooMuchGarbage) {
        eprintf(EPF_WARN, "%s: Queue::PushMessage: %lu bytes without a frame - Connection will be Reset",
                getSocketDesc().c_str(), m_garbage);
        return true;
    }
    if (m_garbage >= kMuchGarbage && !std::exchange(m_garbageTold, true))
        eprintf(EPF_WARN, "%s: Queue::PushMessage: %lu bytes without a frame", getSocketDesc().c_str(),
                m_garbage);
    return false;
}

// Frames that find no room are a sign of life all the same. Only what comes after garbage has to be looked
// at: otherwise it was frames that filled the ring.
bool Queue::judgeDropped(Stretch where) {
    uint64_t skipped = 0;
    while (m_garbage > 0 && where.start < where.end) {
        FrameScan scan;
        if (frameMessage(where, scan, false))
            endGarbage();
        skipped += scan.discardBytes;
        where.start = scan.nextElement;
    }
    m_sawLife = m_sawLife || m_garbage == 0;
    return m_garbage > 0 && countGarbage(skipped);
}

void Queue::endGarbage() {
    m_garbage = 0;
    m_garbageTold = false;
}

void Queue::publish(char* position) {
    std::shared_ptr<QueueWaker> sleeper;
    {
        tp::MutexLock lock(m_write_mutex);
        m_WriteQueue.store(position, std::memory_order_release);
        if (!m_deliversRead.load(std::memory_order_relaxed) && m_waker != nullptr && m_waker->isIdle())
            sleeper = m_waker;
    }
    if (sleeper != nullptr)
        sleeper->wake();
}

void Queue::startAfresh() {
    const Interruption interruption(m_interruptions);
    tp::MutexLock lock(m_reset_mutex);
    discardContents();
}

} // namespace tivra_internal
