#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace tivra_internal {

/// A count that one thread raises and any thread reads. It costs the writer no more than a plain addition.
class SingleWriterCount {
public:
    void add(uint64_t amount) noexcept {
        m_value.store(m_value.load(std::memory_order_relaxed) + amount, std::memory_order_relaxed);
    }
    [[nodiscard]] uint64_t get() const noexcept { return m_value.load(std::memory_order_relaxed); }

private:
    std::atomic<uint64_t> m_value{0};
};

/// The counters of one receive queue: totals that its two threads raise, and what is derived from them per
/// 100 milliseconds, per second and per reporting interval. "In" fields are raised by the hub thread, "out"
/// fields by the user thread; the statistics thread rotates and reads.
///
/// The reported input figures count dropped bytes as the messages that they would have been: they say what
/// the feed delivered, not what was decoded.
class QueueStatistics {
public:
    // --- totals ---
    // The sides are raised by different threads and stand on cache lines of their own.
    struct alignas(64) In {
        SingleWriterCount m_bytes_in;
        SingleWriterCount m_msgs_in;
        SingleWriterCount cum_dropped_bytes;
        SingleWriterCount m_compressed_bytes_in;
    };
    struct alignas(64) Out {
        SingleWriterCount m_bytes_out;
        SingleWriterCount m_msgs_out;
        SingleWriterCount m_net_msgs_out;
        SingleWriterCount cum_out_dropped_bytes;
    };
    In in;
    Out out;

    /// Takes the input totals of the last 100 milliseconds over. True when they have grown. @thread hub
    bool calcStats(double curtime);
    /// The same for the output side. @thread user
    bool calcStatsOut(double curtime);

    /// A second has ended: its sums and peaks become the last second's.
    void rotateSecond(double curtime);
    /// An interval has ended: its peaks become the reported ones. False, with nothing rotated, while the mean
    /// size of a message is unknown.
    [[nodiscard]] bool rotateInterval(double curtime);
    /// Sums up the bytes dropped on both sides.
    void sumDrops();

    void updateHubDrops(uint64_t hubDrops) noexcept { m_hubDrops.store(hubDrops, std::memory_order_relaxed); }

    // --- figures; @thread any ---
    [[nodiscard]] uint64_t getDroppedBytes() const noexcept { return get(m_total_cum_dropped_bytes); }
    [[nodiscard]] uint64_t getHubDroppedBytes() const noexcept { return get(m_hubDrops); }
    [[nodiscard]] uint64_t getMsgsIn() const noexcept { return get(m_curr_adj_msgs_in); }
    [[nodiscard]] uint64_t getValidMsgsIn() const noexcept { return get(m_curr_msgs_in); }
    [[nodiscard]] uint64_t getBytesIn() const noexcept { return get(m_curr_bytes_in); }
    [[nodiscard]] uint64_t getMsgsOut() const noexcept { return get(m_curr_msgs_out); }
    [[nodiscard]] uint64_t getNetMsgsOut() const noexcept { return get(m_curr_net_msgs_out); }
    [[nodiscard]] uint64_t getInputMsgSec_1sec() const noexcept { return get(m_report_curr_1sec_msg_rate); }
    [[nodiscard]] uint64_t getInputMsgSec_100ms() const noexcept { return get(m_last_msgs_per_sec_100ms); }
    [[nodiscard]] uint64_t getPeakInputMsgSec_1sec() const noexcept {
        return get(m_report_peak_1sec_msg_rate);
    }
    [[nodiscard]] uint64_t getPeakInputMsgSec_100ms() const noexcept {
        return get(m_report_peak_100ms_msg_rate);
    }
    [[nodiscard]] uint64_t getOutputMsgSec_1sec() const noexcept {
        return get(m_report_curr_1sec_msg_rate_out);
    }
    [[nodiscard]] uint64_t getOutputMsgSec_100ms() const noexcept {
        return get(m_last_msgs_per_sec_100ms_out);
    }
    [[nodiscard]] uint64_t getPeakOutputMsgSec_1sec() const noexcept {
        return get(m_report_peak_1sec_msg_rate_out);
    }
    [[nodiscard]] uint64_t getPeakOutputMsgSec_100ms() const noexcept {
        return get(m_report_peak_100ms_msg_rate_out);
    }
    [[nodiscard]] uint64_t getNetOutputMsgSec_1sec() const noexcept {
        return get(m_report_curr_1sec_net_msg_rate_out);
    }
    [[nodiscard]] uint64_t getNetOutputMsgSec_100ms() const noexcept {
        return get(m_last_net_msgs_per_sec_100ms_out);
    }
    [[nodiscard]] uint64_t getPeakNetOutputMsgSec_1sec() const noexcept {
        return get(m_report_peak_1sec_net_msg_rate_out);
    }
    [[nodiscard]] uint64_t getPeakNetOutputMsgSec_100ms() const noexcept {
        return get(m_report_peak_100ms_net_msg_rate_out);
    }
    [[nodiscard]] uint64_t getAvgMsgSize() const noexcept { return get(m_avg_msg_size); }

private:
    using Figure = std::atomic<uint64_t>;

