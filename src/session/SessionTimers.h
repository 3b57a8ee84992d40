#pragma once

#include <tp/EventReactor.h>

#include "receive/UserEventBase.h"

namespace tivra_internal {

class HubEventReactor;
class SessionImpl;
class UserEventReactor;

/// The timers of a hub thread. They live on its stack; each returns the time of its next run. @thread hub
class HubTimer : public tp::EventBase {
protected:
    HubTimer(SessionImpl& owner, HubEventReactor& reactor) : session(owner), HUB_Event_Reactor(reactor) {}

    SessionImpl& session;
    HubEventReactor& HUB_Event_Reactor;
};

/// Ends the reactor when that is wanted, else supervises its hubs.
class HUB_One_Second_Events final : public HubTimer {
public:
    HUB_One_Second_Events(SessionImpl& owner, HubEventReactor& reactor) : HubTimer(owner, reactor) {}
    double timerEvent(double now) override;
};

/// Counts the input side of the hubs' receive queues.
class HUB_Hundred_MilliSecond_Events final : public HubTimer {
public:
    HUB_Hundred_MilliSecond_Events(SessionImpl& owner, HubEventReactor& reactor) : HubTimer(owner, reactor) {}
    double timerEvent(double now) override;
};

/// Writes waiting requests.
class HUB_Fifty_MilliSecond_Events final : public HubTimer {
public:
    HUB_Fifty_MilliSecond_Events(SessionImpl& owner, HubEventReactor& reactor) : HubTimer(owner, reactor) {}
    double timerEvent(double now) override;
};

/// Looks how full the receive queues are, and continues what waits for that.
class HUB_Twenty_Five_MilliSecond_Events final : public HubTimer {
public:
    HUB_Twenty_Five_MilliSecond_Events(SessionImpl& owner, HubEventReactor& reactor)
        : HubTimer(owner, reactor) {}
    double timerEvent(double now) override;
};

/// Counts the output side of the receive queues. @thread user
class User_Hundred_MilliSecond_Events final : public UserEventBase {
public:
    User_Hundred_MilliSecond_Events(SessionImpl& owner, UserEventReactor& reactor)
        : session(owner), User_Event_Reactor(reactor) {}
    double timerEvent(double now) override;

private:
    SessionImpl& session;
    UserEventReactor& User_Event_Reactor;
};

/// Delivers user events and statistics. @thread first user
class User_One_Second_Events final : public UserEventBase {
public:
    explicit User_One_Second_Events(SessionImpl& owner) : session(owner) {}
    double timerEvent(double now) override;

private:
    SessionImpl& session;
};

/// Runs the session check. @thread first user
class First_User_Hundred_MilliSecond_Events final : public UserEventBase {
public:
    explicit First_User_Hundred_MilliSecond_Events(SessionImpl& owner) : session(owner) {}
    double timerEvent(double now) override;

private:
    SessionImpl& session;
};

/// Watches how full the fullest receive queue is. @thread first user
class First_User_Twenty_Five_MilliSecond_Events final : public UserEventBase {
public:
    explicit First_User_Twenty_Five_MilliSecond_Events(SessionImpl& owner) : session(owner) {}
    double timerEvent(double now) override;

private:
    SessionImpl& session;
};

} // namespace tivra_internal
