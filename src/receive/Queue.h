#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include <tp/ByteStream.h>
#include <tp/Clock.h>
#include <tp/Mutex.h>

#include "LockOrder.h"
#include "kvnparse/FrameFormat.h"
#include "kvnparse/bufref.h"
#include "receive/QueueStatistics.h"
#include "receive/ReadTimes.h"

namespace KVNAPI {
class StreamParser;
} // namespace KVNAPI

namespace tivra_internal {

class FrameHandler;
class QueueHub;
class QueueWaker;
class ServeTurn;

/// The ring of bytes between one hub connection and its decoder, with its flow control and counters. The hub
/// thread reads the socket straight into it and finds where frames end; the user thread takes whole frames
/// out, in place wherever possible. It lives as long as its connection object and outlives connections.
///
/// From m_ReadQueue to m_WriteQueue lie complete frames, possibly with garbage between them; from
/// m_WriteQueue to m_WriteStream bytes that are not framed yet; the rest is free. Each region may wrap around
/// the end.
class Queue {
public:
    /// The smallest free space in which a normal read goes ahead, and the most that a forced one reads.
    static constexpr std::size_t MIN_AVAIL_LEN = 24576;
    /// The longest body of a frame.
    static constexpr uint32_t kMaxBody = KVNAPI::kKvnMaxBody;

    /// `megabytes` is corrected to 1..256. `hub` gets the fill reports; it may be null and is borrowed.
    Queue(std::size_t megabytes, bool useCompression, QueueHub* hub, int queueDepthThreshold);
    ~Queue();
    Queue(const Queue&) = delete;
    Queue& operator=(const Queue&) = delete;

    // --- set-up ---
    /// The decoder of this queue's frames, or null; borrowed. Waits for a running callback. @thread any
    void setQueueHandler(FrameHandler* handler) TP_EXCLUDES(m_reset_mutex);
    /// Whom to wake when frames come in; null for nobody. @thread any
    void setWaker(std::shared_ptr<QueueWaker> waker) TP_EXCLUDES(m_write_mutex);
    /// From now on a read delivers what is in the ring by itself, unless there is no consumer, or one in a
    /// slow callback.
    /// @thread any, before the first read
    void setInlineDelivery() noexcept { m_isInline = true; }
    /// From now on reads are held back for want of room whether an answer is due or not.
    /// @thread any, before the first read
    void setHoldReads() noexcept { m_holdsReads = true; }
    /// From now on frames of a plain stream have the time when the kernel got them, if the socket has it.
    /// @thread any, before the first read
    void setStampedReads() noexcept { m_readsStamped = true; }
    /// The connection's name for log lines; at most 255 bytes are kept. @thread any
    void setsocketDesc(const std::string& desc) TP_EXCLUDES(m_desc_mutex);
    [[nodiscard]] std::string getSocketDesc() const TP_EXCLUDES(m_desc_mutex);

    // --- producer; @thread hub ---
    /// One read cycle, with the callbacks for what has come where delivery is inline. True when the
    /// connection must be closed.
    [[nodiscard]] bool readFromSocketThenWriteToQueue(const tp::ByteStream& stream,
                                                      KVNAPI::StreamParser* parser, double curtime);
    /// Goes on with input that had to wait for room (hasInputLeft). True when the connection must be closed.
    [[nodiscard]] bool continueInflating(const tp::ByteStream& stream, KVNAPI::StreamParser* parser,
                                         double curtime);
    /// Takes over bytes of the stream that were read before the queue got the socket. True when the
    /// connection must be closed.
    [[nodiscard]] bool takeOver(KVNAPI::bufref bytes);
    /// Discards everything, for a new connection. Waits for a running callback.
    void reset() TP_EXCLUDES(m_reset_mutex);

    /// Reads are held back until the consumer has caught up: watching the socket would only spin.
    [[nodiscard]] bool readsSuspended() const noexcept {
        return m_suspendReadFromSocket.load(std::memory_order_acquire);
    }
    /// The caller is about to wait for the consumer, who will call QueueHub::roomForReads once when reads can
    /// go on. False when they can go on already.
    [[nodiscard]] bool awaitRoom();
    /// The same for a queue that is to be empty before another connection may fill it; true when it is.
    [[nodiscard]] bool awaitEmpty();
    /// Whether the peer has shown since the last call that it is a hub: by a whole frame, or by filling the
    /// ring.
    [[nodiscard]] bool takeSignOfLife() noexcept { return std::exchange(m_sawLife, false); }
    /// The peer has closed or the socket has failed: there is nothing to watch any more.
    [[nodiscard]] bool sawEndOfStream() const noexcept { return m_sawEndOfStream; }
    /// errno of the read that has ended the stream; 0 when the peer has closed it.
    [[nodiscard]] int streamError() const noexcept { return m_streamError; }
    /// Compressed input waits for room in the ring.
    [[nodiscard]] bool hasInputLeft() const noexcept { return m_inputLeft; }

