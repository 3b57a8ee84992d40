#pragma once

#include <tp/EventBase.h>
#include <tp/NoMutex.h>
#include <tp/PollTable.h>
#include <tp/WakeEvent.h>

#include <atomic>
#include <memory>
#include <sys/epoll.h>
#include <vector>

namespace tp {

/// Waits for sockets, by epoll or, where that doesn't work, by poll, and calls their handlers. Belongs to one
/// thread, as the whole reactor.
class SocketPoller {
public:
    /// `poll` serves a kernel without working epoll; `automatic` finds out.
    enum class Backend { automatic, poll };

    using Event = EventBase;
    using Wake = wake_t;
    using Source = int;
    using Entry = pollfd;
    using Mutex = NoMutex;
    using Lock = NoMutex::Lock;
    static constexpr int maxEvents = 4096;
    static constexpr Entry kUnused{-1, 0, 0};
    static constexpr LockRank kLockSources = kLeafRank;
    static constexpr LockRank kLockActivity = kLeafRank;
    using Table = PollTable<Event, Entry, maxEvents>;

    explicit SocketPoller(Backend backend);
    ~SocketPoller();
    SocketPoller(const SocketPoller&) = delete;
    SocketPoller& operator=(const SocketPoller&) = delete;

    static void reportRefusal(int fd, bool hasSocket);
    void add(const Entry& entry, Event* event);
    void modify(const Entry& entry, Event* event);
    /// An object that leaves during a dispatch gets nothing more from the pending list.
    void remove(const Entry& entry, Event* event);
    void clearPending(const Event* event, unsigned flags);

    /// The number of sockets that are ready; below 0, with errno, after a failure.
    [[nodiscard]] int wait(Table& sockets, int milliseconds);
    /// Calls the handlers of those that the last wait found.
    void serve(Table& sockets, double curtime, const std::atomic<int>& mustExit);
    /// Makes the present wait, or the next one, return. Where that can't be had the wait goes on: the loop
    /// wakes once a second anyway. @thread any
    void interrupt() noexcept { m_wakeEvent.signal(); }
    [[nodiscard]] bool canInterrupt() const noexcept { return m_wakeEvent.isUsable(); }

private:
    void probeEPoll();
    bool control(int operation, const char* name, const Entry& entry, Event* event);
    [[nodiscard]] int waitEPoll(int milliseconds);
    [[nodiscard]] int waitPoll(Table& sockets, int milliseconds);
    void serveEPoll(double curtime);
    [[nodiscard]] static bool servePollSlot(Table& sockets, int slot, double curtime);

    int m_epoll_fd = -1;
    std::unique_ptr<epoll_event[]> m_epoll_events;
    bool m_epoll_supported = false;
    int m_ready = 0; ///< of the last wait, as long as they are served
    WakeEvent m_wakeEvent;
    std::vector<pollfd> m_polled; ///< for poll: all sockets and the wake event; it grows once
};

} // namespace tp
