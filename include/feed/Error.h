#pragma once

#include <stdexcept>
#include <string>

#include "TivraApi.h"

namespace tivra {

/// What went wrong: thrown by calls of a Feed and its objects, and handed to the callbacks that report a
/// failure. what() is one line for a log: what was attempted, with whom, the cause, and what to do.
/// @thread any; it is a value that may be kept.
class TIVRA_API Error : public std::runtime_error {
public:
    /// What kind of failure it is: for programs to decide by.
    enum class Code {
        InvalidArgument, ///< a value in the call can't be meant
        InvalidOption,   ///< an option of the feed, in a struct, a URL, a file or the environment
        UnknownField,    ///< no hub of the feed has a field of that name
        WrongType,       ///< the field holds another type than the one asked for
        Closed,          ///< the feed or the object has been closed
        InCallback,      ///< the call would wait for the thread that it was made on
        TimedOut,        ///< no answer, or no connection, within the time that was given
        Cancelled,       ///< the application has given the request up
        Refused,         ///< the hub has said no: status() and statusName() say why
        ConnectionLost,  ///< the hub was lost before its answer
        OpenFailed,      ///< the feed couldn't be opened
        QueueFull, ///< more requests wait than MAX_REQUEST_QUEUE_SIZE_LONG or MAX_WATCHLIST_SIZE_LONG allow
        System     ///< the operating system has refused something, see systemError()
    };

    /// Where on its way a request or a connection was.
    enum class Phase {
        None,        ///< no request or connection is concerned
        Options,     ///< before anything was connected
        Resolve,     ///< a connection manager is asked for a hub
        Connect,     ///< TCP
        Login,       ///< the hub is asked to accept the user
        Dictionary,  ///< the hub's fields and sources are downloaded
        Request,     ///< a request is built or queued
        Answer,      ///< a request waits for its answer
        Subscription ///< updates flow
    };

    /// What an Error is made of.
    struct Details {
        Code code = Code::System;  ///< the kind of failure
        Phase phase = Phase::None; ///< where it happened
        std::string cause;         ///< what happened, without code and phase
        std::string advice;        ///< what the reader can do about it; may be empty
        std::string hub;           ///< "host:port"; empty when no hub is concerned, or which one isn't known
        int status = 0;            ///< the hub's code; 0 when the error isn't an answer
        std::string statusName;    ///< the name of that code
        int systemError = 0;       ///< errno; 0 when the system has no part in it
    };

    /// Makes what() out of the details: code, hub, cause, status and advice. Tests of an application can make
    /// errors of their own with it.
    explicit Error(Details details);
    /// The copy shares nothing with this one, so each may go to a thread of its own.
    Error(const Error&);
    /// The same.
    Error& operator=(const Error&);
    ~Error() override;

    /// The kind of failure.
    Code code() const noexcept { return m_details.code; }
    /// The name of the code, "TimedOut" for example.
    const char* name() const noexcept;
    /// Where it happened.
    Phase phase() const noexcept { return m_details.phase; }
    /// The name of the phase, "Login" for example.
    const char* phaseName() const noexcept;
    /// What happened, in words, without code and phase. Texts live as long as the error.
    const std::string& cause() const noexcept { return m_details.cause; }
    /// What the reader can do about it; may be empty.
    const std::string& advice() const noexcept { return m_details.advice; }
    /// "host:port"; empty when no hub is concerned, or which one isn't known.
    const std::string& hub() const noexcept { return m_details.hub; }
    /// The hub's code; 0 when the error isn't an answer of a hub.
    int status() const noexcept { return m_details.status; }
    /// The name of status(); empty when that is 0 or has none.
    const std::string& statusName() const noexcept { return m_details.statusName; }
    /// errno; 0 when the operating system has no part in it.
    int systemError() const noexcept { return m_details.systemError; }
    /// Whether the same call may succeed later without anybody changing anything.
    bool isRetryable() const noexcept;

private:
    Details m_details;
};

} // namespace tivra
