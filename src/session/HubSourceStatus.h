#pragma once

#include <map>
#include <set>
#include <vector>

#include <event/SessionEvent.h>
#include <tp/Mutex.h>

#include "LockOrder.h"

namespace tivra_internal {

class HubClient;

/// The two states of one hub by which the master thread sees that its sources went away or came back. The
/// session check writes 1 (available) and 2 (recovery), the master thread 5 and 6 once the sources' events
/// have gone out.
struct HubStatus {
    tivra::SessionEvent::Types prevStatus = tivra::SessionEvent::TIVRA_SESSION_UNAVAILABLE;
    tivra::SessionEvent::Types currStatus = tivra::SessionEvent::TIVRA_SESSION_UNAVAILABLE;
};

/// Per hub: its standing, the sources named in its events, and whether it has been seen down. @thread any
struct HubSourceStatus {
    tp::Mutex m_hubSourceStatus_mutex{kLockHubSourceStatus};
    std::map<HubClient*, HubStatus> hubStatusMap TP_GUARDED_BY(m_hubSourceStatus_mutex);
    std::map<HubClient*, std::set<int>> hubSrcLstMap TP_GUARDED_BY(m_hubSourceStatus_mutex);
    std::set<HubClient*> m_hubDownLst TP_GUARDED_BY(m_hubSourceStatus_mutex);

    void noteDown(HubClient* client) {
        tp::MutexLock lock(m_hubSourceStatus_mutex);
        m_hubDownLst.insert(client);
    }

    void clear() {
        tp::MutexLock lock(m_hubSourceStatus_mutex);
        hubSrcLstMap.clear();
        hubStatusMap.clear();
        m_hubDownLst.clear();
    }
};

} // namespace tivra_internal
