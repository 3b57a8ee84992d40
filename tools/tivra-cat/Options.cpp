#include "Options.h"

#include "CommandTable.h"
#include "ExitCode.h"

#include "common/CommandLine.h"
#include "common/HostAddress.h"
#include "common/ParseFailure.h"
#include "common/SessionOptions.h"
#include "common/UserOptions.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <map>

namespace tivra_cat {

namespace {

constexpr const char* kFooter =
    R"(The password comes from TIVRA_PASSWORD, --password-file or a prompt, never from the command line.
--config reads any of the long options from an INI or TOML file, such as host=["10.1.2.3:4567"].

Exit codes: 0 ended as asked, 1 internal error, 2 wrong usage, 3 no hub or engine could be reached,
4 login refused, 5 a request was refused, 6 no answer in time, 7 something is or may be missing,
8 the output cannot be written or served, 130 interrupted before the session or the answer was complete.)";

/// What CLI11 fills before it is checked and turned into Options.
struct RawOptions {
    std::vector<int> sources;
    std::vector<std::string> symbols;
    std::vector<std::string> positionalSymbols;
    std::map<tivra::RequestParameters, std::vector<std::string>> identifiers;
    std::string symbolsFile;
    std::string listWhat;
    bool takesSnapshot = false;
    bool subscribesDepth = false;
    bool subscribesWildcard = false;
    bool wantsUpdatesOnly = false;
    std::vector<std::string> statsLabels;
};

/// A flag that stays unset when it isn't given. CLI11 takes an optional bool for a count and starts it at 0.
CLI::Option* addSwitch(CLI::App& app, const std::string& names, std::optional<bool>& isOn,
                       const std::string& help) {
    return app.add_flag_function(
        names, [&isOn](std::int64_t count) { isOn = count > 0; }, help);
}

void declareWho(CLI::App& app, Options& options, RawOptions& raw) {
    const char* const group = "Where and who";
    tivra_tools::declareHosts(app, group, options.hosts, options.backups);
    tivra_tools::declareUser(app, group, options.user, options.passwordFile);
    tivra_tools::declareTls(app, group, options.tls);
    tivra_tools::declareAddresses(app, group, options.addresses);
    CLI::Option* from =
        app.add_option("--from", options.from,
                       "read snapshot and subscribe from what tivra-bridge has published, not from a hub: "
                       "nats://HOST[:PORT],..., tls://HOST[:PORT],... or kafka://HOST[:PORT],...")
            ->group(group);
    app.add_option("--credentials", options.credentialsFile,
                   "credentials file of a user of that engine; with kafka:// a file of the client library's "
                   "properties")
        ->check(CLI::ExistingFile)
        ->needs(from)
        ->group(group);
    app.add_option("-s,--source", raw.sources, "source number; repeat it for more")
        ->allow_extra_args(false)
        ->check(CLI::PositiveNumber)
        ->group(group);
    app.add_option("--symbol", raw.symbols, "a symbol, as behind the command; repeatable")
        ->allow_extra_args(false)
        ->group(group);
    app.add_option("-f,--symbols-file", raw.symbolsFile, "file of symbols, one per line, # begins a comment")
        ->group(group);
    app.set_config("--config", "", "read options from this file")->group(group);
}

void declareOutput(CLI::App& app, Options& options) {
    const char* const group = "Output";
    const std::map<std::string, OutputKind> kinds{
        {"table", OutputKind::Table}, {"json", OutputKind::JsonLines}, {"raw", OutputKind::RawPairs}};
    const std::map<std::string, Choice> choices{
        {"auto", Choice::Auto}, {"always", Choice::Always}, {"never", Choice::Never}};
    app.add_option("-o,--output", options.output,
                   "table, json (one object per line) or raw (number=value pairs)")
        ->transform(CLI::CheckedTransformer(kinds).description("table|json|raw"))
        ->type_name("")
        ->group(group);
    app.add_option("-F,--fields", options.fields,
                   "fields to show, by name or number, separated by commas; A/B is the first that is there, "
                   "LABEL=A names the column")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->group(group);
    app.add_option("--every", options.everySeconds,
                   "table: print each symbol's latest values once per this many seconds")
        ->check(CLI::PositiveNumber)
        ->group(group);
    app.add_flag("-q,--quiet", options.isQuiet, "print no message, only count them")->group(group);
    app.add_option("--record", options.recordFile,
                   "store the updates as they come, with their times, in this capture; tivra-hub --replay "
                   "plays it")
        ->group(group);
    app.add_option("--record-wire", options.recordWireFile,
                   "store all that comes, answers too, as the frames that hubs send, which tivra-wire reads")
        ->group(group);
    app.add_option("--color", options.color,
                   "colour in tables: auto, always or never; auto respects NO_COLOR")
        ->transform(CLI::CheckedTransformer(choices).description("auto|always|never"))
        ->type_name("")
        ->group(group);
    app.add_option("--progress", options.progress,
                   "line of progress on standard error: auto, always or never")
        ->transform(CLI::CheckedTransformer(choices).description("auto|always|never"))
        ->type_name("")
        ->group(group);
    app.add_flag("--summary,!--no-summary", options.showsSummary,
                 "end with a summary on standard error (default)")
        ->group(group);
    app.add_option("--buffer", options.bufferSize,
                   "messages that may wait for a slow output before they are dropped")
        ->check(CLI::Range(std::size_t{1}, std::size_t{100000000}))
        ->group(group);
}

void declareStatistics(CLI::App& app, Options& options, RawOptions& raw) {
    const char* const group = "Statistics";
    const std::map<std::string, StatisticsForm> forms{{"text", StatisticsForm::Text},
                                                      {"json", StatisticsForm::Json},
                                                      {"openmetrics", StatisticsForm::OpenMetrics}};
    CLI::Option* stats = app.add_option("--stats", options.statsSeconds,
                                        "print the session's counters once per this many seconds")
                             ->check(CLI::Range(1.0, 86400.0))
                             ->group(group);
    app.add_option("--stats-format", options.statsForm, "text, json (one line) or openmetrics")
        ->transform(CLI::CheckedTransformer(forms).description("text|json|openmetrics"))
        ->type_name("")
        ->needs(stats)
        ->group(group);
    app.add_option("--stats-file", options.statsFile,
                   "file that they replace each time, in place of standard error")
        ->needs(stats)
        ->group(group);
    app.add_option("--stats-listen", options.statsListen,
                   "[ADDRESS:]PORT of an HTTP server with /metrics (openmetrics) and /stats.json; without an "
                   "address 127.0.0.1, port 0 is a free one")
        ->group(group);
    tivra_tools::declarePageProtection(app, group, options.statsProtection);
    app.add_option("--stats-label", raw.statsLabels,
                   "NAME=VALUE that stands with them in json and openmetrics; repeatable")
        ->allow_extra_args(false)
        ->group(group);
}

void declareLimits(CLI::App& app, Options& options) {
    const char* const group = "Limits";
    app.add_option("-n,--count", options.count, "end after this many messages")->group(group);
    app.add_option("-d,--duration", options.durationSeconds, "end this many seconds after the session stands")
        ->check(CLI::PositiveNumber)
        ->group(group);
    app.add_option("-t,--timeout", options.timeoutSeconds,
                   "seconds to wait for answers, 0 for ever; default 30")
        ->check(CLI::NonNegativeNumber)
        ->group(group);
    app.add_option("--sequence-field", options.sequenceField,
                   "field that counts up by one from message to message; gaps count as lost")
        ->group(group);
    app.add_flag("--strict", options.isStrict,
                 "end with code 7 at once when a hub is lost, a sequence has a hole or data is dropped")
        ->group(group);
}

void declareEngine(CLI::App& app, Options& options) {
    const char* const group = "Session and connections";
    addSwitch(app, "--compression,!--no-compression", options.compression,
              "ask for compressed data (the library's default)")
        ->group(group);
    addSwitch(app, "--multithreaded", options.isMultithreaded,
              "spread hubs and callbacks over several threads")
        ->group(group);
    app.add_option("--max-user-threads", options.maxUserThreads, "most threads for callbacks, 0 for no limit")
        ->group(group);
    app.add_option("--max-hub-threads", options.maxHubThreads, "most threads for hubs, 0 for no limit")
        ->group(group);
    app.add_option("--queue-size", options.queueMegabytes, "receive queue per hub in megabytes")
        ->group(group);
    addSwitch(app, "--watchlist,!--no-watchlist", options.watchlist,
              "keep requests and send them again after a loss (default)")
        ->group(group);
    addSwitch(app, "--hold-reads", options.holdReads,
              "have a compressed connection wait when the receive queue is full, in place of losing it")
        ->group(group);
    app.add_option("--conflation-type", options.conflationType,
                   "1 trade-safe, 3 just in time, 4 just in time by interval")
        ->check(CLI::IsMember({1, 3, 4}))
        ->group(group);
    app.add_option("--conflation-interval", options.conflationInterval,
                   "milliseconds over which a hub conflates")
        ->group(group);
    app.add_option("--jit-threshold", options.jitThreshold,
                   "percent of the queue at which just-in-time conflation begins")
        ->check(CLI::Range(1L, 75L))
        ->group(group);
    addSwitch(app, "--conflation-indicator", options.conflationIndicator,
              "ask hubs to mark what they may conflate")
        ->group(group);
    tivra_tools::declareReadTimeout(app, group, options.readTimeout);
    app.add_option("--connect-timeout", options.connectTimeout,
                   "seconds that one attempt to connect may take")
        ->check(CLI::NonNegativeNumber)
        ->group(group);
    app.add_option("--retries", options.retries, "failed attempts after which a hub is given up")
        ->check(CLI::NonNegativeNumber)
        ->group(group);
    tivra_tools::declareLogFile(app, group, options.logFile);
    app.add_flag("--debug", options.isDebug, "write the library's debug lines into its log")->group(group);
}

/// What "list WHAT" knows.
std::vector<std::string> listNames() {
    constexpr std::string_view PREFIX = "list ";
    std::vector<std::string> names;
    for (const CommandTraits& traits : kCommands) {
        const std::string_view name = traits.name;
        if (name.substr(0, PREFIX.size()) == PREFIX)
            names.emplace_back(name.substr(PREFIX.size()));
    }
    return names;
}

void declareCommands(CLI::App& app, Options& options, RawOptions& raw) {
    const auto withSymbols = [&raw](CLI::App* command, const char* help) {
        command->add_option("symbols", raw.positionalSymbols, help);
        return command;
    };
    const auto withIdentifiers = [&raw](CLI::App* command) {
        for (const auto& [name, kind] :
             {std::pair("--cusip", tivra::CUSIP), std::pair("--sedol", tivra::SEDOL),
              std::pair("--isin", tivra::ISIN)})
            command
                ->add_option(
                    name, raw.identifiers[kind],
                    "an identifier in place of a symbol, IDENTIFIER or SOURCE:IDENTIFIER; repeatable")
                ->allow_extra_args(false);
    };
    const char* const symbols = "SYMBOL or SOURCE:SYMBOL; none asks for the whole source";
    CLI::App* snapshot =
        withSymbols(app.add_subcommand("snapshot", "present values of symbols, once"), symbols);
    withIdentifiers(snapshot);
    snapshot->callback([&options] { options.command = tivra::QUERYSNAP; });

    CLI::App* subscribe =
        withSymbols(app.add_subcommand("subscribe", "updates of symbols as they happen"), symbols);
    withIdentifiers(subscribe);
    subscribe->add_flag("--snapshot", raw.takesSnapshot, "begin with the present values");
    subscribe->callback(
        [&] { options.command = raw.takesSnapshot ? tivra::QUERYSNAPANDSUBSCRIBE : tivra::SUBSCRIBE; });

    CLI::App* depth = withSymbols(app.add_subcommand("depth", "order books of symbols"), symbols);
    depth->add_flag("--subscribe", raw.subscribesDepth, "go on with updates");
    depth->add_option("--depth-type", options.depthType, "kind of order book, as the hub numbers them");
    depth->callback(
        [&] { options.command = raw.subscribesDepth ? tivra::QUERYDEPTHANDSUBSCRIBE : tivra::QUERYDEPTH; });

    CLI::App* wildcard = withSymbols(app.add_subcommand("wildcard", "all symbols that match a pattern"),
                                     "PATTERN or SOURCE:PATTERN, as the hub understands it, such as \"I*\"");
    CLI::Option* go = wildcard->add_flag("--subscribe", raw.subscribesWildcard, "go on with updates");
    wildcard->add_flag("--updates", raw.wantsUpdatesOnly, "updates without the present values")->excludes(go);
    wildcard->callback([&] {
        options.command = raw.wantsUpdatesOnly     ? tivra::SUBSCRIBEWILDCARD
                          : raw.subscribesWildcard ? tivra::QUERYSNAPANDSUBSCRIBEWILDCARD
                                                   : tivra::QUERYWILDCARD;
    });

    withSymbols(app.add_subcommand("xref", "cross references of symbols"), symbols)->callback([&options] {
        options.command = tivra::QUERYXREF;
    });

    CLI::App* list = app.add_subcommand("list", "what the hub knows");
    list->add_option(
            "what", raw.listWhat,
            "tokens, enumerations, admin, sources, subscriptions, permissions, clients, users or ports")
        ->required();
    withSymbols(list, "limits tokens to those of a symbol");
    list->add_option("--token", options.tokens, "limits tokens and enumerations to these, by name or number")
        ->allow_extra_args(false);
    list->callback([&] {
        const CommandTraits* traits = findList(raw.listWhat);
        if (traits == nullptr)
            throw Failure(ExitCode::Usage,
                          fmt::format("there is no list of \"{}\"{} (see tivra-cat list --help)",
                                      raw.listWhat, tivra_tools::suggestion(raw.listWhat, listNames())));
        options.command = traits->command;
    });
}

tivra::StatisticsText::Labels labelsOf(const std::vector<std::string>& texts) {
    tivra::StatisticsText::Labels labels;
    for (const std::string& text : texts) {
        const std::size_t equals = text.find('=');
        const std::string name = text.substr(0, equals);
        if (equals == std::string::npos || !tivra::StatisticsText::isLabelName(name))
            throw Failure(
                ExitCode::Usage,
                fmt::format("--stats-label {}: NAME=VALUE is wanted, with a name of letters, digits "
                            "and \"_\" that begins with none of 0-9 and not with \"__\"",
                            text));
        labels.emplace_back(name, text.substr(equals + 1));
    }
    return labels;
}

void complete(Options& options, const RawOptions& raw) {
    options.statsLabels = labelsOf(raw.statsLabels);
    if (!options.statsLabels.empty() && options.statsSeconds <= 0.0 && options.statsListen.empty())
        throw Failure(ExitCode::Usage, "--stats-label requires --stats or --stats-listen");
    if (!options.statsListen.empty())
        options.statsListen = tivra_tools::resolveListener(options.statsListen);
    if (options.from.empty()) {
        if (options.hosts.empty())
            throw Failure(ExitCode::Usage, "no hub named: give one with --host ADDRESS:PORT");
        tivra_tools::checkUser(options.user);
    }
    tivra_tools::checkHosts(options.hosts, options.backups);
    std::vector<std::string> symbols = raw.symbols;
    symbols.insert(symbols.end(), raw.positionalSymbols.begin(), raw.positionalSymbols.end());
    if (!raw.symbolsFile.empty()) {
        const std::vector<std::string> more = readSymbols(raw.symbolsFile);
        symbols.insert(symbols.end(), more.begin(), more.end());
    }
    addTargets(options.targets, raw.sources, symbols);
    for (const auto& [kind, values] : raw.identifiers)
        addTargets(options.targets, raw.sources, values, kind);
    if (options.targets.empty())
        for (const int source : raw.sources)
            options.targets.push_back({source, {}});
    const CommandTraits& traits = traitsOf(options.command);
    if (traits.needsSymbol && options.targets.empty())
        throw Failure(ExitCode::Usage,
                      fmt::format("{}: name a symbol, or a source with --source", traits.name));
    if (options.everySeconds > 0.0 && options.output != OutputKind::Table)
        throw Failure(ExitCode::Usage, "--every works for tables only");
}

} // namespace

std::optional<Options> readOptions(int argc, char** argv) {
    tivra_tools::refusePasswordArgument(argc, argv);
    Options options;
    RawOptions raw;
    CLI::App app("Subscribes a market-data hub and prints what comes.", "tivra-cat");
    app.set_version_flag("--version", std::string("tivra-cat ") + TIVRA_CAT_VERSION);
    app.require_subcommand(1);
    app.fallthrough();
    app.allow_config_extras(CLI::config_extras_mode::error);
    app.footer(kFooter);
    declareWho(app, options, raw);
    declareOutput(app, options);
    declareStatistics(app, options, raw);
    declareLimits(app, options);
    declareEngine(app, options);
    declareCommands(app, options, raw);
    if (!tivra_tools::readCommandLine(app, argc, argv))
        return std::nullopt;
    complete(options, raw);
    return options;
}

} // namespace tivra_cat
