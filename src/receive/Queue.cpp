// Set-up, the consumer's side, and frames that the library puts in itself.
#include "receive/Queue.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include <tp/eprintf.h>

#include "receive/FrameHandler.h"
#include "receive/QueueWaker.h"
#include "receive/RingFrame.h"
#include "receive/ServeTurn.h"

namespace tivra_internal {

namespace {

constexpr std::size_t kMegabyte = 1048576;
constexpr std::size_t kMinMegabytes = 1;
constexpr std::size_t kMaxMegabytes = 256;
constexpr std::size_t kMaxDesc = 255;
/// Where a frame goes that the end of the ring splits.
constexpr std::size_t kSplitCopy = Queue::kMaxBody;

std::size_t correctedSize(std::size_t megabytes) {
    if (megabytes < kMinMegabytes) {
        eprintf(EPF_WARN,
                "Requested Queue size of %ld megabytes is smaller than the minimum of %zu; will allocate %zu "
                "megabytes",
                static_cast<long>(megabytes), kMinMegabytes, kMinMegabytes);
        return kMinMegabytes;
    }
    if (megabytes > kMaxMegabytes) {
        eprintf(EPF_WARN,
                "Requested Queue size of %ld megabytes is larger than the maximumm of %zu; will allocate %zu "
                "megabytes",
                static_cast<long>(megabytes), kMaxMegabytes, kMaxMegabytes);
        return kMaxMegabytes;
    }
    return megabytes;
}

/// Allocates the ring, a smaller one when need be; corrects `megabytes` to what was possible.
char* allocateRing(std::size_t& megabytes) {
    for (;;) {
        if (void* block = std::malloc(megabytes * kMegabyte))
            return static_cast<char*>(block);
        eprintf(EPF_CRIT,
                "Failed to malloc Queue buffer with size (%zu) bytes; may need to lower requested "
                "QUEUE_SIZE_LONG",
                megabytes * kMegabyte);
        if (megabytes == kMinMegabytes)
            std::abort();
        megabytes = kMinMegabytes;
    }
}

} // namespace

Queue::Queue(std::size_t megabytes, bool useCompression, QueueHub* hub, int queueDepthThreshold)
    : m_compression(useCompression)
    , m_hub(hub)
    , m_splitCopy(std::make_unique_for_overwrite<char[]>(kSplitCopy))
    , m_warnThreshold(queueDepthThreshold) {
    megabytes = correctedSize(megabytes);
    m_block.reset(allocateRing(megabytes));
    m_size = megabytes * kMegabyte;
    m_q_check_bytes = m_size / 100;
    m_BufferStart = m_block.get();
    m_BufferEnd = m_BufferStart + m_size;
    m_readTimes.setRing(m_BufferStart, m_size);
    m_knownWritten = m_BufferStart;
    m_WriteStream = m_BufferStart;
    m_WriteQueue.store(m_BufferStart, std::memory_order_relaxed);
    m_ReadQueue.store(m_BufferStart, std::memory_order_relaxed);
    m_available_bytes.store(m_size, std::memory_order_relaxed);
    // A percent of a small ring is few bytes: its two thresholds stand apart, so that one read doesn't
    // toggle.
    m_warnDownThreshold = std::max(1, m_warnThreshold - 20 / static_cast<int>(megabytes));
    eprintf(EPF_DBUG, "m_warnDownThreshold=%d", m_warnDownThreshold);
}

Queue::~Queue() = default;

void Queue::setQueueHandler(FrameHandler* handler) {
    const Interruption interruption(m_interruptions);
    tp::MutexLock lock(m_reset_mutex);
    m_queueReadHandler = handler;
}

void Queue::setWaker(std::shared_ptr<QueueWaker> waker) {
    tp::MutexLock lock(m_write_mutex);
    m_waker.swap(waker);
}

void Queue::setsocketDesc(const std::string& desc) {
    tp::MutexLock lock(m_desc_mutex);
    m_socketDesc = desc.substr(0, kMaxDesc);
}

std::string Queue::getSocketDesc() const {
    tp::MutexLock lock(m_desc_mutex);
    return m_socketDesc;
}

bool Queue::isServedBeforeSleep() {
    // Taking the mutex orders this look against publish(): either it sees the new frame, or publish() sees
    // that its consumer is idle.
    tp::MutexLock lock(m_write_mutex);
    return isServed();
}

void Queue::movePointersToStart() {
    m_readTimes.clear(m_ReadQueue.load(std::memory_order_relaxed));
    m_WriteStream = m_BufferStart;
    m_knownWritten = m_BufferStart;
    {
        tp::MutexLock lock(m_write_mutex);
        m_WriteQueue.store(m_BufferStart, std::memory_order_release);
    }
    m_ReadQueue.store(m_BufferStart, std::memory_order_release);
}

void Queue::discardContents() {
    const char* const read = m_ReadQueue.load(std::memory_order_acquire);
    const uint64_t held = m_WriteStream >= read ? static_cast<uint64_t>(m_WriteStream - read)
                                                : m_size - static_cast<uint64_t>(read - m_WriteStream);
    if (held > 0) {
        // On the side that takes out: what came in whole has been counted as messages already.
        m_stats.out.cum_out_dropped_bytes.add(held);
        eprintf(EPF_WARN, "%s: Queue::discardContents: %lu bytes that waited for your callbacks are dropped",
                getSocketDesc().c_str(), held);
    }
    movePointersToStart();
}

void Queue::reset() {
    {
        const Interruption interruption(m_interruptions);
        tp::MutexLock lock(m_reset_mutex);
        discardContents();
        m_numOutstandingQueries.store(0, std::memory_order_relaxed);
        m_lastJitPct = 0;
        m_startJitIndex = 0;
        // Nobody is to take the level of the last connection for that of the next.
        m_pct_full.store(0, std::memory_order_relaxed);
        m_available_bytes.store(m_size, std::memory_order_relaxed);
        if (m_queueReadHandler != nullptr)
            m_queueReadHandler->reset();
    }
    m_lastRead.store(0.0, std::memory_order_relaxed);
    m_arrivedAt = m_lastReadMonotonic = kLongAgo;
    m_drainedAt = tp::Clock::monotonic();
    m_suspendReadFromSocket.store(false, std::memory_order_release);
    m_wakeBelow.store(-1, std::memory_order_relaxed);
    m_sawEndOfStream = false;
    m_streamError = 0;
    m_inputLeft = false;
    m_sawLife = false;
    m_isDeep = false;
    endGarbage();
}

bool Queue::writeToQueue(const char* kvn_str, std::size_t len) {
    std::shared_ptr<QueueWaker> sleeper;
    {
        tp::MutexLock lock(m_write_mutex);
        const char* const read = m_ReadQueue.load(std::memory_order_acquire);
        if (m_WriteStream == m_BufferEnd && read != m_BufferStart)
            m_WriteStream = m_BufferStart;
        std::size_t first = 0, second = 0; // room in one piece, and behind the wrap
        if (m_WriteStream < read) {
            first = static_cast<std::size_t>(read - m_WriteStream) - 1;
        } else {
            first = static_cast<std::size_t>(m_BufferEnd - m_WriteStream);
            if (read > m_BufferStart)
                second = static_cast<std::size_t>(read - m_BufferStart) - 1;
        }
        if (len > first + second)
            return false;
        if (len == 0)
            return true;
        const std::size_t inFirst = std::min(len, first);
        std::memcpy(m_WriteStream, kvn_str, inFirst);
        m_WriteStream += inFirst;
        if (len > inFirst) {
            std::memcpy(m_BufferStart, kvn_str + inFirst, len - inFirst);
            m_WriteStream = m_BufferStart + (len - inFirst);
        }
        m_WriteQueue.store(m_WriteStream, std::memory_order_release);
        if (m_waker != nullptr && m_waker->isIdle())
            sleeper = m_waker;
    }
    if (sleeper != nullptr)
        sleeper->wake();
    return true;
}

bool Queue::PopElement() {
    if (isServed())
        return false;
    tp::MutexLock lock(m_reset_mutex);
    if (!consumerMayDeliver())
        return false;
    const bool delivered = popOne();
    announceRoom();
    endConsuming();
    return delivered;
}

void Queue::popFrames(ServeTurn& turn) {
    if (isServed())
        return;
    tp::MutexLock lock(m_reset_mutex);
    if (!consumerMayDeliver())
        return;
    do
        popOne();
    while (!isServed() && m_interruptions.load(std::memory_order_relaxed) == 0 && turn.mayGoOn());
    announceRoom();
    endConsuming();
}

void Queue::runAsConsumer(const std::function<void()>& work) {
    tp::MutexLock lock(m_reset_mutex);
    // A reader doesn't wait for it.
    m_consumerDelivers.store(m_isInline, std::memory_order_seq_cst);
    work();
    endConsuming();
}

// The ring's space is released only after the application's callback has returned: a frame is decoded where
// it lies.
bool Queue::popOne() {
    char* read = m_ReadQueue.load(std::memory_order_relaxed);
    if (m_knownWritten == read) {
        m_knownWritten = m_WriteQueue.load(std::memory_order_acquire);
        m_readTimes.beginBatch(read, m_knownWritten);
    }
    char* const written = m_knownWritten;
    if (written == read)
        return false;
    if (read == m_BufferEnd)
        read = m_BufferStart;

    char* next = read;
    bool delivered = false;
    if (const std::size_t length = wholeFrameAt(read, written >= read ? written : m_BufferEnd)) {
        next = read + length;
        delivered = deliver(read, length);
    } else if (written != read) {
        FrameScan scan;
        delivered = popUnusual(read, written, scan) && deliver(scan.msgStart, scan.msgLen);
        next = scan.nextElement;
    }
    m_ReadQueue.store(next, std::memory_order_release);
    if (m_wakeBelow.load(std::memory_order_relaxed) >= 0)
        wakeIfRoom();
    return delivered;
}

// The loads of popOne may run ahead of its stores, and miss a producer that begins to wait. In the one order
// of all sequentially consistent accesses either this sees that it waits, or it sees the room.
void Queue::announceRoom() {
    m_ReadQueue.store(m_ReadQueue.load(std::memory_order_relaxed), std::memory_order_seq_cst);
    if (m_wakeBelow.load(std::memory_order_seq_cst) >= 0)
        wakeIfRoom();
}

// No frame lies whole at the very place.
bool Queue::popUnusual(char* read, char* written, FrameScan& scan) {
    return written > read ? popInPlace(read, written, scan) : popSplit(read, written, scan);
}

bool Queue::popInPlace(char* read, char* written, FrameScan& scan) {
    if (frameMessage({read, written}, scan, true))
        return true;
    if (scan.moreDataNeeded && scan.msgStart != written) {
        // Only whole frames are published: what claims to reach beyond them is no frame.
        scan.nextElement = scan.msgStart + 1;
        m_stats.out.cum_out_dropped_bytes.add(1);
    }
    return false;
}

bool Queue::popSplit(char* read, char* written, FrameScan& scan) {
    if (frameMessage({read, m_BufferEnd}, scan, true))
        return true;
    if (!scan.moreDataNeeded)
        return false;

    const auto firstPart = static_cast<std::size_t>(m_BufferEnd - scan.msgStart);
    const auto secondPart = static_cast<std::size_t>(written - m_BufferStart);
    eprintf(EPF_DBUG, "%s: Copy split message into a temporary buffer; dataSize=%zu", getSocketDesc().c_str(),
            firstPart + secondPart);
    eprintf(EPF_DBUG, "OUT --> %lu; OUT_DROP_BYTES=%lu; discardBytesThisMessage=%lu\n",
            m_stats.out.m_msgs_out.get(), m_stats.out.cum_out_dropped_bytes.get(), scan.discardBytes);
    if (firstPart + secondPart > kSplitCopy)
        eprintf(EPF_DBUG, "Truncate copy to dataSize=%zu", kSplitCopy);
    const std::size_t first = std::min(firstPart, kSplitCopy);
    const std::size_t second = std::min(secondPart, kSplitCopy - first);
    std::memcpy(m_splitCopy.get(), scan.msgStart, first);
    std::memcpy(m_splitCopy.get() + first, m_BufferStart, second);

    char* const copyEnd = m_splitCopy.get() + first + second;
    FrameScan copy;
    if (!frameMessage({m_splitCopy.get(), copyEnd}, copy, true)) {
        eprintf(EPF_DBUG, "Copy split case; 2nd frame failed: discardBytes=%lu; moreDataNeeded=%d",
                copy.discardBytes, copy.moreDataNeeded ? 1 : 0);
        skipInCopy(read, written, first + second, copy, scan);
        return false;
    }
    scan.nextElement =
        advance(scan.msgStart, firstPart, static_cast<std::size_t>(copy.nextElement - m_splitCopy.get()));
    scan.msgStart = copy.msgStart;
    scan.msgLen = copy.msgLen;
    return true;
}

/// The place in the ring that lies `count` bytes behind `position`, which has `firstLen` bytes in front of
/// the end.
char* Queue::advance(char* position, std::size_t firstLen, std::size_t count) const {
    return count < firstLen ? position + count : m_BufferStart + (count - firstLen);
}

// Finds where to go on in the ring after no frame came out of a copy of `copied` bytes.
void Queue::skipInCopy(char* read, char* written, std::size_t copied, const FrameScan& copy,
                       FrameScan& scan) {
    const auto firstLen = static_cast<std::size_t>(m_BufferEnd - scan.msgStart);
    const bool truncated = copied < firstLen + static_cast<std::size_t>(written - m_BufferStart);
    const auto startInCopy = static_cast<std::size_t>(copy.msgStart - m_splitCopy.get());
    const auto consumed = static_cast<std::size_t>(copy.nextElement - m_splitCopy.get());
    if (!copy.moreDataNeeded || startInCopy == copied) {
        // A start without a frame behind it, or no start at all. What was skipped in front of the copy is
        // scanned once more.
        scan.nextElement = advance(consumed < firstLen ? read : scan.msgStart, firstLen, consumed);
    } else if (!truncated) {
        // Only whole frames are published: what claims to reach beyond them is no frame.
        scan.nextElement = advance(scan.msgStart, firstLen, startInCopy + 1);
        m_stats.out.cum_out_dropped_bytes.add(1);
    } else if (startInCopy > 0) {
        // The copy ends within this frame, which may well be whole in the ring.
        scan.nextElement = advance(scan.msgStart, firstLen, startInCopy);
    } else {
        // A frame that no copy can hold, or a start that only claims so much.
        FrameScan whole;
        const bool isFrame = frameMessage({scan.msgStart, m_BufferEnd, m_BufferStart, written}, whole, false);
        scan.nextElement = isFrame ? whole.nextElement : advance(scan.msgStart, firstLen, 1);
        const uint64_t skipped = isFrame ? whole.msgLen : 1;
        m_stats.out.cum_out_dropped_bytes.add(skipped);
        if (isFrame)
            eprintf(EPF_WARN, "%s: Queue::PopElement: a split frame of %lu bytes is too long and is skipped",
                    getSocketDesc().c_str(), skipped);
    }
}

bool Queue::deliver(char* frame, std::size_t length) {
    if (m_queueReadHandler != nullptr) {
        uint64_t netMsgs = 0;
        const unsigned failed = m_queueReadHandler->process_kvn_buffer(frame, length, &netMsgs);
        m_stats.out.m_net_msgs_out.add(netMsgs);
        if (failed != 0) {
            m_stats.out.cum_out_dropped_bytes.add(failed);
            return false;
        }
    }
    m_stats.out.m_bytes_out.add(length);
    m_stats.out.m_msgs_out.add(1);
    const uint64_t delivered = m_stats.out.m_msgs_out.get();
    if (delivered % kMessagesPerLine == 0)
        eprintf(EPF_DBUG, "%s: OUT --> %lu; OUT_DROP_BYTES=%lu\n", getSocketDesc().c_str(), delivered,
                m_stats.out.cum_out_dropped_bytes.get());
    return true;
}

} // namespace tivra_internal
