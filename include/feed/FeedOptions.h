#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "TivraApi.h"
#include "feed/ConnectionEvent.h"
#include "feed/Error.h"
#include "feed/Password.h"
#include "feed/SlowCallback.h"

namespace tivra {

/// The pauses between attempts to reach a hub: the second attempt follows the first after `first`, each
/// further one after twice the pause before, up to `longest`. By chance up to `jitterPercent` of it is added,
/// so that clients that were lost together don't come back together. A hub that was ready and is lost is
/// dialled at once, though no more than once a second; one that has refused the user gets a second at least.
struct RetryPauses {
    std::chrono::milliseconds first{250};      ///< 10 ms or more
    std::chrono::milliseconds longest{30'000}; ///< not below `first`
    int jitterPercent = 20;                    ///< 0 to 100
};

/// Everything that a feed is opened with. Whatever isn't set has its default.
///
/// What is not a callback can be read from a URL, a file and the environment too; docs/parameters.md lists
/// the names. These can be laid over each other:
///
///     FeedOptions options = FeedOptions::fromFile("feed.toml").applyEnvironment();
struct TIVRA_API FeedOptions {
    /// The hubs, or connection managers, each "host:port". A name is looked up at opening, for as long as the
    /// system's resolver takes, and all its IPv4 addresses are dialled in turn. At least one.
    std::vector<std::string> hosts{};
    /// Hubs that take over as a whole when those of `hosts` are lost; none, or one for each of `hosts`.
    std::vector<std::string> backups{};
    /// Who logs in, at every hub: one character or more, none of them "|" or a control character.
    std::string user{};
    /// The user's password, under the same rule; see Password for where to take it from. It stays in memory
    /// as long as these options and the feed. Empty together with onPassword.
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
    /// A callback that takes longer is reported, and counted in the statistics: to onSlowCallback and as a
    /// warning in the log. It is noticed up to a quarter of this late, and may not be if it returns in that
    /// time. Zero: none is.
    std::chrono::milliseconds slowCallback{1000};
    /// The parameters of SessionConfig, ConnectionConfig and HostConfig by their names, such as
    /// {"READ_TIMEOUT_LONG", "10"} or {"read_timeout", "10"}; a bool is "true" or "false", "1" or "0".
    /// docs/parameters.md lists them. WATCHLIST_BOOL and END_LOST_REQUESTS_BOOL are the feed's own, and
    /// HOLD_READS_BOOL is on unless it is named here, over plain connections too. Without it slow callbacks
    /// cost a compressed connection, with its gap, and over a plain one what comes meanwhile may be dropped,
    /// which only a warning in the log tells.
    std::map<std::string, std::string> parameters{};

    /// Opening is done once that many hubs are ready, though others of `hosts`, and of the hubs that those
    /// name, fail: these go on being dialled, and the feed is Recovering until they are ready. 0: all hubs
    /// have to be ready, as they have to be behind connection managers. Not together with `backups`.
    int minHubs = 0;
    /// The pauses between attempts to reach a hub. @see RetryPauses
    RetryPauses retry{};
    /// Addresses (IPv4) by which hubs name hubs, each with the one by which it is reached from here: behind
    /// an address translation, or a tunnel. No address twice.
    std::map<std::string, std::string> nat{};

    /// What happens to the connections as a whole. @thread user
    std::function<void(const FeedStateChange&)> onState{};
    /// What happens to the connection of each hub, in its order. @thread of the feed, which also ends
    /// requests at their time-out
    std::function<void(const ConnectionEvent&)> onConnection{};
    /// Asked for the password at each login, and each time that a connection manager is asked for a hub,
    /// instead of `password`; with "host:port" of who is to get it. What it returns is overwritten once the
    /// login is on its way, so that the process keeps no copy. It may take as long as it takes: no hub that
    /// serves is held up, and only the time of opening goes on. When it throws, or returns none, the login
    /// counts as refused. PasswordHandler says more. @thread "tivra-login", one call at a time
    std::function<Password(const std::string& hub)> onPassword{};
    /// What fails outside a call of the application: a callback that throws, for example. @thread any of the
    /// library
    std::function<void(const Error&)> onError{};
    /// A callback has run for longer than slowCallback, and once more when it has returned. It is for the
    /// application to find out which; nothing is done about it. @thread the feed's own, one call at a time
    std::function<void(const SlowCallback&)> onSlowCallback{};
    /// Called first on each thread that the feed starts, with the thread's name, such as "tivra-hub0": for
    /// its affinity or priority. Other feeds and sessions are not concerned. What it throws is logged.
    std::function<void(const std::string& name)> onThreadStart{};

    /// tivra://user\@host:port,host:port/?backup=host:port&compression=0: each part may be left out, and %XX
    /// stands for a byte; with tls:// in the place of tivra:// the connections are encrypted. A password may
    /// follow the user, after a colon; it is better kept in the environment.
    /// @throws Error (InvalidOption) for what can't be meant and for names that don't exist
    static FeedOptions fromUrl(std::string_view url);
    /// A file with a name that ends in ".toml" or ".json", of 64 KiB at most, with one value for each name;
    /// lists are lists of texts.
    /// @throws Error (InvalidOption) with the line, where it can be known
    static FeedOptions fromFile(const std::string& path);
    /// TIVRA_URL, and over it the other names in capitals after TIVRA_, such as TIVRA_HOSTS, TIVRA_PASSWORD
    /// and TIVRA_READ_TIMEOUT.
    /// @throws Error (InvalidOption), for any other variable that begins with TIVRA_ too
    static FeedOptions fromEnvironment();

    /// fromUrl() over what these options have: what is named there is replaced, the rest stays. When it
    /// throws nothing has changed.
    FeedOptions& applyUrl(std::string_view url);
    /// fromFile() in the same way.
    FeedOptions& applyFile(const std::string& path);
    /// fromEnvironment() in the same way.
    FeedOptions& applyEnvironment();
    /// One option by its name. @throws Error (InvalidOption)
    FeedOptions& set(std::string_view name, std::string_view value);
};

} // namespace tivra
