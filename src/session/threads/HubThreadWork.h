#pragma once

#include <optional>

namespace tivra_internal {

class HubEventReactor;

/// What a HubThread does for its session. @thread hub
class HubThreadWork {
public:
    virtual ~HubThreadWork() = default;

    /// Looks after the hubs: at a turn, once a second, or between two turns because one of them has changed.
    virtual void check_hub_clients(double now, HubEventReactor& reactor, bool isTurn) = 0;
    /// In how many seconds a hub is to be dialled by such a look, where that doesn't wait for a turn.
    [[nodiscard]] virtual std::optional<double> pauseBeforeDial(HubEventReactor& reactor) = 0;
    /// Takes the counters of the last 100 ms over. True when something has come in.
    virtual bool calc_hub_stats(double now, HubEventReactor& reactor) = 0;
    /// Looks at the queues, and at what their hubs wait for. True when there is more of that.
    virtual bool calc_hub_queue_full_stats(double now, HubEventReactor& reactor) = 0;
};

} // namespace tivra_internal
