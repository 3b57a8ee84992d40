#include "tivra_sim/Hub.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>
#include <limits>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>

namespace {

using namespace tivra_sim;

enum ExitCode { ENDED = 0, BAD_CONFIGURATION = 2, NO_PORT = 3, NO_PLAYBACK = 4, DESERTED = 5 };

/// Tenths of a second that --once waits for a client to come back while there is something left to play.
constexpr int PATIENCE = 50;

constexpr const char* FOOTER = "Exit codes: 0 ended as asked or by SIGINT or SIGTERM, 2 a wrong option or "
                               "configuration,\n3 the port cannot be had, 4 the playback file cannot be "
                               "read,\n5 with --once: the clients have gone for "
                               "good before the playback was at its end.";

/// What the command line says; a value that was not given leaves the configuration as it is.
struct Options {
    std::string configFile;
    std::optional<std::uint16_t> port;
    std::optional<std::string> bindAddress;
    std::optional<std::string> hubVersion;
    std::optional<std::string> topology;
    std::optional<long> heartbeatMs;
    std::optional<long> hubStatusMs;
    std::optional<std::string> playbackFile;
    std::optional<double> factor;
    bool isFullSpeed = false;
    std::optional<std::size_t> startWhen;
    std::optional<std::size_t> maxEvents;
    std::optional<unsigned> repeat;
    std::string user;
    std::string passwordVariable;
    std::string passwordFile;
    int verbosity = 0;
    bool endsAfterPlayback = false;
    bool printsConfig = false;
};

void declare(CLI::App& app, Options& options) {
    app.add_option("-c,--config", options.configFile, "JSON configuration; the options below change it");
    app.add_option("-p,--port", options.port, "port to listen on, 0 for a free one");
    app.add_option("--bind", options.bindAddress, "IPv4 address to listen on");
    app.add_option("--hub-version", options.hubVersion, "version that the hub reports, such as V8.2.1");
    app.add_option("--topology", options.topology, "what the hub says it is")
        ->check(CLI::IsMember({"single-instance", "aggregating"}));
    app.add_option("--heartbeat", options.heartbeatMs, "milliseconds between heartbeats, 0 for none")
        ->check(CLI::Range(0L, 86400000L));
    app.add_option("--hub-status", options.hubStatusMs, "milliseconds between hub status records, 0 for none")
        ->check(CLI::Range(0L, 86400000L));
    app.add_option("-f,--playback", options.playbackFile, "trading-day file (CSV, gzipped or plain) to play");
    auto* factor =
        app.add_option("--factor", options.factor, "pace of the playback, 1 is the pace of the day")
            ->check(CLI::PositiveNumber);
    app.add_flag("--full-speed", options.isFullSpeed, "play as fast as the clients read")->excludes(factor);
    app.add_option("--start-when", options.startWhen,
                   "start the playback when that many symbols are subscribed");
    app.add_option("--max-events", options.maxEvents, "read no more events than this, 0 for all");
    app.add_option("--repeat", options.repeat, "how often the file is played")->check(CLI::PositiveNumber);
    auto* user = app.add_option("-u,--user", options.user,
                                "the one user that may log in, in place of those configured");
    auto* variable = app.add_option("--password-env", options.passwordVariable,
                                    "environment variable with the user's password")
                         ->needs(user);
    app.add_option("--password-file", options.passwordFile, "file whose first line is the user's password")
        ->needs(user)
        ->excludes(variable);
    app.add_flag("-v,--verbose", options.verbosity,
                 "print requests; twice prints counts each second as well");
    app.add_flag("--once", options.endsAfterPlayback,
                 "end when the playback has been sent and every client has gone");
    app.add_flag("--print-config", options.printsConfig,
                 "print the effective configuration without passwords and end");
    app.footer(FOOTER);
}

std::string readPassword(const Options& options) {
    std::string password;
    if (!options.passwordVariable.empty()) {
        const char* value = std::getenv(options.passwordVariable.c_str());
        if (value == nullptr)
            throw ConfigError("the environment has no variable \"" + options.passwordVariable +
                              "\" for the password of \"" + options.user + "\"");
        password = value;
    } else if (!options.passwordFile.empty()) {
        std::ifstream file(options.passwordFile);
        if (!std::getline(file, password))
            throw ConfigError("cannot read a password from \"" + options.passwordFile + "\"");
    } else {
        throw ConfigError("a user needs --password-env or --password-file");
    }
    if (password.find_first_of("|\x03") != std::string::npos)
        throw ConfigError("a password must not hold \"|\" or the byte 03");
    return password;
}

void applyInterval(SystemRecord& record, const std::optional<long>& milliseconds) {
    if (!milliseconds)
        return;
    record.enabled = *milliseconds > 0;
    if (record.enabled)
        record.interval = std::chrono::milliseconds(*milliseconds);
}

template<class Target, class Value>
void apply(Target& target, const std::optional<Value>& value) {
    if (value)
        target = *value;
}

HubConfig makeConfig(const Options& options) {
    HubConfig config =
        options.configFile.empty() ? HubConfig::realistic() : HubConfig::fromJsonFile(options.configFile);
    apply(config.port, options.port);
    apply(config.bindAddress, options.bindAddress);
    apply(config.hubVersion, options.hubVersion);
    if (options.topology)
        config.topology =
            *options.topology == "aggregating" ? Topology::Aggregating : Topology::SingleInstance;
    applyInterval(config.heartbeat, options.heartbeatMs);
    applyInterval(config.hubStatus, options.hubStatusMs);
    apply(config.playback.file, options.playbackFile);
    apply(config.playback.factor, options.factor);
    if (options.isFullSpeed)
        config.playback.factor = 0.0;
    apply(config.playback.startWhenSubscriptions, options.startWhen);
    apply(config.playback.maxEvents, options.maxEvents);
    apply(config.playback.repeat, options.repeat);
    if (!options.user.empty())
        config.users = {{options.user, readPassword(options), config.boxPermissions, 0}};
    return config;
}

/// A request's text with the password left out.
std::string printable(const Request& request) {
    std::string text;
    for (const Pair& pair : splitPairs(request.text)) {
        text.append(text.empty() ? "" : "|").append(std::to_string(pair.token)).append("=");
        text.append(pair.token == token::PASSWORD ? std::string_view("***") : pair.value);
    }
    return text;
}

void printCounts(const HubStatistics& now) {
    std::cout << "connections " << now.connections << ", subscriptions " << now.subscriptions << ", requests "
              << now.requests << ", messages sent " << now.updatesSent << ", bytes sent " << now.bytesSent
              << std::endl;
}

void printSummary(const HubStatistics& total) {
    std::cout << "sent " << total.updatesSent << " messages (" << total.playbackSent << " of playback, "
              << total.playbackEvents << " events played) in " << total.framesSent << " frames and "
              << total.bytesSent << " bytes; " << total.requests << " requests on " << total.accepted
              << " connections" << std::endl;
}

/// Waits for a signal, or for the end that --once asks for. The result is the exit code.
int serve(const Hub& hub, const Options& options, const sigset_t& signals) {
    const timespec slice{0, 100000000};
    const bool hasPlayback = !hub.config().playback.file.empty();
    int slices = 0;
    int deserted = 0;
    while (sigtimedwait(&signals, nullptr, &slice) < 0) {
        const HubStatistics now = hub.statistics();
        if (options.verbosity > 1 && ++slices % 10 == 0)
            printCounts(now);
        const bool isDeserted = now.requests > 0 && now.connections == 0;
        deserted = isDeserted ? deserted + 1 : 0;
        if (!options.endsAfterPlayback || !isDeserted)
            continue;
        if (!hasPlayback || now.playbackFinished)
            return ENDED;
        if (deserted >= PATIENCE) {
            std::cerr << "tivra-hub: every client has gone for 5 seconds and the playback is not at its end"
                      << std::endl;
            return DESERTED;
        }
    }
    return ENDED;
}

int runHub(const Options& options) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    // Blocked before the hub's thread starts, so that only the wait below takes them.
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    const HubConfig config = makeConfig(options);
    if (options.printsConfig) {
        std::cout << config.toJson(HubConfig::Passwords::Hide) << std::endl;
        return ENDED;
    }
    Hub hub(config);
    if (options.verbosity > 0)
        hub.script([](const Request& request) -> std::optional<Hub::Frames> {
            std::cout << "connection " << request.connection << ": " << printable(request) << std::endl;
            return std::nullopt;
        });
    hub.start();
    std::cout << "listening on " << hub.hostString() << std::endl;
    const int result = serve(hub, options, signals);
    hub.stop();
    printSummary(hub.statistics());
    return result;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app("A hub in a box: serves one market-data hub from a configuration and plays a trading day.",
                 "tivra-hub");
    Options options;
    declare(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? ENDED : BAD_CONFIGURATION;
    }
    try {
        return runHub(options);
    } catch (const ConfigError& error) {
        std::cerr << "tivra-hub: cannot start with this configuration: " << error.what() << std::endl;
        return BAD_CONFIGURATION;
    } catch (const std::system_error& error) {
        std::cerr << "tivra-hub: cannot serve: " << error.what() << std::endl;
        return NO_PORT;
    } catch (const std::exception& error) {
        std::cerr << "tivra-hub: cannot start the playback: " << error.what() << std::endl;
        return NO_PLAYBACK;
    }
}
