#pragma once

#include <tp/EventBase.h>
#include <tp/ReactorLoop.h>
#include <tp/SocketPoller.h>

namespace tp {

extern template class ReactorLoop<SocketPoller>;

/// The loop of a thread that serves sockets. It belongs to the thread that runs begin(), which alone may call
/// it; only end() and ask() may come from any thread. It is large: keep it off a thread's stack.
class EventReactor : public ReactorLoop<SocketPoller> {
public:
    using Backend = SocketPoller::Backend;

    explicit EventReactor(Backend backend = Backend::automatic);
    ~EventReactor() override;

    /// Watches the descriptor for hang-up alone until watchReads() or watchWrites().
    void regSocket(EventBase* event, int fd) { regSource(event, fd); }
    void unRegSocket(EventBase* event) { unRegSource(event); }
    /// Puts another descriptor in the place of the old one; what is watched stays.
    void changeSocketFD(EventBase* event, int fd);
    /// @return the descriptor, or -1 of an object without a socket
    [[nodiscard]] int getSocketFD(const EventBase* event) const;

    void watchWrites(EventBase* event) { watch(event, POLLOUT); }
    void unWatchWrites(EventBase* event) { unWatch(event, POLLOUT); }

    /// False where the system had no descriptor to give: then an idle loop hears of end() and ask() up to a
    /// second late.
    [[nodiscard]] bool canBeWoken() const noexcept { return m_poller.canInterrupt(); }
};

} // namespace tp
