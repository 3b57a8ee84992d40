#include <tp/SocketPoller.h>

#include <tp/aboveStandardStreams.h>
#include <tp/eprintf.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <new>
#include <unistd.h>
#include <utility>

namespace tp {

static_assert(POLLIN == EPOLLIN && POLLOUT == EPOLLOUT && POLLHUP == EPOLLHUP && POLLERR == EPOLLERR,
              "poll's and epoll's event bits are used for each other");

namespace {

constexpr unsigned kAllFlags = ~0U;

} // namespace

SocketPoller::SocketPoller(Backend backend) {
    if (backend == Backend::automatic)
        probeEPoll();
    if (!m_epoll_supported)
        m_polled.reserve(maxEvents + 1);
    else if (m_wakeEvent.isUsable() &&
             !control(EPOLL_CTL_ADD, "addEPoll", {m_wakeEvent.fd(), POLLIN, 0}, nullptr))
        m_wakeEvent.close();
}

SocketPoller::~SocketPoller() {
    if (m_epoll_supported)
        ::close(m_epoll_fd);
}

void SocketPoller::probeEPoll() {
    const int fd = aboveStandardStreams(::epoll_create1(EPOLL_CLOEXEC));
    if (fd < 0)
        return;
    std::unique_ptr<epoll_event[]> events(new (std::nothrow) epoll_event[maxEvents]);
    if (events == nullptr || (::epoll_wait(fd, events.get(), maxEvents, 0) < 0 && errno == ENOSYS)) {
        ::close(fd);
        return;
    }
    m_epoll_fd = fd;
    m_epoll_events = std::move(events);
    m_epoll_supported = true;
}

void SocketPoller::reportRefusal(int fd, bool hasSocket) {
    eprintf(EPF_CRIT, "regSocket: fd %d not registered: %s", fd,
            hasSocket ? "the object has a socket" : "the reactor is full");
}

void SocketPoller::add(const Entry& entry, Event* event) {
    control(EPOLL_CTL_ADD, "addEPoll", entry, event);
}

void SocketPoller::modify(const Entry& entry, Event* event) {
    control(EPOLL_CTL_MOD, "modEPoll", entry, event);
}

void SocketPoller::remove(const Entry& entry, Event* event) {
    clearPending(event, kAllFlags);
    control(EPOLL_CTL_DEL, "delEPoll", entry, event);
}

/// False when it could not be done, which has been logged.
bool SocketPoller::control(int operation, const char* name, const Entry& entry, Event* event) {
    if (!m_epoll_supported)
        return true;
    epoll_event wanted{};
    wanted.events = static_cast<unsigned short>(entry.events);
    wanted.data.ptr = event;
    if (::epoll_ctl(m_epoll_fd, operation, entry.fd, &wanted) == 0)
        return true;
    eprintf(EPF_CRIT, "Error %s %d:%s", name, entry.fd, std::strerror(errno));
    return false;
}

void SocketPoller::clearPending(const Event* event, unsigned flags) {
    if (!m_epoll_supported)
        return;
    for (int i = 0; i < m_ready; ++i) {
        epoll_event& entry = m_epoll_events[static_cast<std::size_t>(i)];
        if (entry.data.ptr == event) {
            entry.events &= ~flags;
            return;
        }
    }
}

int SocketPoller::wait(Table& sockets, int milliseconds) {
    const int ready = m_epoll_supported ? waitEPoll(milliseconds) : waitPoll(sockets, milliseconds);
    if (ready > 0)
        m_ready = ready;
    return ready;
}

int SocketPoller::waitEPoll(int milliseconds) {
    epoll_event* const events = m_epoll_events.get();
    const int ready = ::epoll_wait(m_epoll_fd, events, maxEvents, milliseconds);
    // The wake event is nobody's: what is served are the sockets.
    epoll_event* const end = events + std::max(ready, 0);
    epoll_event* const wake =
        std::find_if(events, end, [](const epoll_event& entry) { return entry.data.ptr == nullptr; });
    if (wake == end)
        return ready;
    m_wakeEvent.drain();
    std::move(wake + 1, end, wake);
    return ready - 1;
}

int SocketPoller::waitPoll(Table& sockets, int milliseconds) {
    const auto count = static_cast<std::size_t>(sockets.size());
    m_polled.assign(sockets.entries(), sockets.entries() + count);
    m_polled.push_back({m_wakeEvent.fd(), POLLIN, 0});
    int ready = ::poll(m_polled.data(), static_cast<nfds_t>(m_polled.size()), milliseconds);
    if (ready <= 0)
        return ready;
    if (m_polled.back().revents != 0) {
        m_wakeEvent.drain();
        --ready;
    }
    std::copy_n(m_polled.begin(), count, sockets.entries());
    return ready;
}

void SocketPoller::serve(Table& sockets, double curtime, const std::atomic<int>& /*mustExit*/) {
    if (m_epoll_supported) {
        serveEPoll(curtime);
    } else {
        for (int slot = sockets.size() - 1; slot >= 0 && m_ready > 0; --slot) {
            if (servePollSlot(sockets, slot, curtime))
                --m_ready;
        }
    }
    m_ready = 0;
}

void SocketPoller::serveEPoll(double curtime) {
    for (int i = 0; i < m_ready; ++i) {
        epoll_event& entry = m_epoll_events[static_cast<std::size_t>(i)];
        auto* const event = static_cast<Event*>(entry.data.ptr);
        if ((entry.events & EPOLLOUT) != 0) {
            entry.events &= ~static_cast<unsigned>(EPOLLOUT);
            event->writableEvent(curtime);
        }
        // Read again: a handler that unregisters an object clears the flags that are still pending.
        if (entry.events != 0)
            event->readableEvent(curtime);
    }
}

// Returns whether the slot was ready and is served now.
bool SocketPoller::servePollSlot(Table& sockets, int slot, double curtime) {
    Entry& entry = sockets.entries()[slot];
    Event* const event = sockets.owner(slot);
    if (entry.revents == 0 || event == nullptr)
        return false;
    if ((entry.revents & POLLOUT) != 0) {
        entry.revents = static_cast<short>(entry.revents & ~POLLOUT);
        event->writableEvent(curtime);
        // The object may have left, and another one taken its slot.
        if (sockets.owner(slot) != event)
            return false;
        if (entry.revents == 0)
            return true;
    }
    entry.revents = 0;
    event->readableEvent(curtime);
    return true;
}

} // namespace tp
