#pragma once

#include <cstddef>
#include <deque>

#include <tivra_sim/HubGroup.h>

#include "Client.h"
#include "FastTime.h"
#include "History.h"

namespace history {

/// Where a history is played: groups of hubs, and a session with a watchlist, whose clock runs fast, at the
/// first.
class Stage {
public:
    Stage(const History& history, std::size_t sides, const tivra_sim::GroupConfig& config);

    tivra_sim::Hub& hubOf(const Step& step) { return sides[step.side].hub(step.member); }
    /// Does to the hubs, or the clock, what a step says that isn't the application's.
    void apply(const Step& step);
    /// Everybody serves as from the beginning.
    void clearUp();

    std::deque<tivra_sim::HubGroup> sides;

private:
    bool m_hasMoreRights = false;
    FastTime m_time;

public:
    Client client;
};

} // namespace history
