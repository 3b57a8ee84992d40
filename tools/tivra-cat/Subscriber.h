#pragma once

#include "Options.h"
#include "RequestBook.h"
#include "SessionWatch.h"

#include "common/ClientSession.h"

#include <tivra.h>

#include <string>

namespace tivra_cat {

/// The library's objects of one run: a user, a session with its settings, and the requests. Used by the main
/// thread, but for start, which may run on a thread of its own.
class Subscriber {
public:
    Subscriber(const Options& options, const std::string& password, const std::string& logFile,
               SessionWatch& watch, tivra::MessageEventHandler& receiver);

    /// Blocks until the session stands or was given up; `reason` tells why then.
    [[nodiscard]] bool start(std::string& reason) { return m_session.start(reason); }
    /// Ends the session, or a start that another thread is waiting for.
    void stop() { m_session.stop(); }
    /// Sends what the options ask for, one request per target, and enters each in the book.
    void send(RequestBook& book);

private:
    void configure(const Options& options);
    void sendTo(const Target* target, RequestBook& book);

    const Options& m_options;
    const tivra_tools::ClientSession m_client;
    tivra::Session& m_session;
};

} // namespace tivra_cat
