#pragma once

#include <deque>
#include <functional>
#include <vector>

#include <tp/Mutex.h>

#include "LockOrder.h"

namespace tivra_internal {

class HubClient;

/// Hubs that have become ready and wait for their read handler, in order. What is called under the mutex may
/// take those that come after it in the order of locks. @thread any
class NewHubs {
public:
    /// The hub has finished its handshake, and waits unless it has a handler already. @thread its own
    void enterReady(HubClient& client);
    /// A first hub that is to be dropped takes its turn as well.
    void enter(HubClient& client);
    /// Those that count as missing; `xrefComing`: not the cross-reference hubs, which come up by themselves.
    [[nodiscard]] int countPending(bool xrefComing) const;
    /// Calls `serve` for the first one, under the mutex, and takes it off the list; false when there is none.
    /// @thread master
    bool serveNext(const std::function<void(HubClient&)>& serve);
    /// Calls `serve` for those of `hubs` that wait, and takes them off the list; the others keep their order.
    /// Then calls `mark` for each of `hubs` that has a handler. All under the mutex. @thread master
    void serveThese(const std::vector<HubClient*>& hubs, const std::function<void(HubClient&)>& serve,
                    const std::function<void(HubClient&)>& mark);
    void clear();

private:
    mutable tp::Mutex newQRHQueue_mutex{kLockNewQRHQueue};
    std::deque<HubClient*> newQRHQueue TP_GUARDED_BY(newQRHQueue_mutex);
};

} // namespace tivra_internal
