#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "TivraApi.h"
#include "feed/ConnectionEvent.h"
#include "feed/Error.h"
#include "feed/Password.h"

namespace tivra {

/// Everything that a feed is opened with. Whatever isn't set has its default.
struct TIVRA_API FeedOptions {
    /// The hubs, or connection managers, each "host:port". At least one.
    std::vector<std::string> hosts{};
    /// Hubs that take over as a whole when those of `hosts` are lost; none, or one for each of `hosts`.
    std::vector<std::string> backups{};
    std::string user{};
    Password password{};
    /// The base of the log file's name; ".%m%d%Y" of the local date follows. Empty: the feed sets up no log,
    /// so that there is none unless another feed or APIFactory::initialize has. One log serves the whole
    /// process.
    std::string logFile{};
    /// Writes the debug level too.
    bool logDebug = false;
    /// The total time for opening: connecting, logging in and downloading dictionaries.
    std::chrono::milliseconds openTimeout{30'000};
    /// How long an answer may take, unless the call says otherwise.
    std::chrono::milliseconds requestTimeout{10'000};
    /// How long closing may wait for callbacks that run, in the destructor.
    std::chrono::milliseconds closeTimeout{10'000};
    /// One message in so many is measured for the times of Feed::statistics, which costs some 100 ns for each
    /// of those; 1 measures all, 0 none.
    unsigned latencySampling = 64;
    /// The parameters of SessionConfig, ConnectionConfig and HostConfig by their names, such as
    /// {"READ_TIMEOUT_LONG", "10"}; a bool is "true" or "false", "1" or "0". docs/parameters.md lists them.
    /// WATCHLIST_BOOL and END_LOST_REQUESTS_BOOL are the feed's own, and HOLD_READS_BOOL is on unless it is
    /// named here.
    std::map<std::string, std::string> parameters{};

    /// What happens to the connections as a whole. @thread user
    std::function<void(const ConnectionEvent&)> onConnection{};
    /// What fails outside a call of the application: a callback that throws, for example. @thread any of the
    /// library
    std::function<void(const Error&)> onError{};
};

} // namespace tivra