    /// Puts a complete frame, built by the library itself, into the ring; false when it doesn't fit. Only for
    /// the queue of a connection without a socket. @thread any
    [[nodiscard]] bool writeToQueue(const char* kvn_str, std::size_t len) TP_EXCLUDES(m_write_mutex);

    // --- consumer; @thread user ---
    /// Delivers one frame; true when a message went out. Like popFrames it leaves all frames to a reader that
    /// is about to deliver them itself.
    bool PopElement() TP_EXCLUDES(m_reset_mutex);
    /// Delivers one frame after the other until none waits or `turn` ends.
    void popFrames(ServeTurn& turn) TP_EXCLUDES(m_reset_mutex);
    /// When the frame that is being delivered was read, by the monotonic clock; 0 where that isn't known.
    /// @thread that delivers, during delivery
    [[nodiscard]] double frameReadAt() const noexcept {
        return m_readTimes.timeOf(m_ReadQueue.load(std::memory_order_relaxed));
    }
    /// By then, on the same clock, nothing had come to this machine but what has been delivered; 0 where
    /// nothing has. While the reader is slow that is earlier than the last read: more waits in the socket.
    /// @thread that delivers, or while nobody does
    [[nodiscard]] double deliveredUpTo() const noexcept {
        return m_readTimes.drainedUpTo(m_ReadQueue.load(std::memory_order_relaxed));
    }
    /// Calls `work` while no frame is being delivered.
    void runAsConsumer(const std::function<void()>& work) TP_EXCLUDES(m_reset_mutex);
    /// No complete frame waits.
    [[nodiscard]] bool isEmpty() const noexcept {
        return m_WriteQueue.load(std::memory_order_acquire) == m_ReadQueue.load(std::memory_order_relaxed);
    }
    /// No complete frame waits for the consumer: there is none, or the reader is about to deliver it itself.
    [[nodiscard]] bool isServed() const noexcept {
        return isEmpty() || m_deliversRead.load(std::memory_order_relaxed);
    }
    /// As isServed, and ordered against publication: a frame that this misses wakes whoever announced
    /// idleness before the call.
    [[nodiscard]] bool isServedBeforeSleep() TP_EXCLUDES(m_write_mutex);

    // --- flow control ---
    /// Reports the fill level to the hub from `jitThreshold` percent on. @thread hub
    void setJit(int jitThreshold);
    /// @thread hub
    void incrQueryCount();
    /// @thread user
    void decrQueryCount();
    [[nodiscard]] int64_t getQueryCount() const noexcept {
        return m_numOutstandingQueries.load(std::memory_order_relaxed);
    }
    /// The fill check: level, report to the hub, suspension of reads. @thread hub
    void calcQueueFullStats();
    /// Until more bytes come in, another fill check would find what the last one has. @thread hub
    [[nodiscard]] bool isQuiet() const;

    // --- statistics ---
    /// True when something has come in since the last time. @thread hub
    bool calcStats(double curtime);
    /// True when something has gone out since the last time. With inline delivery, which wakes no consumer
    /// for its tick, calcStats looks at both sides and this at none. @thread user
    bool calcStatsOut(double curtime) { return !m_isInline && m_stats.calcStatsOut(curtime); }
    /// Rotates the counters at the end of a second or an interval, or logs the totals when it is neither.
    void printStats(bool endOfInterval, bool endOfSecond, double curtime);
    void updateHubDrops(uint64_t hubDrops) { m_stats.updateHubDrops(hubDrops); }

    [[nodiscard]] int getPctFull() const noexcept { return m_pct_full.load(std::memory_order_relaxed); }
    [[nodiscard]] int getPeakPctFull() const noexcept {
        return m_report_peak_pct_full.load(std::memory_order_relaxed);
    }
    /// The totals and the figures derived from them, which may be one tick old.
    [[nodiscard]] const QueueStatistics& statistics() const noexcept { return m_stats; }
    /// Percent below which suspended reads resume.
    [[nodiscard]] int getWarnDownThreshold() const noexcept { return m_warnDownThreshold; }

private:
    struct FreeBlock {
        void operator()(char* block) const noexcept { std::free(block); }
    };
    /// One or two stretches of the ring to look for a frame in; the second is null when there is one only.
    struct Stretch {
        char* start;
        char* end;
        char* start2 = nullptr;
        char* end2 = nullptr;
    };
    /// Somebody waits for m_reset_mutex: the consumer stops after the frame that it is at.
    class Interruption {
    public:
        explicit Interruption(std::atomic<int>& count) noexcept : m_count(count) { ++m_count; }
        ~Interruption() { --m_count; }
        Interruption(const Interruption&) = delete;
        Interruption& operator=(const Interruption&) = delete;

