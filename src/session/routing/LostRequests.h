#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include <tp/Mutex.h>

namespace tivra_internal {

class HubClient;

/// Tags whose answer was lost with a connection, on their way to their end. That comes on the user thread of
/// the hub, after all messages that the hub had sent before, and after the session check has reported the
/// loss. Those of hubs that have left the session stand under null. @thread any
class LostRequests {
public:
    /// `wake` is called when there are more, for the session check, which reports the loss before them.
    explicit LostRequests(std::function<void()> wake = {}) : m_wake(std::move(wake)) {}

    void add(const HubClient* hub, const std::vector<int64_t>& tags);
    /// The hub's queue has been emptied for a new connection: the tags need not wait for it any more.
    void stopWaitingForQueue(const HubClient* hub);
    /// The hub leaves the session, and nobody looks after its tags any more.
    void disown(const HubClient* hub);
    [[nodiscard]] bool isEmpty();
    void clear();

    /// The session check begins to look at the hubs. @thread first user
    void beginCheck();
    /// The events of that check have been delivered. @thread first user
    void endCheck();

    /// The hub's next tag whose time has come.
    [[nodiscard]] std::optional<int64_t> next(const HubClient* hub, bool queueIsEmpty);

private:
    struct Lost {
        int64_t tag;
        uint64_t check; ///< the last that may have begun before the loss
        bool waitsForQueue;
    };

    const std::function<void()> m_wake;
    tp::Mutex m_mutex; ///< guards what follows
    std::map<const HubClient*, std::deque<Lost>> m_lost TP_GUARDED_BY(m_mutex);
    uint64_t m_lastCheck TP_GUARDED_BY(m_mutex) = 0;
    uint64_t m_reportedCheck TP_GUARDED_BY(m_mutex) = 0;
};

} // namespace tivra_internal
