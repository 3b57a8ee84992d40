#include "Options.h"

#include "Replay.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <string_view>
#include <vector>

using namespace tivra_sim;

namespace {

constexpr const char* kFooter = "Exit codes: 0 ended as asked or by SIGINT or SIGTERM, 2 a wrong option or "
                                "configuration,\n3 the port cannot be had, 4 the playback file or the "
                                "capture cannot be read,\n5 with --once: the clients have gone for "
                                "good before the playback was at its end.";

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

/// A number between two colons, which is taken off the text; false for anything else.
template<class Number>
bool takeNumber(std::string_view& text, Number& number) {
    const std::string_view piece = text.substr(0, text.find(':'));
    const auto [end, error] = std::from_chars(piece.data(), piece.data() + piece.size(), number);
    text.remove_prefix(std::min(text.size(), piece.size() + 1));
    return error == std::errc{} && end == piece.data() + piece.size();
}

void applyLoad(HubConfig& config, const std::string& text) {
    constexpr std::size_t MOST_SYMBOLS = 500000;
    constexpr double FASTEST = 1e8;
    Load load;
    std::string_view rest = text;
    bool isGood = takeNumber(rest, load.symbols) && takeNumber(rest, load.rate);
    isGood = isGood && load.rate > 0.0 && load.rate <= FASTEST;
    // What comes in a millisecond comes at once: timers are no finer than that on many machines.
    load.burst = isGood ? static_cast<std::size_t>(std::max(load.rate / 1000.0, 1.0)) : 1;
    if (isGood && !rest.empty())
        isGood = takeNumber(rest, load.burst) && rest.empty() && load.burst > 0;
    if (!isGood || load.symbols < 1 || load.symbols > MOST_SYMBOLS)
        throw ConfigError("--load \"" + text +
                          "\": SYMBOLS:RATE or SYMBOLS:RATE:BURST is wanted, with 1 to " +
                          std::to_string(MOST_SYMBOLS) + " symbols and a rate above 0 and up to 100000000");
    config.playback.file.clear();
    config.playback.load = load;
    config.playback.factor = 1.0;
    config.playback.repeat = 0;
    config.playback.dropsForSlow = true;
}

} // namespace

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
    auto* playback = app.add_option("-f,--playback", options.playbackFile,
                                    "trading-day file (CSV, gzipped or plain) to play");
    auto* replay =
        app.add_option("--replay", options.replayFile, "capture of tivra-cat --record to play, byte for byte")
            ->excludes(playback);
    app.add_option("--replay-from", options.replayFrom,
                   "begin with the first message that came this many seconds after the first")
        ->check(CLI::Range(0.0, 1e9))
        ->needs(replay);
    app.add_option("--replay-to", options.replayTo,
                   "end before the first message that came this many seconds after the first")
        ->check(CLI::Range(0.0, 1e9))
        ->needs(replay);
    app.add_option("--load", options.load,
                   "SYMBOLS:RATE[:BURST]: make messages for so many symbols, LOAD000000 and so on, so many a "
                   "second, BURST at once")
        ->excludes(playback)
        ->excludes(replay);
    app.add_flag("--drop-slow", options.dropsForSlow,
                 "leave out for a client what it reads too slowly, and count it, in place of waiting for it; "
                 "--load does so");
    auto* factor = app.add_option("--factor", options.factor,
                                  "pace of the playback, 1 is the pace of the day, 0 is full speed")
                       ->check(CLI::NonNegativeNumber);
    app.add_flag("--full-speed", options.isFullSpeed, "play as fast as the clients read")->excludes(factor);
    app.add_option("--start-when", options.startWhen,
                   "start the playback when that many symbols are subscribed; at the first one unless given")
        ->check(CLI::PositiveNumber);
    app.add_option("--max-events", options.maxEvents, "read no more events than this, 0 for all");
    auto* repeat = app.add_option("--repeat", options.repeat, "how often the file is played")
                       ->check(CLI::PositiveNumber);
    app.add_flag("--loop", options.isEndless, "play it again and again")->excludes(repeat);
    auto* user = app.add_option("-u,--user", options.user,
                                "the one user that may log in, in place of those configured");
    auto* variable = app.add_option("--password-env", options.passwordVariable,
                                    "environment variable with the user's password")
                         ->needs(user);
    app.add_option("--password-file", options.passwordFile, "file whose first line is the user's password")
        ->needs(user)
        ->excludes(variable);
    auto* certificate =
        app.add_option("--tls-cert", options.tlsCertificate,
                       "file (PEM) of the hub's certificate and the chain above it: clients have to use TLS")
            ->check(CLI::ExistingFile);
    app.add_option("--tls-key", options.tlsKey, "file (PEM) of its key; that of the certificate unless given")
        ->check(CLI::ExistingFile)
        ->needs(certificate);
    app.add_option("--tls-client-ca", options.tlsClientCa,
                   "file (PEM) of the certificates that may vouch for clients, which need one then")
        ->check(CLI::ExistingFile)
        ->needs(certificate);
    // A group has all of this in its file.
    const std::vector<CLI::Option*> ofOneHub =
        app.get_options([&app](const CLI::Option* option) { return option != app.get_help_ptr(); });
    auto* group = app.add_option("-g,--group", options.groupFile,
                                 "JSON configuration of a group of hubs, in place of the one hub");
    for (CLI::Option* option : ofOneHub)
        group->excludes(option);
    app.add_flag("-v,--verbose", options.verbosity,
                 "print requests; twice prints counts each second as well");
    app.add_flag("--once", options.endsAfterPlayback,
                 "end when the playback has been sent and every client has gone");
    app.set_version_flag("--version", std::string("tivra-hub ") + TIVRA_HUB_VERSION);
    app.add_flag("--print-config", options.printsConfig,
                 "print the effective configuration without passwords and end");
    app.footer(kFooter);
}

void startBySubscriptions(HubConfig& config) {
    std::size_t& wanted = config.playback.startWhenSubscriptions;
    wanted = config.playback.isWanted() ? std::max<std::size_t>(wanted, 1) : wanted;
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
    if (!options.replayFile.empty()) {
        config.playback.file.clear();
        config.playback.bodies = replayOf(options.replayFile, options.replayFrom, options.replayTo);
    }
    if (!options.load.empty())
        applyLoad(config, options.load);
    apply(config.playback.factor, options.factor);
    if (options.isFullSpeed)
        config.playback.factor = 0.0;
    apply(config.playback.startWhenSubscriptions, options.startWhen);
    startBySubscriptions(config);
    apply(config.playback.maxEvents, options.maxEvents);
    apply(config.playback.repeat, options.repeat);
    if (options.isEndless)
        config.playback.repeat = 0;
    config.playback.dropsForSlow = config.playback.dropsForSlow || options.dropsForSlow;
    if (config.playback.dropsForSlow && config.playback.factor <= 0.0)
        throw ConfigError("--drop-slow needs a pace: at full speed every client is slow; give --factor");
    if (!options.tlsCertificate.empty())
        config.tls = {options.tlsCertificate, options.tlsKey, options.tlsClientCa};
    if (!options.user.empty())
        config.users = {{options.user, readPassword(options), config.boxPermissions, 0}};
    return config;
}
