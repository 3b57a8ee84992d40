#include "receive/QueueStatistics.h"

#include <algorithm>
#include <cmath>

#include <tp/eprintf.h>

namespace tivra_internal {

namespace {

constexpr double kMaxRate = 1e15;
/// The period of the ticks, in seconds: what counts when the clock hasn't moved, or has moved back.
constexpr double kTick = 0.1;
constexpr double kShortestTick = 0.001;

/// The time since the last tick, which becomes `curtime`.
double elapsedSince(double& last, double curtime) {
    const double elapsed = last == 0.0 ? kTick : curtime - last;
    last = curtime;
    return elapsed < kShortestTick ? kTick : elapsed;
}

uint64_t rate(uint64_t amount, double elapsed) {
    const double perSecond = static_cast<double>(amount) / elapsed;
    return static_cast<uint64_t>(std::llround(std::clamp(perSecond, 0.0, kMaxRate)));
}

/// The growth of a total since the last call.
uint64_t growth(uint64_t& last, uint64_t total) {
    const uint64_t delta = total - last;
    last = total;
    return delta;
}

} // namespace

bool QueueStatistics::calcStats(double curtime) {
    const uint64_t totalMsgs = in.m_msgs_in.get();
    const uint64_t totalDropped = in.cum_dropped_bytes.get();
    const uint64_t totalBytes = in.m_bytes_in.get();
    set(m_curr_msgs_in, totalMsgs);
    set(m_curr_dropped_bytes_in, totalDropped);
    set(m_curr_bytes_in, totalBytes);
    const uint64_t msgs = growth(m_100ms_msgs_in, totalMsgs);
    const uint64_t dropped = growth(m_100ms_drop_bytes_in, totalDropped);
    const uint64_t bytes = growth(m_100ms_bytes_in, totalBytes);

    const double elapsed = elapsedSince(m_lastCalcStatsTime, curtime);
    const uint64_t dropRate = rate(dropped, elapsed);
    const uint64_t byteRate = rate(bytes, elapsed);
    const uint64_t combined = dropRate + byteRate;
    if (combined > get(m_current_max_combined_bytes_per_sec_100ms)) {
        const uint64_t msgRate = rate(msgs, elapsed);
        set(m_current_max_combined_bytes_per_sec_100ms, combined);
        set(m_current_max_msgs_per_sec_100ms, msgRate);
        set(m_current_max_drop_bytes_per_sec_100ms, dropRate);
        set(m_current_max_bytes_per_sec_100ms, byteRate);
        if (combined > get(m_curr_report_max_combined_bytes_per_sec_100ms)) {
            set(m_curr_report_max_combined_bytes_per_sec_100ms, combined);
            set(m_curr_report_max_msgs_per_sec_100ms, msgRate);
            set(m_curr_report_max_drop_bytes_per_sec_100ms, dropRate);
            set(m_curr_report_max_bytes_per_sec_100ms, byteRate);
        }
    }
    m_1sec_msgs_in.fetch_add(msgs, std::memory_order_relaxed);
    m_1sec_bytes_in.fetch_add(bytes, std::memory_order_relaxed);
    m_1sec_drop_in.fetch_add(dropped, std::memory_order_relaxed);
    return msgs + bytes + dropped > 0;
}

bool QueueStatistics::calcStatsOut(double curtime) {
    const uint64_t totalMsgs = out.m_msgs_out.get();
    const uint64_t totalNet = out.m_net_msgs_out.get();
    set(m_curr_msgs_out, totalMsgs);
    set(m_curr_net_msgs_out, totalNet);
    set(m_curr_dropped_bytes_out, out.cum_out_dropped_bytes.get());
    const uint64_t msgs = growth(m_100ms_msgs_out, totalMsgs);
    const uint64_t net = growth(m_100ms_net_msgs_out, totalNet);

    const double elapsed = elapsedSince(m_lastCalcStatsOutTime, curtime);
    const uint64_t msgRate = rate(msgs, elapsed);
    const uint64_t netRate = rate(net, elapsed);
    raise(m_current_max_msgs_per_sec_100ms_out, msgRate);
    raise(m_curr_report_max_msgs_per_sec_100ms_out, msgRate);
    raise(m_current_max_net_msgs_per_sec_100ms_out, netRate);
    raise(m_curr_report_max_net_msgs_per_sec_100ms_out, netRate);
    m_1sec_msgs_out.fetch_add(msgs, std::memory_order_relaxed);
    m_1sec_net_msgs_out.fetch_add(net, std::memory_order_relaxed);
    return msgs + net > 0;
}

void QueueStatistics::rotateSecond(double curtime) {
    const uint64_t msgs = take(m_1sec_msgs_in);
    const uint64_t bytes = take(m_1sec_bytes_in);
    const uint64_t dropped = take(m_1sec_drop_in);
    set(m_last_msgs_per_sec_1sec, msgs);
    set(m_last_bytes_per_sec_1sec, bytes);
    set(m_last_drop_per_sec_1sec, dropped);
    m_lastSecond.store(curtime, std::memory_order_relaxed);
    if (bytes + dropped > get(m_max_report_combined_bytes_per_sec_1sec)) {
        set(m_max_report_combined_bytes_per_sec_1sec, bytes + dropped);
        set(m_max_report_msgs_per_sec_1sec, msgs);
        set(m_max_report_drop_per_sec_1sec, dropped);
        set(m_max_report_bytes_per_sec_1sec, bytes);
    }
    set(m_current_max_combined_bytes_per_sec_100ms, 0);
    set(m_last_msgs_per_sec_100ms, take(m_current_max_msgs_per_sec_100ms));
    set(m_last_drop_per_sec_100ms, take(m_current_max_drop_bytes_per_sec_100ms));
    set(m_last_bytes_per_sec_100ms, take(m_current_max_bytes_per_sec_100ms));
    rotateSecondOut(curtime);
}

void QueueStatistics::rotateSecondOut(double curtime) {
    const uint64_t msgs = take(m_1sec_msgs_out);
    const uint64_t net = take(m_1sec_net_msgs_out);
    set(m_last_msgs_per_sec_1sec_out, msgs);
    set(m_last_net_msgs_per_sec_1sec_out, net);
    m_lastSecond_out.store(curtime, std::memory_order_relaxed);
    raise(m_max_report_msgs_per_sec_1sec_out, msgs);
    raise(m_max_report_net_msgs_per_sec_1sec_out, net);
    set(m_last_msgs_per_sec_100ms_out, take(m_current_max_msgs_per_sec_100ms_out));
    set(m_last_net_msgs_per_sec_100ms_out, take(m_current_max_net_msgs_per_sec_100ms_out));
}

bool QueueStatistics::rotateInterval(double curtime) {
    const uint64_t msgs = get(m_curr_msgs_in) - get(m_last_interval_msgs_in);
    const uint64_t bytes = get(m_curr_bytes_in) - get(m_last_interval_bytes_in);
    const uint64_t dropped = get(m_curr_dropped_bytes_in) - get(m_last_interval_drop_bytes_in);
    if (msgs > 0)
        set(m_avg_msg_size, bytes / msgs);
    const uint64_t avg = get(m_avg_msg_size);
    if (avg == 0) {
        eprintf(EPF_WARN, "m_avg_msg_size is 0, return from printStats\n");
        return false;
    }
    m_curr_adj_msgs_in.fetch_add(msgs + dropped / avg, std::memory_order_relaxed);
    m_last_interval_msgs_in.fetch_add(msgs, std::memory_order_relaxed);
    m_last_interval_bytes_in.fetch_add(bytes, std::memory_order_relaxed);
    m_last_interval_drop_bytes_in.fetch_add(dropped, std::memory_order_relaxed);
    rotateIntervalIn(avg);
    rotateIntervalOut();
    m_lastReportInverval.store(curtime, std::memory_order_relaxed);
    m_lastReportInverval_out.store(curtime, std::memory_order_relaxed);
    return true;
}

void QueueStatistics::rotateIntervalIn(uint64_t avg) {
    m_last_msgs_per_sec_100ms.fetch_add(get(m_last_drop_per_sec_100ms) / avg, std::memory_order_relaxed);

    set(m_report_peak_100ms_drop_rate, take(m_curr_report_max_drop_bytes_per_sec_100ms));
    set(m_report_peak_100ms_msg_rate,
        take(m_curr_report_max_msgs_per_sec_100ms) + get(m_report_peak_100ms_drop_rate) / avg);
    set(m_curr_report_max_combined_bytes_per_sec_100ms, 0);
    set(m_curr_report_max_bytes_per_sec_100ms, 0);

    set(m_report_peak_1sec_msg_rate,
        take(m_max_report_msgs_per_sec_1sec) + take(m_max_report_drop_per_sec_1sec) / avg);
    set(m_max_report_combined_bytes_per_sec_1sec, 0);
    set(m_max_report_bytes_per_sec_1sec, 0);

    set(m_report_curr_1sec_msg_rate, take(m_last_msgs_per_sec_1sec) + take(m_last_drop_per_sec_1sec) / avg);
}

void QueueStatistics::rotateIntervalOut() {
    set(m_report_peak_100ms_msg_rate_out, take(m_curr_report_max_msgs_per_sec_100ms_out));
    set(m_report_peak_100ms_net_msg_rate_out, take(m_curr_report_max_net_msgs_per_sec_100ms_out));
    set(m_report_peak_1sec_msg_rate_out, take(m_max_report_msgs_per_sec_1sec_out));
    set(m_report_peak_1sec_net_msg_rate_out, take(m_max_report_net_msgs_per_sec_1sec_out));
    set(m_report_curr_1sec_msg_rate_out, take(m_last_msgs_per_sec_1sec_out));
    set(m_report_curr_1sec_net_msg_rate_out, take(m_last_net_msgs_per_sec_1sec_out));
}

void QueueStatistics::sumDrops() {
    set(m_total_cum_dropped_bytes, get(m_curr_dropped_bytes_in) + get(m_curr_dropped_bytes_out));
}

} // namespace tivra_internal
