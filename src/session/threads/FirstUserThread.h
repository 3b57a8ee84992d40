#pragma once

#include "session/threads/UserThread.h"

namespace tivra_internal {

/// The user thread that also makes the session check and delivers the session's events, the user's and those
/// of the statistics. @thread first user
class FirstUserThread final : public UserThread {
public:
    FirstUserThread(UserEventReactor& reactor, UserThreadWork& work);

private:
    void asked(unsigned what, double now) override;
    void loopHasEnded() override;

    Timer m_second; ///< the user's events, statistics, and a session check that nobody has asked for
    Timer m_check;  ///< every 100 ms while the session is on its way to a state
    Timer m_depth;  ///< every 25 ms while a queue holds anything
};

} // namespace tivra_internal