    [[nodiscard]] static uint64_t get(const Figure& figure) noexcept {
        return figure.load(std::memory_order_relaxed);
    }
    static void set(Figure& figure, uint64_t value) noexcept {
        figure.store(value, std::memory_order_relaxed);
    }
    /// Hands the value on and starts it anew.
    [[nodiscard]] static uint64_t take(Figure& figure) noexcept {
        return figure.exchange(0, std::memory_order_relaxed);
    }
    static void raise(Figure& peak, uint64_t value) noexcept {
        if (value > get(peak))
            set(peak, value);
    }

    void rotateSecondOut(double curtime);
    void rotateIntervalIn(uint64_t avg);
    void rotateIntervalOut();

    // Snapshots of the totals, at most 100 milliseconds old.
    Figure m_curr_msgs_in{0}, m_curr_bytes_in{0}, m_curr_dropped_bytes_in{0};
    Figure m_curr_adj_msgs_in{0}; ///< with the messages that were dropped, as of the last interval
    Figure m_curr_msgs_out{0}, m_curr_net_msgs_out{0}, m_curr_dropped_bytes_out{0};

    // Totals at the last 100 ms tick; the thread of the tick alone uses them.
    uint64_t m_100ms_msgs_in = 0, m_100ms_bytes_in = 0, m_100ms_drop_bytes_in = 0;
    uint64_t m_100ms_msgs_out = 0, m_100ms_net_msgs_out = 0;

    // Sums of the running second.
    Figure m_1sec_msgs_in{0}, m_1sec_bytes_in{0}, m_1sec_drop_in{0};
    Figure m_1sec_msgs_out{0}, m_1sec_net_msgs_out{0};

    // Peak rates over 100 ms in the running second. On the input side the moment of the most bytes, dropped
    // or not, gives all four.
    Figure m_current_max_combined_bytes_per_sec_100ms{0}, m_current_max_msgs_per_sec_100ms{0};
    Figure m_current_max_drop_bytes_per_sec_100ms{0}, m_current_max_bytes_per_sec_100ms{0};
    Figure m_current_max_msgs_per_sec_100ms_out{0}, m_current_max_net_msgs_per_sec_100ms_out{0};

    // The same in the running interval.
    Figure m_curr_report_max_combined_bytes_per_sec_100ms{0}, m_curr_report_max_msgs_per_sec_100ms{0};
    Figure m_curr_report_max_drop_bytes_per_sec_100ms{0}, m_curr_report_max_bytes_per_sec_100ms{0};
    Figure m_curr_report_max_msgs_per_sec_100ms_out{0}, m_curr_report_max_net_msgs_per_sec_100ms_out{0};

    // The last finished second.
    Figure m_last_msgs_per_sec_1sec{0}, m_last_drop_per_sec_1sec{0}, m_last_bytes_per_sec_1sec{0};
    Figure m_last_msgs_per_sec_100ms{0}, m_last_drop_per_sec_100ms{0}, m_last_bytes_per_sec_100ms{0};
    Figure m_last_msgs_per_sec_1sec_out{0}, m_last_net_msgs_per_sec_1sec_out{0};
    Figure m_last_msgs_per_sec_100ms_out{0}, m_last_net_msgs_per_sec_100ms_out{0};

    // The peak second of the running interval.
    Figure m_max_report_combined_bytes_per_sec_1sec{0}, m_max_report_msgs_per_sec_1sec{0};
    Figure m_max_report_drop_per_sec_1sec{0}, m_max_report_bytes_per_sec_1sec{0};
    Figure m_max_report_msgs_per_sec_1sec_out{0}, m_max_report_net_msgs_per_sec_1sec_out{0};

    // What is reported until the next interval ends.
    Figure m_report_curr_1sec_msg_rate{0}, m_report_peak_100ms_msg_rate{0};
    Figure m_report_peak_100ms_drop_rate{0}, m_report_peak_1sec_msg_rate{0};
    Figure m_report_curr_1sec_msg_rate_out{0}, m_report_curr_1sec_net_msg_rate_out{0};
    Figure m_report_peak_100ms_msg_rate_out{0}, m_report_peak_100ms_net_msg_rate_out{0};
    Figure m_report_peak_1sec_msg_rate_out{0}, m_report_peak_1sec_net_msg_rate_out{0};

    // Totals at the end of the last interval.
    Figure m_last_interval_msgs_in{0}, m_last_interval_bytes_in{0}, m_last_interval_drop_bytes_in{0};

    Figure m_avg_msg_size{85}; ///< bytes
    Figure m_total_cum_dropped_bytes{0};
    Figure m_hubDrops{0}; ///< the hub's own count of bytes that it dropped

    std::atomic<double> m_lastSecond{0.0}, m_lastReportInverval{0.0};
    std::atomic<double> m_lastSecond_out{0.0}, m_lastReportInverval_out{0.0};
    double m_lastCalcStatsTime = 0.0, m_lastCalcStatsOutTime = 0.0;
};

} // namespace tivra_internal
