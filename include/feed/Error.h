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
        None,
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
        Code code = Code::System;
        Phase phase = Phase::None;
        std::string cause;      ///< what happened, without code and phase
        std::string advice;     ///< what the reader can do about it; may be empty
        std::string hub;        ///< "host:port"; empty when no hub is concerned, or which one isn't known
        int status = 0;         ///< the hub's code; 0 when the error isn't an answer
        std::string statusName; ///< the name of that code
        int systemError = 0;    ///< errno; 0 when the system has no part in it
    };

    explicit Error(Details details);
    Error(const Error&);
    Error& operator=(const Error&);
    ~Error() override;

    Code code() const noexcept { return m_details.code; }
    /// The name of the code, "TimedOut" for example.
    const char* name() const noexcept;
    Phase phase() const noexcept { return m_details.phase; }
    /// The name of the phase, "Login" for example.
    const char* phaseName() const noexcept;
    const std::string& cause() const noexcept { return m_details.cause; }
    const std::string& advice() const noexcept { return m_details.advice; }
    const std::string& hub() const noexcept { return m_details.hub; }
    int status() const noexcept { return m_details.status; }
    const std::string& statusName() const noexcept { return m_details.statusName; }
    int systemError() const noexcept { return m_details.systemError; }
    /// Whether the same call may succeed later without anybody changing anything.
    bool isRetryable() const noexcept;

private:
    Details m_details;
};

} // namespace tivra
