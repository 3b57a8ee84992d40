#pragma once

#include <tp/LoopListener.h>

#include "receive/UserEventBase.h"
#include "receive/UserEventReactor.h"
#include "session/threads/PeriodicTimer.h"
#include "session/threads/UserThreadWork.h"

namespace tivra_internal {

/// The whole life of a user thread: its loop, and what it does beside delivering messages. Most of that runs
/// only while there is something for it to look at, and at once when asked for. @thread user
class UserThread : private tp::LoopListener {
public:
    UserThread(UserEventReactor& reactor, UserThreadWork& work);
    ~UserThread() override;
    UserThread(const UserThread&) = delete;
    UserThread& operator=(const UserThread&) = delete;

    /// Returns when the reactor has been asked to end.
    void run();

protected:
    using Timer = PeriodicTimer<UserEventReactor, UserEventBase>;

    void asked(unsigned what, double now) override;
    virtual void loopHasEnded() {}
    [[nodiscard]] UserThreadWork& work() { return m_work; }

private:
    void sourcesReady(double now) override;

    UserEventReactor& m_reactor;
    UserThreadWork& m_work;
    Timer m_statistics;  ///< every 100 ms while messages go out
    Timer m_lostAnswers; ///< every 10 ms while there are some
};

} // namespace tivra_internal
