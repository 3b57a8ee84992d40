#pragma once

#include <tp/EventBase.h>
#include <tp/LoopListener.h>

#include "hub/HubEventReactor.h"
#include "session/threads/HubThreadWork.h"
#include "session/threads/PeriodicTimer.h"

namespace tivra_internal {

/// The whole life of a hub thread: its loop, and what it does beside serving sockets. Most of that runs only
/// while there is something for it to look at, and at once when asked for. @thread hub
class HubThread final : private tp::LoopListener {
public:
    HubThread(HubEventReactor& reactor, HubThreadWork& work);
    ~HubThread() override;

    /// Returns when the reactor has been asked to end.
    void run();

private:
    using Timer = PeriodicTimer<HubEventReactor, tp::EventBase>;

    void asked(unsigned what, double now) override;
    void sourcesReady(double now) override;
    [[nodiscard]] double restOr(double period) const;
    void supervise(double now, bool isTurn);
    [[nodiscard]] double dial(double now);

    HubEventReactor& m_reactor;
    HubThreadWork& m_work;
    Timer m_second;     ///< supervision
    Timer m_dial;       ///< when the pause before a dial ends
    Timer m_statistics; ///< every 100 ms while messages come in
    Timer m_requests;   ///< every 50 ms while requests wait
    Timer m_fillLevel;  ///< every 25 ms while a queue holds anything or a hub waits for something
};

} // namespace tivra_internal
