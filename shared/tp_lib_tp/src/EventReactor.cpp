#include <tp/EventReactor.h>

#include <tp/Clock.h>
#include <tp/eprintf.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <unistd.h>

namespace tp {

static_assert(POLLIN == EPOLLIN && POLLOUT == EPOLLOUT && POLLHUP == EPOLLHUP && POLLERR == EPOLLERR,
              "poll's and epoll's event bits are used for each other");

namespace {

constexpr unsigned allFlags = ~0U;
// What a host that has closed its standard streams would take for them.
constexpr int firstUsableDescriptor = 3;

// Stands in an activity slot that a handler vacated while doPreIO or doPostIO walks the list. It is never
// destroyed: a reactor may outlive the end of main().
EventBase* dummy() {
    static EventBase* const s_dummy = new EventBase;
    return s_dummy;
}

unsigned bits(short flags) noexcept {
    return static_cast<unsigned short>(flags);
}

} // namespace

EventReactor::EventReactor(Backend backend) {
    std::fill(std::begin(m_pollList), std::end(m_pollList), pollfd{-1, 0, 0});
    std::fill(std::begin(m_sockets), std::end(m_sockets), nullptr);
    std::fill(std::begin(m_activity), std::end(m_activity), dummy());
    if (backend == Backend::automatic)
        probeEPoll();
}

EventReactor::~EventReactor() {
    if (m_epoll_supported)
        ::close(m_epoll_fd);
}

void EventReactor::probeEPoll() {
    int fd = ::epoll_create1(EPOLL_CLOEXEC);
    if (fd >= 0 && fd < firstUsableDescriptor) {
        const int low = fd;
        fd = ::fcntl(low, F_DUPFD_CLOEXEC, firstUsableDescriptor);
        ::close(low);
    }
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

void EventReactor::begin() {
    m_curLoopTime = m_lastLoopTime = Clock::now();
    while (m_mustExit == 0)
        mainLoop();
    if (m_inBurst != 0)
        doPostIO(m_curLoopTime);
    m_mustExit = 0;
}

void EventReactor::end() {
    m_mustExit = 1;
}

void EventReactor::mainLoop() {
    m_timers.pass(m_curLoopTime, m_lastLoopTime, [this] {
        if (m_inBurst == 0)
            doPreIO(m_curLoopTime);
    });
    m_lastLoopTime = m_curLoopTime;

    const int wait = ReactorWait::milliseconds(m_inBurst != 0, m_timers.nextTimer() - m_curLoopTime);
    if (m_mustExit != 0)
        return;
    const int ready = m_epoll_supported ? doEPolls(wait) : doPolls(wait);
    if (ready < 0)
        m_wait.handleFailure(wait);
    else if (ready == 0 && m_inBurst != 0)
        doPostIO(m_curLoopTime);
}

void EventReactor::doPreIO(double curtime) {
    m_inBurst = 1;
    for (int i = m_activityCount - 1; i >= 0; --i)
        m_activity[i]->preActivityEvent(curtime);
}

void EventReactor::doPostIO(double curtime) {
    m_inBurst = 0;
    for (int i = m_activityCount - 1; i >= 0; --i)
        m_activity[i]->postActivityEvent(curtime);
}

int EventReactor::doPolls(int timeout) {
    int left = ::poll(m_pollList, static_cast<nfds_t>(m_socketCount), timeout);
    const int error = errno;
    m_curLoopTime = Clock::now();
    if (left < 1) {
        errno = error;
        return left;
    }
    if (m_inBurst == 0)
        doPreIO(m_curLoopTime);
    for (int slot = m_socketCount - 1; slot >= 0 && left > 0; --slot) {
        if (servePollSlot(slot, m_curLoopTime))
            --left;
    }
    return 1;
}

// Returns whether the slot was ready and is served now.
bool EventReactor::servePollSlot(int slot, double curtime) {
    pollfd& entry = m_pollList[slot];
    EventBase* const event = m_sockets[slot];
    if (entry.revents == 0 || event == nullptr)
        return false;
    if ((entry.revents & POLLOUT) != 0) {
        entry.revents = static_cast<short>(entry.revents & ~POLLOUT);
        event->writableEvent(curtime);
        // The object may have left, and another one taken its slot.
        if (m_sockets[slot] != event)
            return false;
        if (entry.revents == 0)
            return true;
    }
    entry.revents = 0;
    event->readableEvent(curtime);
    return true;
}

int EventReactor::doEPolls(int timeout) {
    const int ready = ::epoll_wait(m_epoll_fd, m_epoll_events.get(), maxEvents, timeout);
    const int error = errno;
    m_curLoopTime = Clock::now();
    if (ready < 1) {
        errno = error;
        return ready;
    }
    m_epoll_count = ready;
    if (m_inBurst == 0)
        doPreIO(m_curLoopTime);
    for (int i = 0; i < ready; ++i) {
        epoll_event& entry = m_epoll_events[static_cast<std::size_t>(i)];
        auto* const event = static_cast<EventBase*>(entry.data.ptr);
        if ((entry.events & EPOLLOUT) != 0) {
            entry.events &= ~static_cast<unsigned>(EPOLLOUT);
            event->writableEvent(m_curLoopTime);
        }
        // Read again: a handler that unregisters an object clears the flags that are still pending.
        if (entry.events != 0)
            event->readableEvent(m_curLoopTime);
    }
    m_epoll_count = 0;
    return 1;
}

void EventReactor::regSocket(EventBase* event, int fd) {
    if (event->m_pollPos != nullptr || m_socketCount >= maxEvents) {
        eprintf(EPF_CRIT, "regSocket: fd %d not registered: %s", fd,
                event->m_pollPos != nullptr ? "the object has a socket" : "the reactor is full");
        return;
    }
    m_pollList[m_socketCount] = pollfd{fd, POLLHUP, 0};
    m_sockets[m_socketCount] = event;
    event->m_pollPos = &m_pollList[m_socketCount];
    ++m_socketCount;
    addEPoll(event);
}

void EventReactor::unRegSocket(EventBase* event) {
    if (event->m_pollPos == nullptr)
        return;
    delEPoll(event);
    const auto slot = event->m_pollPos - m_pollList;
    const int last = --m_socketCount;
    if (slot != last) {
        m_pollList[slot] = m_pollList[last];
        m_sockets[slot] = m_sockets[last];
        m_sockets[slot]->m_pollPos = &m_pollList[slot];
    }
    m_pollList[last] = pollfd{-1, 0, 0};
    m_sockets[last] = nullptr;
    event->m_pollPos = nullptr;
}

void EventReactor::changeSocketFD(EventBase* event, int fd) {
    if (event->m_pollPos == nullptr)
        return;
    delEPoll(event);
    event->m_pollPos->fd = fd;
    event->m_pollPos->revents = 0;
    addEPoll(event);
}

int EventReactor::getSocketFD(const EventBase* event) const {
    return event->m_pollPos != nullptr ? event->m_pollPos->fd : -1;
}

void EventReactor::watchReads(EventBase* event) {
    watch(event, POLLIN);
}

void EventReactor::unWatchReads(EventBase* event) {
    unWatch(event, POLLIN);
}

void EventReactor::watchWrites(EventBase* event) {
    watch(event, POLLOUT);
}

void EventReactor::unWatchWrites(EventBase* event) {
    unWatch(event, POLLOUT);
}

void EventReactor::watch(EventBase* event, short flag) {
    if (event->m_pollPos == nullptr || (event->m_pollPos->events & flag) != 0)
        return;
    event->m_pollPos->events = static_cast<short>(event->m_pollPos->events | flag);
    modEPoll(event);
}

void EventReactor::unWatch(EventBase* event, short flag) {
    if (event->m_pollPos == nullptr || (event->m_pollPos->events & flag) == 0)
        return;
    event->m_pollPos->events = static_cast<short>(event->m_pollPos->events & ~flag);
    event->m_pollPos->revents = static_cast<short>(event->m_pollPos->revents & ~flag);
    modEPoll(event);
    clearflagsEPoll(event, bits(flag));
}

void EventReactor::regActivity(EventBase* event) {
    if (m_activityCount >= maxEvents) {
        eprintf(EPF_CRIT, "regActivity: not registered: the reactor is full");
        return;
    }
    m_activity[m_activityCount++] = event;
}

void EventReactor::unRegActivity(EventBase* event) {
    EventBase** const end = m_activity + m_activityCount;
    EventBase** const slot = std::find(m_activity, end, event);
    if (slot == end)
        return;
    --m_activityCount;
    *slot = m_activity[m_activityCount];
    m_activity[m_activityCount] = dummy();
}

void EventReactor::addEPoll(EventBase* event) {
    controlEPoll(event, EPOLL_CTL_ADD, "addEPoll");
}

void EventReactor::modEPoll(EventBase* event) {
    controlEPoll(event, EPOLL_CTL_MOD, "modEPoll");
}

void EventReactor::delEPoll(EventBase* event) {
    clearflagsEPoll(event, allFlags);
    controlEPoll(event, EPOLL_CTL_DEL, "delEPoll");
}

void EventReactor::controlEPoll(EventBase* event, int operation, const char* name) {
    if (!m_epoll_supported || event->m_pollPos == nullptr)
        return;
    epoll_event wanted{};
    wanted.events = bits(event->m_pollPos->events);
    wanted.data.ptr = event;
    const int fd = event->m_pollPos->fd;
    if (::epoll_ctl(m_epoll_fd, operation, fd, &wanted) != 0)
        eprintf(EPF_CRIT, "Error %s %d:%s", name, fd, std::strerror(errno));
}

// An object that leaves, or stops watching, during a dispatch gets nothing more from the pending list.
void EventReactor::clearflagsEPoll(const EventBase* event, unsigned flags) {
    for (int i = 0; i < m_epoll_count; ++i) {
        epoll_event& entry = m_epoll_events[static_cast<std::size_t>(i)];
        if (entry.data.ptr == event) {
            entry.events &= ~flags;
            return;
        }
    }
}

} // namespace tp