    private:
        std::atomic<int>& m_count;
    };
    /// What was found in a stretch.
    struct FrameScan {
        char* msgStart = nullptr;    ///< the start byte, or the end of what was searched
        char* nextElement = nullptr; ///< where to go on
        uint64_t discardBytes = 0;
        uint64_t msgLen = 0;
        bool moreDataNeeded = false;
    };
    /// How many bytes the next read may bring, and how many are free in all.
    struct Room {
        std::size_t length;
        std::size_t available;
    };
    /// A debug line with the totals goes out each time that so many messages have come in, or gone out.
    static constexpr uint64_t kMessagesPerLine = 1'000'000;
    static constexpr double kLongAgo = -1e9;

    enum class ReadMode { Normal, Forced, Refused };

    // QueueFraming.cpp
    [[nodiscard]] bool frameMessage(const Stretch& where, FrameScan& scan, bool logFaults) const;
    [[nodiscard]] bool frameInSecond(const Stretch& where, uint32_t length, FrameScan& scan,
                                     bool logFaults) const;
    /// Moves m_WriteQueue over the complete frames. True when the connection must be closed.
    [[nodiscard]] bool PushMessage();
    [[nodiscard]] bool unframed(Stretch& where) const;
    [[nodiscard]] static Stretch behind(const Stretch& where, char* position);
    void publish(char* position) TP_EXCLUDES(m_write_mutex);
    void countFrames(uint64_t frames, uint64_t bytes);
    void countSkipped(uint64_t bytes);
    /// True when the connection must be closed.
    [[nodiscard]] bool countGarbage(uint64_t bytes);
    [[nodiscard]] bool judgeDropped(Stretch where);
    void endGarbage();
    void startAfresh() TP_EXCLUDES(m_reset_mutex);

    // Queue.cpp
    /// Empties the ring; what it held counts as dropped.
    void discardContents() TP_REQUIRES(m_reset_mutex);
    void movePointersToStart() TP_REQUIRES(m_reset_mutex);
    bool popOne() TP_REQUIRES(m_reset_mutex);
    void announceRoom() TP_REQUIRES(m_reset_mutex);
    [[nodiscard]] bool popUnusual(char* read, char* written, FrameScan& scan) TP_REQUIRES(m_reset_mutex);
    [[nodiscard]] bool popInPlace(char* read, char* written, FrameScan& scan) TP_REQUIRES(m_reset_mutex);
    [[nodiscard]] bool popSplit(char* read, char* written, FrameScan& scan) TP_REQUIRES(m_reset_mutex);
    void skipInCopy(char* read, char* written, std::size_t copied, const FrameScan& copy, FrameScan& scan)
        TP_REQUIRES(m_reset_mutex);
    [[nodiscard]] char* advance(char* position, std::size_t firstLen, std::size_t count) const;
    [[nodiscard]] bool deliver(char* frame, std::size_t length) TP_REQUIRES(m_reset_mutex);

    // QueueInline.cpp
    void beginInlineRead() TP_EXCLUDES(m_write_mutex);
    void endInlineRead() TP_EXCLUDES(m_reset_mutex, m_write_mutex);
    void deliverRead() TP_EXCLUDES(m_reset_mutex);
    [[nodiscard]] bool consumerMayDeliver() TP_REQUIRES(m_reset_mutex);
    void endConsuming() TP_REQUIRES(m_reset_mutex) {
        m_consumerDelivers.store(false, std::memory_order_release);
    }
    void rewind() TP_REQUIRES(m_reset_mutex);
    void wakeConsumer() TP_EXCLUDES(m_write_mutex);

    // QueueSocket.cpp
    [[nodiscard]] bool readOnce(const tp::ByteStream& stream, KVNAPI::StreamParser* parser, double curtime);
    [[nodiscard]] ReadMode chooseReadMode(double curtime) const;
    [[nodiscard]] Room findRoom(ReadMode mode);
    [[nodiscard]] Room roomAt(const char* read) const;
    [[nodiscard]] std::size_t mostOfARead() const;
    void leaveEnd(const char* read);
    [[nodiscard]] bool readWithoutRoom(const tp::ByteStream& stream);
    void dropUnframed();
    [[nodiscard]] bool readPlain(const tp::ByteStream& stream, std::size_t length, double curtime);
    [[nodiscard]] bool readCompressed(const tp::ByteStream& stream, KVNAPI::StreamParser& parser, Room room,
                                      ReadMode mode, double curtime);
    [[nodiscard]] bool inflateOnce(KVNAPI::StreamParser& parser, int fd, std::size_t length, double curtime,
                                   std::size_t& produced);
    void noteRead(double curtime);

