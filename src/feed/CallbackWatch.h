#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <string>
#include <string_view>
#include <vector>

#include <tp/Mutex.h>

#include "feed/CallbackSlot.h"

namespace tivra_internal {

/// Finds callbacks that take too long, while they run: those of the streams by their slots, others by a list.
/// Somebody has to look now and then. @thread any
class CallbackWatch {
public:
    struct Report {
        std::string function;
        std::string text;     ///< what it is about
        std::int64_t tag = 0; ///< of the item that it is about; 0 for a text
        double seconds = 0.0;
        bool isRunning = false;
    };

    /// A callback that no slot shows runs as long as this lives.
    class Scope {
    public:
        Scope(CallbackWatch& watch, const char* function, std::string_view text);
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        CallbackWatch& m_watch;
        std::list<struct WatchedCall>::iterator m_call;
        bool m_isEntered;
    };

    CallbackWatch();
    ~CallbackWatch();
    CallbackWatch(const CallbackWatch&) = delete;
    CallbackWatch& operator=(const CallbackWatch&) = delete;

    /// How long a callback may take, in seconds; 0 for any time.
    void setThreshold(double seconds) noexcept { m_threshold.store(seconds, std::memory_order_relaxed); }
    [[nodiscard]] double threshold() const noexcept { return m_threshold.load(std::memory_order_relaxed); }
    void add(CallbackSlot& slot) TP_EXCLUDES(m_mutex);
    void remove(CallbackSlot& slot) TP_EXCLUDES(m_mutex);
    /// What has become slow since the last look, and what of that has returned.
    [[nodiscard]] std::vector<Report> look() TP_EXCLUDES(m_mutex);
    /// How many were slow. Each counts once.
    [[nodiscard]] std::uint64_t slowCalls() const noexcept {
        return m_slowCalls.load(std::memory_order_relaxed);
    }

private:
    void lookAt(CallbackSlot& slot, double now) TP_REQUIRES(m_mutex);
    void report(Report report, bool isNew) TP_REQUIRES(m_mutex);

    std::atomic<double> m_threshold{0.0};
    std::atomic<std::uint64_t> m_slowCalls{0};
    tp::Mutex m_mutex; ///< guards what follows
    std::vector<CallbackSlot*> m_slots TP_GUARDED_BY(m_mutex);
    std::list<WatchedCall> m_calls TP_GUARDED_BY(m_mutex);
    std::vector<Report> m_reports TP_GUARDED_BY(m_mutex);
};

} // namespace tivra_internal
