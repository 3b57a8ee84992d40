#pragma once

#include <set>

#include <tp/Mutex.h>

namespace tivra_internal {

class HubClient;

/// How many hubs a start needs, and the hubs that it has set aside because they have failed: it goes on
/// without them, and they join when they are ready. @thread any
class PartialStart {
public:
    /// 0: a start needs all hubs. Before the start.
    void require(int least) { m_least = least; }
    /// A start may go on without hubs.
    [[nodiscard]] bool isOn() const { return m_least > 0; }
    [[nodiscard]] bool isEnough(int hubs) const { return hubs >= m_least; }

    void setAside(const HubClient& client) TP_EXCLUDES(m_mutex) {
        const tp::MutexLock lock(m_mutex);
        m_aside.insert(&client);
    }
    [[nodiscard]] bool isAside(const HubClient* client) const TP_EXCLUDES(m_mutex) {
        if (!isOn())
            return false;
        const tp::MutexLock lock(m_mutex);
        return m_aside.count(client) != 0;
    }
    /// The hubs are gone.
    void forget() TP_EXCLUDES(m_mutex) {
        const tp::MutexLock lock(m_mutex);
        m_aside.clear();
    }

private:
    int m_least = 0;
    mutable tp::Mutex m_mutex; ///< guards what follows
    std::set<const HubClient*> m_aside TP_GUARDED_BY(m_mutex);
};

} // namespace tivra_internal
