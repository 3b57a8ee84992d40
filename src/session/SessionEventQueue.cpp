#include "session/SessionEventQueue.h"

#include <cstddef>
#include <utility>

#include <session/SessionEventHandler.h>
#include <tp/Clock.h>
#include <tp/callOut.h>
#include <tp/eprintf.h>

#include "session/SessionEventImpl.h"

namespace tivra_internal {
namespace {

constexpr std::size_t kMaxQueuedEvents = 100000;
constexpr double kSecondsBetweenDropWarnings = 1.0;
// A hub chooses the dictionary version's text; the log line stays short.
constexpr std::size_t kMaxEventText = 49;

std::string withDetail(const char* opening, const std::string& detail) {
    return (opening + detail + ")").substr(0, kMaxEventText);
}

} // namespace

bool SessionEventQueue::mayDrop(tivra::SessionEvent::Types type) const {
    using tivra::SessionEvent;
    switch (type) {
    case SessionEvent::TIVRA_SESSION_SOURCE_ADDED:
    case SessionEvent::TIVRA_SESSION_SOURCE_REMOVED:
    case SessionEvent::TIVRA_SESSION_AVAILABLE_ALLSOURCES:
    case SessionEvent::TIVRA_SESSION_AVAILABLE_SOURCES:
    case SessionEvent::TIVRA_SESSION_RECOVERY_SOURCES:
        return eventQueue.size() >= kMaxQueuedEvents;
    default:
        return false;
    }
}

void SessionEventQueue::push(tivra::SessionEvent::Types type, const std::string& dicVersion, int sourceID,
                             int queueDepth) {
    SessionEventPtr event = HandleAccess::make<tivra::SessionEvent>(
        std::make_unique<SessionEventImpl>(type, m_session, dicVersion, sourceID, queueDepth));
    tp::MutexLock lock(m_session_event_mutex);
    if (!mayDrop(type)) {
        eventQueue.push_back(std::move(event));
        lock.unlock();
        if (m_wake)
            m_wake();
        return;
    }
    const double now = tp::Clock::monotonic();
    if (m_lastDropWarning >= 0.0 && now - m_lastDropWarning < kSecondsBetweenDropWarnings)
        return;
    m_lastDropWarning = now;
    eprintf(EPF_WARN, "%zu session events wait for delivery; source events are dropped", eventQueue.size());
}

SessionEventPtr SessionEventQueue::pop() {
    tp::MutexLock lock(m_session_event_mutex);
    if (eventQueue.empty())
        return nullptr;
    SessionEventPtr event = std::move(eventQueue.front());
    eventQueue.pop_front();
    return event;
}

bool SessionEventQueue::deliver(tivra::SessionEventHandler& handler, std::size_t most) {
    for (std::size_t delivered = 0; delivered < most; ++delivered) {
        const SessionEventPtr event = pop();
        if (!event)
            return true;
        tp::callOut("onSessionEvent", [&] { handler.onSessionEvent(*event); });
        eprintf(EPF_INFO, "SessionEvent: %s", sessionEventText(*event).c_str());
    }
    return false;
}

void SessionEventQueue::clear() {
    tp::MutexLock lock(m_session_event_mutex);
    eventQueue.clear();
}

std::string sessionEventText(const tivra::SessionEvent& event) {
    using tivra::SessionEvent;
    const int source = event.getSourceID();
    switch (event.getType()) {
    case SessionEvent::TIVRA_SESSION_UNAVAILABLE:
        return "SESSION_UNAVAILABLE";
    case SessionEvent::TIVRA_SESSION_ESTABLISHED:
        return "SESSION_ESTABLISHED";
    case SessionEvent::TIVRA_SESSION_RECOVERY:
        return "SESSION_RECOVERY";
    case SessionEvent::TIVRA_DIC_LOADED:
        return withDetail("DIC_LOADED (", event.getDicVersion());
    case SessionEvent::TIVRA_SESSION_AVAILABLE_ALLSOURCES:
        return withDetail("SESSION_AVAILABLE_ALLSOURCES(", std::to_string(source));
    case SessionEvent::TIVRA_SESSION_AVAILABLE_SOURCES:
        return withDetail("SESSION_AVAILABLE_SOURCES(", std::to_string(source));
    case SessionEvent::TIVRA_SESSION_RECOVERY_SOURCES:
        return withDetail("SESSION_RECOVERY_SOURCES(", std::to_string(source));
    case SessionEvent::TIVRA_SESSION_RECEIVE_QUEUE_ABOVE_THRESHOLD:
        return withDetail("SESSION_RECEIVE_QUEUE_ABOVE_THRESHOLD (", std::to_string(event.getQueueDepth()));
    case SessionEvent::TIVRA_SESSION_RECEIVE_QUEUE_BELOW_THRESHOLD:
        return withDetail("SESSION_RECEIVE_QUEUE_BELOW_THRESHOLD (", std::to_string(event.getQueueDepth()));
    case SessionEvent::TIVRA_SESSION_JIT_START_CONFLATING:
        return "TIVRA_SESSION_JIT_START_CONFLATING";
    case SessionEvent::TIVRA_SESSION_JIT_STOP_CONFLATING:
        return "TIVRA_SESSION_JIT_STOP_CONFLATING";
    case SessionEvent::TIVRA_SESSION_SOURCE_ADDED:
        return withDetail("TIVRA_SESSION_SOURCE_ADDED(", std::to_string(source));
    case SessionEvent::TIVRA_SESSION_SOURCE_REMOVED:
        return withDetail("TIVRA_SESSION_SOURCE_REMOVED(", std::to_string(source));
    }
    return std::string();
}

} // namespace tivra_internal
