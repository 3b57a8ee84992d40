#pragma once

#include <tp/Mutex.h>

#include "LockOrder.h"

namespace tp {
class EventBase;
} // namespace tp

namespace tivra_internal {

class HubEventReactor;
class ReadWaker;

/// The place of one hub client in the reactor that serves it. @thread hub, but for what says otherwise.
class ReactorRegistration {
public:
    /// `event` hears of the socket, `waker` of space in a full queue; both are borrowed.
    ReactorRegistration(tp::EventBase& event, ReadWaker& waker) : m_event(event), m_readWaker(waker) {}
    ReactorRegistration(const ReactorRegistration&) = delete;
    ReactorRegistration& operator=(const ReactorRegistration&) = delete;

    /// @thread any
    void attach(HubEventReactor* reactor, int index) TP_EXCLUDES(m_huber_mutex);
    /// Null before the client has been placed. @thread any
    [[nodiscard]] HubEventReactor* reactor() const TP_EXCLUDES(m_huber_mutex);
    [[nodiscard]] int index() const TP_EXCLUDES(m_huber_mutex); ///< any

    /// A dial is under way: what it waits for next is an event to write, or to read, or a hang-up.
    void awaitDial(int fd, bool forBytes) TP_EXCLUDES(m_huber_mutex);
    /// The outcome is known, or isn't waited for any more.
    void endDial() TP_EXCLUDES(m_huber_mutex);
    /// A connection is up: its bytes are waited for.
    void enter(int fd) TP_EXCLUDES(m_huber_mutex);
    void leave() TP_EXCLUDES(m_huber_mutex);
    /// A read has to wait until the socket takes bytes.
    void awaitRoom() TP_EXCLUDES(m_huber_mutex);
    /// The first event has come, or that room.
    void watchReads() TP_EXCLUDES(m_huber_mutex);
    /// The socket leaves the reactor, with a call back once the queue has space, or for good at its end.
    /// False without a reactor.
    [[nodiscard]] bool hold(bool atEnd) TP_EXCLUDES(m_huber_mutex);
    /// The socket returns.
    void resume(int fd) TP_EXCLUDES(m_huber_mutex);

private:
    tp::EventBase& m_event;
    ReadWaker& m_readWaker;
    mutable tp::Mutex m_huber_mutex{kLockHubClient}; ///< held around every registration with the reactor
    HubEventReactor* m_HUB_Event_Reactor TP_GUARDED_BY(m_huber_mutex) = nullptr;
    int m_eventReactorIndex TP_GUARDED_BY(m_huber_mutex) = -1;
};

} // namespace tivra_internal
