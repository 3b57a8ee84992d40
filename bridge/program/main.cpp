#include "program/Engine.h"
#include "program/Options.h"
#include "program/StatusServer.h"

#include "bus/BusError.h"
#include "bus/JsonText.h"
#include "bus/counted.h"
#include "run/Bridge.h"

#include "common/Password.h"
#include "common/Printable.h"
#include "common/UsageError.h"

#include <feed/Feed.h>

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>

namespace {

using namespace tivra_bus;

using std::chrono::milliseconds;

constexpr milliseconds kReadyWithin{30'000};
constexpr milliseconds kFirstPause{250};
constexpr milliseconds kLongestPause{4000};

enum ExitCode { ENDED = 0, INTERNAL = 1, BAD_USAGE = 2, NO_HUB = 3, NO_ENGINE = 4 };

void log(const std::string& line) {
    std::string time;
    appendTime(time, std::chrono::system_clock::now());
    fmt::print(stderr, "{} tivra-bridge: {}\n", time, tivra_tools::printableLines(line));
}

tivra::FeedOptions feedOptions(const ProgramOptions& options) {
    tivra::FeedOptions feed;
    feed.hosts = options.hosts;
    feed.backups = options.backups;
    feed.user = options.user;
    feed.password = tivra_tools::obtainPassword(options.user, options.passwordFile);
    feed.logFile = options.logFile;
    tivra_tools::applyTls(options.hubTls, feed);
    tivra_tools::applyAddresses(options.addresses, feed);
    feed.onState = [](const tivra::FeedStateChange& change) {
        if (change.to != tivra::FeedState::Closed)
            log(fmt::format("hubs: {}{}",
                            change.to == tivra::FeedState::Established ? "established" : "not all there",
                            change.cause.empty() ? "" : ": " + change.cause));
    };
    feed.onError = [](const tivra::Error& error) { log(error.what()); };
    return feed;
}

/// Waits for a signal. @return whether one came
bool isEnded(const sigset_t& signals, milliseconds time) {
    const timespec pause{time.count() / 1000, time.count() % 1000 * 1'000'000};
    return sigtimedwait(&signals, nullptr, &pause) >= 0;
}

/// An engine that was started together with the bridge may not be ready yet.
/// @return nothing when a signal came. @throws BusError when it isn't in time, or is laid out for something
/// else
std::unique_ptr<Bridge> openBridge(const ProgramOptions& options, tivra::Feed& feed, Engine& engine,
                                   const sigset_t& signals) {
    const auto deadline = std::chrono::steady_clock::now() + kReadyWithin;
    for (auto pause = kFirstPause;; pause = std::min(pause * 2, kLongestPause)) {
        try {
            return std::make_unique<Bridge>(options.bridge, feed, engine.publisher(), engine.share(), log);
        } catch (const UnreadyError& error) {
            if (std::chrono::steady_clock::now() > deadline)
                throw;
            log(fmt::format("the engine isn't ready: {}; tried again", error.what()));
        }
        if (isEnded(signals, pause))
            return nullptr;
    }
}

int run(const ProgramOptions& options) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    // Blocked before any thread starts, so that only the wait takes them.
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    tivra::Feed feed = tivra::Feed::open(feedOptions(options));
    const std::unique_ptr<Engine> engine =
        openEngine(options.engine, options.bridge.name, options.bridge.layout.partitions);
    {
        const std::unique_ptr<Bridge> bridge = openBridge(options, feed, *engine, signals);
        if (bridge == nullptr)
            return ENDED;
        log(fmt::format("{}: {}, {}, ready", options.bridge.name,
                        counted(options.bridge.instruments.size(), "symbol"),
                        counted(options.bridge.layout.partitions, "partition")));
        std::unique_ptr<StatusServer> server;
        if (!options.statsListen.empty()) {
            server =
                std::make_unique<StatusServer>(options.statsListen, options.statsProtection, *bridge, feed);
            log(fmt::format("statistics at {}://{}/metrics", options.statsProtection.scheme(),
                            server->address()));
        }
        std::string end;
        while (end.empty() && !isEnded(signals, milliseconds(200)))
            end = bridge->status().end;
        log("ending");
        return end.empty() ? ENDED : BAD_USAGE;
    }
}

int failed(int code, const char* text) {
    log(text);
    return code;
}

} // namespace

int main(int argc, char** argv) {
    // A closed pipe is the writer's error, not the end of the process.
    std::signal(SIGPIPE, SIG_IGN);
    try {
        const std::optional<ProgramOptions> options = readOptions(argc, argv);
        return options ? run(*options) : ENDED;
    } catch (const tivra_tools::UsageError& error) {
        return failed(BAD_USAGE, error.what());
    } catch (const tivra::Error& error) {
        return failed(NO_HUB, error.what());
    } catch (const BusError& error) {
        return failed(NO_ENGINE, error.what());
    } catch (const std::exception& error) {
        return failed(INTERNAL, error.what());
    }
}
