#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include <event/SessionEvent.h>
#include <tp/Mutex.h>

#include "LockOrder.h"
#include "config/HandleAccess.h"

namespace tivra {
class SessionEventHandler;
}

namespace tivra_internal {

using SessionEventPtr = HandlePtr<tivra::SessionEvent>;

/// Events between the thread that raises them and the first user thread, which delivers them.
class SessionEventQueue {
public:
    /// `wake` is called after each event, for whoever delivers.
    explicit SessionEventQueue(tivra::Session& session, std::function<void()> wake = {})
        : m_session(session), m_wake(std::move(wake)) {}

    /// @thread any. A flood of source events from a hub is cut off; events of the session's state are always
    /// kept.
    void push(tivra::SessionEvent::Types type, const std::string& dicVersion, int sourceID, int queueDepth);
    void pushSource(tivra::SessionEvent::Types type, int source) { push(type, std::string(), source, 0); }
    void pushState(tivra::SessionEvent::Types type) { push(type, std::string(), 0, 0); }
    /// The oldest event, null when there is none. @thread first user thread
    [[nodiscard]] SessionEventPtr pop();
    /// Hands up to so many to the application. True when no event is left. @thread first user thread
    bool deliver(tivra::SessionEventHandler& handler, std::size_t most);
    void clear();

private:
    [[nodiscard]] bool mayDrop(tivra::SessionEvent::Types type) const TP_REQUIRES(m_session_event_mutex);

    tivra::Session& m_session; ///< that the events name; borrowed
    const std::function<void()> m_wake;
    tp::Mutex m_session_event_mutex{kLockSessionEvent};
    std::deque<SessionEventPtr> eventQueue TP_GUARDED_BY(m_session_event_mutex);
    double m_lastDropWarning TP_GUARDED_BY(m_session_event_mutex) = -1.0;
};

/// The text by which an event stands in the log, such as "DIC_LOADED (version)".
[[nodiscard]] std::string sessionEventText(const tivra::SessionEvent& event);

} // namespace tivra_internal