    // QueueFlowControl.cpp
    [[nodiscard]] uint64_t freeBytes() const;
    [[nodiscard]] uint64_t completeBytes() const;
    [[nodiscard]] bool controlJit(int level);
    [[nodiscard]] bool reportFillLevel(int level);
    void noteDepth(int pctFull);
    void decideSuspension(int pctFull);
    /// Nothing may be dropped for want of room.
    [[nodiscard]] bool mayHoldReads() const noexcept { return m_holdsReads || getQueryCount() > 0; }
    void changeSuspension(bool suspend);
    [[nodiscard]] int resumePercent() const;
    void wakeIfRoom() TP_REQUIRES(m_reset_mutex);
    void wakeReads();

    // Built with.
    std::size_t m_size;          ///< bytes
    std::size_t m_q_check_bytes; ///< bytes framed between two fill checks
    const bool m_compression;
    bool m_isInline = false;     ///< see setInlineDelivery
    bool m_holdsReads = false;   ///< see setHoldReads
    bool m_readsStamped = false; ///< see setStampedReads
    QueueHub* const m_hub;
    std::unique_ptr<char, FreeBlock> m_block;
    char* m_BufferStart;
    char* m_BufferEnd;
    std::unique_ptr<char[]> m_splitCopy; ///< where a frame goes that the end of the ring splits

    /// Held while frames are delivered, the application's callbacks included.
    tp::Mutex m_reset_mutex{kLockQueueReset};
    std::atomic<int> m_interruptions{0}; ///< see Interruption
    FrameHandler* m_queueReadHandler TP_GUARDED_BY(m_reset_mutex) = nullptr;
    /// What the consumer knows of m_WriteQueue; it asks again when it has taken all of that.
    char* m_knownWritten TP_GUARDED_BY(m_reset_mutex) = nullptr;

    mutable tp::Mutex m_desc_mutex;
    std::string m_socketDesc TP_GUARDED_BY(m_desc_mutex);

    // The producer's own.
    alignas(64) char* m_WriteStream; ///< where the next byte goes
    uint64_t m_bytes_in_since_last_q_check = 0;
    double m_lastReadMonotonic = kLongAgo;       ///< by the clock that doesn't step
    double m_arrivedAt = kLongAgo;               ///< what was read last, by the same clock
    double m_drainedAt = tp::Clock::monotonic(); ///< when nothing waited in the socket, by the same clock
    bool m_inputIsAll = false;                   ///< of a compressed stream: nothing waited in the socket
    bool m_sawEndOfStream = false;
    int m_streamError = 0; ///< see streamError
    bool m_inputLeft = false;
    bool m_sawLife = false;
    bool m_isDeep = false;  ///< at its threshold by the last fill check
    uint64_t m_garbage = 0; ///< bytes skipped since the last frame
    bool m_garbageTold = false;

    // Shared by producer and consumer: what lies before a position is the other side's once it has been
    // stored.
    alignas(64) tp::Mutex
        m_write_mutex; ///< orders stores of m_WriteQueue and looks for a sleeper; guards the waker
    std::atomic<char*> m_WriteQueue;         ///< end of the last complete frame
    std::atomic<bool> m_deliversRead{false}; ///< the producer delivers what it reads now; it alone sets this
    /// The consumer of an inline queue is at a frame. It sets this under m_reset_mutex.
    std::atomic<bool> m_consumerDelivers{false};
    std::shared_ptr<QueueWaker> m_waker TP_GUARDED_BY(m_write_mutex);
    alignas(64) std::atomic<char*> m_ReadQueue; ///< first byte that the consumer hasn't taken
    /// Held reads wait for fewer complete bytes than this in the ring; below 0 when none wait.
    std::atomic<int64_t> m_wakeBelow{-1};

    ReadTimes m_readTimes;

    // Flow control.
    alignas(64) std::atomic<int> m_pct_full{0};
    std::atomic<int> m_report_peak_pct_full{0};
    std::atomic<int> m_max_report_pct_full{0};
    std::atomic<uint64_t> m_available_bytes{0};
    bool m_jitConflation = false;
    int m_jitThreshold = 25;
    int m_lastJitPct = 0;
    std::size_t m_startJitIndex = 0;
    std::atomic<int64_t> m_numOutstandingQueries{0};
    std::atomic<bool> m_suspendReadFromSocket{false};
    int m_warnThreshold;     ///< percent above which reads are suspended
    int m_warnDownThreshold; ///< percent below which they resume
    std::atomic<double> m_lastRead{0.0};
    double m_HubIdleTimeout = 60.0; ///< seconds

    QueueStatistics m_stats;
};

} // namespace tivra_internal
