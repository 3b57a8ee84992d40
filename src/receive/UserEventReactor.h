#pragma once

#include <tp/ReactorLoop.h>

#include "receive/QueuePoller.h"

namespace tp {
extern template class ReactorLoop<tivra_internal::QueuePoller>;
} // namespace tp

namespace tivra_internal {

/// The loop of a user thread: waits for queues to hold data and calls their handlers, runs timers, and
/// brackets each burst of work. One thread runs the loop; others register queues and activities meanwhile,
/// though no activity from within a pre or post activity handler. A handler must stay alive until the loop
/// has ended, or be unregistered by the loop's own thread, since a call to it may be under way. end() ends an
/// idle loop at once. @thread any, but for timers
class UserEventReactor : public tp::ReactorLoop<QueuePoller> {
public:
    explicit UserEventReactor(int index);
    ~UserEventReactor() override;

    void regQueue(UserEventBase* event, Queue* queue) { regSource(event, queue); }
    void unRegQueue(UserEventBase* event) { unRegSource(event); }

    [[nodiscard]] int getIndex() const noexcept { return index; }

private:
    const int index;
};

} // namespace tivra_internal
