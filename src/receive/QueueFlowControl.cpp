// What a queue does about its fill level: reports to the hub, suspended reads.
#include "receive/Queue.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <sys/time.h>
#include <utility>

#include <tp/eprintf.h>

#include "receive/LibraryTags.h"
#include "receive/QueueHub.h"

namespace tivra_internal {

namespace {

/// Levels at which the hub is told, in percent: two neighbours bound a band, and each band is reported once
/// on the way up.
constexpr std::array<int, 6> bufThreshold{0, 25, 50, 75, 99, 101};
/// The time that a report may take, so that it never holds up the stream.
constexpr int kReportMicroseconds = 100;
/// Reads that are held resume below this level at the latest, in percent: a ring that is as good as full
/// would stop the next one.
constexpr int kMostToResume = 99;

} // namespace

void Queue::setJit(int jitThreshold) {
    m_jitConflation = true;
    m_jitThreshold = jitThreshold;
}

void Queue::incrQueryCount() {
    const int64_t count = m_numOutstandingQueries.fetch_add(1, std::memory_order_relaxed) + 1;
    if (count == 1)
        calcQueueFullStats();
    eprintf(EPF_DBUG, "%s: incrQueryCount to %ld\n", getSocketDesc().c_str(), static_cast<long>(count));
}

void Queue::decrQueryCount() {
    if (m_numOutstandingQueries.fetch_sub(1, std::memory_order_relaxed) != 1 || m_holdsReads)
        return;
    m_suspendReadFromSocket.store(false, std::memory_order_release);
    if (m_wakeBelow.load(std::memory_order_relaxed) >= 0)
        wakeReads();
}

int Queue::resumePercent() const {
    return std::min(m_warnDownThreshold, kMostToResume);
}

bool Queue::awaitRoom() {
    // The bytes that are not framed yet stay, so the consumer has to take so many more.
    const auto partial = static_cast<int64_t>(m_size - freeBytes() - completeBytes());
    const auto size = static_cast<int64_t>(m_size);
    const int64_t resumeAt = (size * resumePercent() - size / 2) / 100;
    m_wakeBelow.store(std::max<int64_t>(resumeAt - partial, 0), std::memory_order_seq_cst);
    // Room that came before that would wake nobody.
    calcQueueFullStats();
    return readsSuspended();
}

bool Queue::awaitEmpty() {
    m_wakeBelow.store(0, std::memory_order_seq_cst);
    return isEmpty();
}

bool Queue::isQuiet() const {
    const int level = std::max(m_lastJitPct, m_max_report_pct_full.load(std::memory_order_relaxed));
    const bool isReportDue = m_jitConflation && level >= m_jitThreshold;
    return getPctFull() == 0 && !readsSuspended() && !m_inputLeft && !isReportDue;
}

void Queue::wakeIfRoom() {
    const uint64_t left = completeBytes();
    if (left == 0 || static_cast<int64_t>(left) < m_wakeBelow.load(std::memory_order_relaxed))
        wakeReads();
}

void Queue::wakeReads() {
    if (m_wakeBelow.exchange(-1, std::memory_order_acq_rel) >= 0 && m_hub != nullptr)
        m_hub->roomForReads();
}

// The order of the loads is that of announceRoom.
uint64_t Queue::completeBytes() const {
    const char* const read = m_ReadQueue.load(std::memory_order_seq_cst);
    const char* const written = m_WriteQueue.load(std::memory_order_acquire);
    return written >= read ? static_cast<uint64_t>(written - read)
                           : m_size - static_cast<uint64_t>(read - written);
}

uint64_t Queue::freeBytes() const {
    const char* const read = m_ReadQueue.load(std::memory_order_seq_cst);
    if (m_WriteStream >= read)
        return static_cast<uint64_t>(m_BufferEnd - m_WriteStream) +
               static_cast<uint64_t>(read - m_BufferStart);
    return static_cast<uint64_t>(read - m_WriteStream) - 1;
}

void Queue::calcQueueFullStats() {
    const uint64_t available = freeBytes();
    m_available_bytes.store(available, std::memory_order_relaxed);
    const uint64_t used = m_size - available;
    const int pctFull = static_cast<int>((used * 100 + m_size / 2) / m_size);
    m_pct_full.store(pctFull, std::memory_order_relaxed);
    int peak = m_max_report_pct_full.load(std::memory_order_relaxed);
    if (pctFull > peak) {
        // Stored only when it rises, so that the end of an interval, which starts it anew, isn't undone.
        peak = pctFull;
        m_max_report_pct_full.store(peak, std::memory_order_relaxed);
    }

    noteDepth(pctFull);
    if (m_jitConflation && !controlJit(peak))
        return;
    decideSuspension(pctFull);
}

// Reported by the thread that fills the queue: no callback holds it up while the queue goes on to fill.
void Queue::noteDepth(int pctFull) {
    const bool wasDeep = std::exchange(m_isDeep, pctFull >= m_warnThreshold);
    if (m_isDeep && !wasDeep && m_hub != nullptr)
        m_hub->queueIsDeep(pctFull);
}

// False when a report could not be sent: the next check tries again.
bool Queue::controlJit(int level) {
    if (level < m_jitThreshold) {
        if (m_lastJitPct >= m_jitThreshold) {
            if (!reportFillLevel(level))
                return false;
            m_startJitIndex = 0;
        }
    } else if (level > m_lastJitPct) {
        for (std::size_t row = m_startJitIndex; row + 1 < bufThreshold.size(); ++row) {
            if (level < bufThreshold[row] || level >= bufThreshold[row + 1])
                continue;
            if (!reportFillLevel(level))
                return false;
            m_startJitIndex = row + 1;
            break;
        }
    }
    m_lastJitPct = level;
    return true;
}

bool Queue::reportFillLevel(int level) {
    if (m_hub == nullptr)
        return true;
    char text[64];
    std::snprintf(text, sizeof text, "5026=%d|5022=ReportApiStats|13912=%d",
                  static_cast<int>(kReportApiStatisticsTag), level);
    timeval timeout{0, kReportMicroseconds};
    return m_hub->sendRequest(text, &timeout) >= 0;
}

void Queue::decideSuspension(int pctFull) {
    bool suspend = readsSuspended();
    if (!mayHoldReads())
        suspend = false;
    else if (pctFull > m_warnThreshold)
        suspend = true;
    else if (pctFull < resumePercent())
        suspend = false;
    // With no whole frame to take out, only more bytes can help.
    if (completeBytes() == 0)
        suspend = false;
    changeSuspension(suspend);
}

void Queue::changeSuspension(bool suspend) {
    const bool before = m_suspendReadFromSocket.exchange(suspend, std::memory_order_acq_rel);
    if (suspend == before)
        return;
    char compressed[64] = "";
    if (m_compression)
        std::snprintf(compressed, sizeof compressed, "; m_compressed_bytes_in=%lu",
                      m_stats.in.m_compressed_bytes_in.get());
    eprintf(EPF_DBUG,
            "%s: State change: m_suspendReadFromSocket=%d; prevSuspendState=%d; m_numOutstandingQueries=%ld; "
            "m_pct_full=%d; m_bytes_in=%lu%s; lastRead=%f",
            getSocketDesc().c_str(), suspend ? 1 : 0, before ? 1 : 0, static_cast<long>(getQueryCount()),
            getPctFull(), m_stats.in.m_bytes_in.get(), compressed,
            m_lastRead.load(std::memory_order_relaxed));
}

void Queue::printStats(bool endOfInterval, bool endOfSecond, double curtime) {
    if (endOfSecond)
        m_stats.rotateSecond(curtime);
    if (!endOfInterval) {
        m_stats.sumDrops();
        if (!endOfSecond)
            eprintf(
                EPF_INFO,
                "%s: NET_MSGS_IN --> %lu; MSGS_OUT --> %lu; NET_MSGS_OUT --> %lu; DROP --> %lu; HUB_DROP --> "
                "%ld; AVAILABLE --> %zu; queryCnt=%ld; lastRead=%f\n",
                getSocketDesc().c_str(), m_stats.getValidMsgsIn(), m_stats.getMsgsOut(),
                m_stats.getNetMsgsOut(), m_stats.getDroppedBytes(),
                static_cast<long>(m_stats.getHubDroppedBytes()),
                static_cast<std::size_t>(m_available_bytes.load(std::memory_order_relaxed)),
                static_cast<long>(getQueryCount()), m_lastRead.load(std::memory_order_relaxed));
        return;
    }
    if (!m_stats.rotateInterval(curtime))
        return;
    m_report_peak_pct_full.store(m_max_report_pct_full.exchange(0, std::memory_order_relaxed),
                                 std::memory_order_relaxed);
    m_stats.sumDrops();
    eprintf(EPF_DBUG,
            "%s: BYTES_IN --> %lu; MSGS_IN --> %lu; VALID_MSGS_IN --> %lu; MSGS_OUT --> %lu; NET_MSGS_OUT "
            "--> %lu; "
            "DROP --> %lu; HUB_DROP --> %ld; AVAILABLE --> %zu; PCT_FULL=%d/%d; IN_MSGS/SEC(100ms)=%lu/%lu "
            "IN_MSGS/SEC(1sec)=%lu/%lu; OUT_MSGS/SEC(100ms)=%lu/%lu OUT_MSGS/SEC(1sec)=%lu/%lu; "
            "NET_OUT_MSGS/SEC(100ms)=%lu/%lu; NET_OUT_MSGS/SEC(1sec)=%lu/%lu; AVG_MSG_SIZE=%lu; queryCnt=%ld",
            getSocketDesc().c_str(), m_stats.getBytesIn(), m_stats.getMsgsIn(), m_stats.getValidMsgsIn(),
            m_stats.getMsgsOut(), m_stats.getNetMsgsOut(), m_stats.getDroppedBytes(),
            static_cast<long>(m_stats.getHubDroppedBytes()),
            static_cast<std::size_t>(m_available_bytes.load(std::memory_order_relaxed)), getPctFull(),
            getPeakPctFull(), m_stats.getInputMsgSec_100ms(), m_stats.getPeakInputMsgSec_100ms(),
            m_stats.getInputMsgSec_1sec(), m_stats.getPeakInputMsgSec_1sec(), m_stats.getOutputMsgSec_100ms(),
            m_stats.getPeakOutputMsgSec_100ms(), m_stats.getOutputMsgSec_1sec(),
            m_stats.getPeakOutputMsgSec_1sec(), m_stats.getNetOutputMsgSec_100ms(),
            m_stats.getPeakNetOutputMsgSec_100ms(), m_stats.getNetOutputMsgSec_1sec(),
            m_stats.getPeakNetOutputMsgSec_1sec(), m_stats.getAvgMsgSize(),
            static_cast<long>(getQueryCount()));
}

} // namespace tivra_internal
