#include "program/Options.h"

#include "program/SymbolsFile.h"

#include "common/HostAddress.h"
#include "common/ParseFailure.h"
#include "common/SessionOptions.h"
#include "common/ToolText.h"
#include "common/UsageError.h"
#include "common/UserOptions.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <random>

#include <unistd.h>

namespace tivra_bus {

namespace {

constexpr const char* kFooter =
    R"(The password comes from TIVRA_PASSWORD, --password-file or a prompt, never from the command line.
Start as many as you like with the same symbols and partitions: they share the partitions and take over
from each other.

Exit codes: 0 ended by SIGINT or SIGTERM, 1 internal error, 2 wrong usage, 3 no hub could be reached or it
refused, 4 the engine could not be reached or is laid out for something else.)";

/// What CLI11 fills before it is checked.
struct RawOptions {
    std::vector<int> sources;
    std::string symbolsFile;
    std::chrono::milliseconds::rep lastEvery = 100;
    std::chrono::milliseconds::rep linger = 5;
    std::size_t batchKilobytes = 32;
    std::size_t bufferMegabytes = 64;
    std::string payload = nameOf(Payload::Json);
    long maxAgeHours = 24;
    long maxMegabytes = 1024;
};

void declareHubs(CLI::App& app, ProgramOptions& options, RawOptions& raw) {
    const char* const group = "Hubs";
    app.add_option("-H,--host", options.hosts, "hub as ADDRESS:PORT; repeat it for more hubs")
        ->allow_extra_args(false)
        ->required()
        ->group(group);
    app.add_option("-B,--backup", options.backups, "backup hub, used when the others are lost; repeatable")
        ->allow_extra_args(false)
        ->group(group);
    tivra_tools::declareTls(app, group, options.hubTls, "--hub-tls");
    tivra_tools::declareAddresses(app, group, options.addresses);
    tivra_tools::declareUser(app, group, options.user, options.passwordFile);
    app.add_option("-s,--source", raw.sources, "source of symbols that name none; repeat it for more")
        ->allow_extra_args(false)
        ->check(CLI::PositiveNumber)
        ->group(group);
    app.add_option("-f,--symbols-file", raw.symbolsFile,
                   "file of symbols, SYMBOL or SOURCE:SYMBOL in each line, # begins a comment")
        ->required()
        ->group(group);
}

void declareEngine(CLI::App& app, ProgramOptions& options, RawOptions& raw) {
    const char* const group = "Engine";
    BusLayout& layout = options.bridge.layout;
    app.add_option("--to", options.engine.url,
                   "nats://HOST[:PORT],..., tls://HOST[:PORT],... or kafka://HOST[:PORT],...")
        ->required()
        ->group(group);
    app.add_option("--credentials", options.engine.credentialsFile,
                   "credentials file of a user of the engine; with kafka:// a file of the client library's "
                   "properties, such as sasl.username=NAME")
        ->check(CLI::ExistingFile)
        ->group(group);
    app.add_option("--tls-ca", options.engine.caFile,
                   "file of the certificates that the engine's is checked with")
        ->check(CLI::ExistingFile)
        ->group(group);
    CLI::Option* certificate = app.add_option("--tls-certificate", options.engine.certificateFile,
                                              "file of this program's certificate")
                                   ->check(CLI::ExistingFile)
                                   ->group(group);
    certificate->needs(app.add_option("--tls-key", options.engine.keyFile, "file of the key to it")
                           ->check(CLI::ExistingFile)
                           ->group(group));
    app.add_option("--partitions", layout.partitions,
                   "streams that the symbols are spread over; fixed once created")
        ->check(CLI::Range(1U, 1024U))
        ->capture_default_str()
        ->group(group);
    app.add_option("--replicas", layout.replicas, "copies of each stream, on separate servers")
        ->check(CLI::Range(1, 5))
        ->capture_default_str()
        ->group(group);
    app.add_option("--max-age", raw.maxAgeHours, "hours that streams are kept")
        ->check(CLI::Range(1L, 24L * 366))
        ->capture_default_str()
        ->group(group);
    app.add_option("--max-megabytes", raw.maxMegabytes, "megabytes that each partition's stream may take")
        ->check(CLI::Range(1L, 1L << 30))
        ->capture_default_str()
        ->group(group);
}

void declareWriting(CLI::App& app, ProgramOptions& options, RawOptions& raw) {
    const char* const group = "Writing";
    app.add_option("--name", options.bridge.name,
                   "name of this bridge among the others; made of host and process unless given")
        ->group(group);
    app.add_option("--payload", raw.payload,
                   "how records are written: as text, with the bytes of the hub's message, or as an Arrow "
                   "stream, a table for each batch")
        ->check(CLI::IsMember({nameOf(Payload::Json), nameOf(Payload::Body), nameOf(Payload::Arrow)}))
        ->capture_default_str()
        ->group(group);
    app.add_option("--last-every", raw.lastEvery, "least time between two last values of a symbol")
        ->transform(
            CLI::AsNumberWithUnit(std::map<std::string, long>{{"ms", 1}, {"s", 1000}},
                                  CLI::AsNumberWithUnit::Options(CLI::AsNumberWithUnit::CASE_SENSITIVE |
                                                                 CLI::AsNumberWithUnit::UNIT_REQUIRED),
                                  "TIME, such as 100ms or 1s"))
        ->check(CLI::Range(1L, 3'600'000L))
        ->group(group);
    app.add_option("--batch-kilobytes", raw.batchKilobytes, "a batch is sent when it has that many")
        ->check(CLI::Range(1, 512))
        ->capture_default_str()
        ->group(group);
    app.add_option("--linger", raw.linger, "milliseconds that a record waits for others in its batch")
        ->check(CLI::Range(0, 1000))
        ->capture_default_str()
        ->group(group);
    app.add_option(
           "--buffer-megabytes", raw.bufferMegabytes,
           "that wait for a slow engine; what is beyond is counted, and a gap and present values stand in "
           "its place")
        ->check(CLI::Range(1, 65536))
        ->capture_default_str()
        ->group(group);
    app.add_flag("--live", options.bridge.writer.sendsLive, "publish single records too, not stored")
        ->group(group);
    app.add_option("--stats-listen", options.statsListen,
                   "[ADDRESS:]PORT of an HTTP server with /metrics (OpenMetrics), /health and /stats.json; "
                   "without an address 127.0.0.1, port 0 is a free one")
        ->group("Operation");
    tivra_tools::declarePageProtection(app, "Operation", options.statsProtection);
    app.add_option("--log", options.logFile, "base name of the library's log file; the date is added")
        ->group("Operation");
}

/// A name that no other process has, also on another machine or after a restart.
std::string madeName() {
    char host[64] = {};
    gethostname(host, sizeof host - 1);
    return fmt::format("{}-{}-{:08x}", host, getpid(), std::random_device()());
}

void checkName(const std::string& name) {
    const auto isGood = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
               c == '-';
    };
    if (name.empty() || name.size() > 128 || !std::all_of(name.begin(), name.end(), isGood))
        throw tivra_tools::UsageError(
            fmt::format("--name {}: up to 128 letters, digits, \"_\" and \"-\" were wanted", name));
}

