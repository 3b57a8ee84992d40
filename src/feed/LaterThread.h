#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <utility>

#include <tp/Mutex.h>
#include <tp/Thread.h>

namespace tivra_internal {

/// A feed's own thread, for what is to be done at a time or out of a callback. Work that is left when it ends
/// is dropped.
class LaterThread {
public:
    using Work = std::function<void()>;
    /// Stands for a piece of work: when it is due, and a number that no other has had.
    using Ticket = std::pair<double, std::uint64_t>;

    /// @throws std::system_error when the system refuses a thread
    LaterThread();
    ~LaterThread();
    LaterThread(const LaterThread&) = delete;
    LaterThread& operator=(const LaterThread&) = delete;

    /// @param time  by the monotonic clock, in seconds. @thread any
    Ticket runAt(double time, Work work) TP_EXCLUDES(m_mutex);
    /// It isn't done, unless it has begun. @thread any
    void drop(const Ticket& ticket) TP_EXCLUDES(m_mutex);
    /// Waits for what runs. On the thread itself it lets that go.
    void end() TP_EXCLUDES(m_mutex);

private:
    void loop() TP_EXCLUDES(m_mutex);
    [[nodiscard]] Work takeDue() TP_REQUIRES(m_mutex);
    void waitForDue() TP_REQUIRES(m_mutex);

    tp::Mutex m_mutex; ///< guards what follows
    tp::ConditionVariable m_changed;
    std::map<Ticket, Work> m_work TP_GUARDED_BY(m_mutex);
    std::uint64_t m_lastTicket TP_GUARDED_BY(m_mutex) = 0;
    bool m_isEnding TP_GUARDED_BY(m_mutex) = false;
    tp::Thread m_thread; ///< the last member: it uses the others
};

} // namespace tivra_internal
