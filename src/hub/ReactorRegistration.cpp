#include "hub/ReactorRegistration.h"

#include "hub/HubEventReactor.h"
#include "hub/ReadWaker.h"

namespace tivra_internal {

void ReactorRegistration::attach(HubEventReactor* reactor, int index) {
    const tp::MutexLock lock(m_huber_mutex);
    m_HUB_Event_Reactor = reactor;
    m_eventReactorIndex = index;
}

HubEventReactor* ReactorRegistration::reactor() const {
    const tp::MutexLock lock(m_huber_mutex);
    return m_HUB_Event_Reactor;
}

int ReactorRegistration::index() const {
    const tp::MutexLock lock(m_huber_mutex);
    return m_eventReactorIndex;
}

void ReactorRegistration::awaitDial(int fd, bool forBytes) {
    const tp::MutexLock lock(m_huber_mutex);
    if (m_HUB_Event_Reactor == nullptr)
        return;
    m_HUB_Event_Reactor->regSocket(&m_event, fd);
    if (forBytes)
        m_HUB_Event_Reactor->watchReads(&m_event);
    else
        m_HUB_Event_Reactor->watchWrites(&m_event);
}

void ReactorRegistration::endDial() {
    const tp::MutexLock lock(m_huber_mutex);
    if (m_HUB_Event_Reactor != nullptr)
        m_HUB_Event_Reactor->unRegSocket(&m_event);
}

void ReactorRegistration::enter(int fd) {
    const tp::MutexLock lock(m_huber_mutex);
    if (m_HUB_Event_Reactor == nullptr)
        return;
    m_HUB_Event_Reactor->regSocket(&m_event, fd);
    m_HUB_Event_Reactor->watchReads(&m_event);
    m_HUB_Event_Reactor->regActivity(&m_event);
}

void ReactorRegistration::leave() {
    const tp::MutexLock lock(m_huber_mutex);
    if (m_HUB_Event_Reactor == nullptr)
        return;
    m_HUB_Event_Reactor->unWatchReads(&m_event);
    m_HUB_Event_Reactor->unWatchWrites(&m_event);
    m_HUB_Event_Reactor->unRegSocket(&m_event);
    m_readWaker.leave(*m_HUB_Event_Reactor);
    m_HUB_Event_Reactor->unRegActivity(&m_event);
}

void ReactorRegistration::awaitRoom() {
    const tp::MutexLock lock(m_huber_mutex);
    if (m_HUB_Event_Reactor == nullptr)
        return;
    m_HUB_Event_Reactor->unWatchReads(&m_event);
    m_HUB_Event_Reactor->watchWrites(&m_event);
}

void ReactorRegistration::watchReads() {
    const tp::MutexLock lock(m_huber_mutex);
    if (m_HUB_Event_Reactor == nullptr)
        return;
    m_HUB_Event_Reactor->watchReads(&m_event);
    m_HUB_Event_Reactor->unWatchWrites(&m_event);
}

bool ReactorRegistration::hold(bool atEnd) {
    const tp::MutexLock lock(m_huber_mutex);
    if (m_HUB_Event_Reactor == nullptr)
        return false;
    m_HUB_Event_Reactor->unRegSocket(&m_event);
    if (atEnd)
        m_readWaker.leave(*m_HUB_Event_Reactor);
    else
        m_readWaker.listen(*m_HUB_Event_Reactor);
    return true;
}

void ReactorRegistration::resume(int fd) {
    const tp::MutexLock lock(m_huber_mutex);
    if (m_HUB_Event_Reactor == nullptr)
        return;
    m_readWaker.leave(*m_HUB_Event_Reactor);
    m_HUB_Event_Reactor->regSocket(&m_event, fd);
    m_HUB_Event_Reactor->watchReads(&m_event);
}

} // namespace tivra_internal
