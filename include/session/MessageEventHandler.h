#pragma once

#include "TivraApi.h"

namespace tivra {

class MessageEvent;

/// What an application implements to receive quotes, trades and answers to its requests.
///
/// The contract of the callback:
///  - Thread: any user thread of the library. With SessionConfig::MULTITHREADED_API_CONNECTIONS_BOOL on there
///    are several, and calls for different hubs run at the same time; calls for one hub never do. With
///    SessionConfig::INLINE_CALLBACKS_BOOL it is the same, and the threads that read are among them.
///    Otherwise it is one thread.
///  - May be called inside: Session::send and everything else on a session but the following.
///  - Must not be called inside: Session::start, Session::stop, APIFactory::destroySession and
///    APIFactory::destroyUserInfo; they are refused there with a critical log line.
///  - May be kept: nothing. The event, its reader and all that they point at belong to the library again when
///    the call returns; copy what is needed. An event that was kept answers with empty values.
///  - How long: shorter than the time between two messages on average. While it runs the hub's receive queue
///    fills up, and when the queue is full data is lost (see StatisticsEvent::DROP).
///  - An exception that leaves it ends there with a critical line in the log; the session goes on.
///
/// The library never deletes a handler; it must outlive the session that it was registered with.
class TIVRA_API MessageEventHandler {
public:
    /// For derived classes.
    MessageEventHandler() = default;
    /// The copy is another handler, which has to be registered itself.
    MessageEventHandler(const MessageEventHandler&) = default;
    /// Changes nothing in which of them is registered.
    MessageEventHandler& operator=(const MessageEventHandler&) = default;
    /// Not while the library may still call it; see above.
    virtual ~MessageEventHandler();

    /// Called once per message, in the order in which the hub sent them.
    virtual void onMessageEvent(const MessageEvent& event) = 0;
};

} // namespace tivra