void complete(ProgramOptions& options, const RawOptions& raw) {
    tivra_tools::checkUser(options.user);
    tivra_tools::checkHosts(options.hosts, options.backups);
    if (!options.statsListen.empty())
        options.statsListen = tivra_tools::resolveListener(options.statsListen);
    BridgeOptions& bridge = options.bridge;
    if (bridge.name.empty()) {
        bridge.name = madeName();
        std::replace(bridge.name.begin(), bridge.name.end(), '.', '_');
    }
    checkName(bridge.name);
    options.engine.name = "tivra-bridge " + bridge.name;
    checkEngine(options.engine);
    if (bridge.writer.sendsLive && options.engine.url.starts_with("kafka://"))
        throw tivra_tools::UsageError(
            "--live: Kafka stores everything that is sent, so that there is no topic "
            "for single records");
    bridge.instruments = readSymbols(raw.symbolsFile, raw.sources);
    bridge.lastEvery = std::chrono::milliseconds(raw.lastEvery);
    bridge.layout.maxAge = std::chrono::hours(raw.maxAgeHours);
    bridge.layout.maxBytes = static_cast<std::int64_t>(raw.maxMegabytes) << 20;
    bridge.writer.linger = std::chrono::milliseconds(raw.linger);
    bridge.writer.batchBytes = raw.batchKilobytes << 10;
    bridge.writer.bufferBytes = raw.bufferMegabytes << 20;
    for (const Payload payload : {Payload::Json, Payload::Body, Payload::Arrow})
        if (raw.payload == nameOf(payload))
            bridge.writer.payload = payload;
}

} // namespace

std::optional<ProgramOptions> readOptions(int argc, char** argv) {
    tivra_tools::refusePasswordArgument(argc, argv);
    ProgramOptions options;
    RawOptions raw;
    CLI::App app(
        "Publishes what market-data hubs send onto NATS JetStream or Kafka, for any number of readers.",
        "tivra-bridge");
    app.set_version_flag("--version", std::string("tivra-bridge ") + TIVRA_BRIDGE_VERSION);
    app.set_config("--config", "", "read options from this file");
    app.allow_config_extras(CLI::config_extras_mode::error);
    app.footer(kFooter);
    declareHubs(app, options, raw);
    declareEngine(app, options, raw);
    declareWriting(app, options, raw);
    if (tivra_tools::writeToolText(app, argc, argv))
        return std::nullopt;
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            app.exit(error);
            return std::nullopt;
        }
        throw tivra_tools::UsageError(
            fmt::format("{} (see tivra-bridge --help)", tivra_tools::parseFailureText(app, error)));
    }
    complete(options, raw);
    return options;
}

} // namespace tivra_bus
