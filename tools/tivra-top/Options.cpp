#include "Options.h"

#include "ExitCode.h"

#include "common/CommandLine.h"
#include "common/HostAddress.h"
#include "common/SessionOptions.h"
#include "common/UserOptions.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <charconv>
#include <cstdlib>

namespace tivra_top {

namespace {

constexpr const char* kFooter =
    R"(The password comes from TIVRA_PASSWORD, --password-file or a prompt, never from the command line.
Keys: Tab goes from all panels to the board, the hubs and the log; left and right choose the column to sort
by, r turns the order round; / begins a filter of symbols, Esc ends it; up and down scroll; p stops the
picture; q ends.

Exit codes: 0 ended as asked, 1 internal error, 2 wrong usage, 3 no hub could be reached,
4 login refused, 6 no answer in time with --once, 8 no terminal, or the page cannot be served,
130 interrupted before the connection stood.)";

/// What is checked before it becomes Options.
struct RawOptions {
    std::vector<int> sources;
    std::vector<std::string> symbols;
    bool isPlain = false;
    bool isColorless = false;
    std::string serve;
};

void declareWho(CLI::App& app, Options& options, RawOptions& raw) {
    const char* const group = "Where and who";
    tivra_tools::declareHosts(app, group, options.hosts, options.backups);
    app.add_option(
           "--watch", options.endpoint,
           "in place of a hub an application that runs: URL of its statistics in the OpenMetrics form")
        ->group(group);
    app.add_option(
           "--watch-ca", options.endpointCa,
           "file (PEM) of the certificates that may vouch for an https URL; the system's unless given")
        ->check(CLI::ExistingFile)
        ->group(group);
    app.add_option("--watch-token-file", options.endpointTokenFile,
                   "file of the bearer token that the endpoint wants; nobody else may be able to read it")
        ->check(CLI::ExistingFile)
        ->group(group);
    tivra_tools::declareTls(app, group, options.tls);
    tivra_tools::declareAddresses(app, group, options.addresses);
    tivra_tools::declareUser(app, group, options.user, options.passwordFile);
    app.add_option("-s,--source", raw.sources, "source number; repeat it for more")
        ->allow_extra_args(false)
        ->check(CLI::PositiveNumber)
        ->group(group);
    app.add_option("SYMBOL", raw.symbols,
                   "SYMBOL or SOURCE:SYMBOL; with * or ? in it all that match; none is all of each --source")
        ->group(group);
    app.add_option("-t,--timeout", options.timeoutSeconds,
                   "seconds that connecting, and with --once the answers, may take; default 30")
        ->check(CLI::Range(0.001, 86400.0))
        ->group(group);
    tivra_tools::declareReadTimeout(app, group, options.readTimeout);
    app.add_flag("--no-compression", raw.isPlain, "ask the hub for a plain stream")->group(group);
    tivra_tools::declareLogFile(app, group, options.logFile);
    app.add_flag("--debug", options.isDebug, "the library's debug lines too, in its log and on the screen")
        ->group(group);
}

void declareOutput(CLI::App& app, Options& options, RawOptions& raw) {
    const char* const group = "Output";
    app.add_option("-F,--fields", options.fields, "fields to show, by name, separated by commas")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->group(group);
    CLI::Option* const once =
        app.add_flag("--once", options.isOnce, "print one picture as text and end, without a terminal")
            ->group(group);
    app.add_option("--serve", raw.serve,
                   "[ADDRESS:]PORT of a page for browsers in place of the screen; without an address "
                   "127.0.0.1, port 0 is a free one")
        ->excludes(once)
        ->group(group);
    app.add_flag("--no-color", raw.isColorless, "no colour; NO_COLOR in the environment does the same")
        ->group(group);
}

/// Takes "100:" off the front of "100:IBM"; 0 without one.
int takeSource(std::string& text) {
    const std::size_t colon = text.find(':');
    int source = 0;
    if (colon == std::string::npos || colon == 0)
        return 0;
    const char* const end = text.data() + colon;
    const auto [next, error] = std::from_chars(text.data(), end, source);
    if (next != end || error != std::errc{} || source < 1)
        return 0;
    text.erase(0, colon + 1);
    return source;
}

void addSymbol(Options& options, const std::vector<int>& sources, std::string symbol) {
    const int own = takeSource(symbol);
    if (own == 0 && sources.empty())
        throw Failure(ExitCode::Usage,
                      fmt::format("of which source is {}? Give SOURCE:{} or --source", symbol, symbol));
    const bool isPattern = symbol.find_first_of("*?") != std::string::npos;
    std::vector<tivra::Instrument>& wanted = isPattern ? options.patterns : options.symbols;
    if (own != 0)
        wanted.emplace_back(own, symbol);
    else
        for (const int source : sources)
            wanted.emplace_back(source, symbol);
}

void complete(Options& options, RawOptions& raw) {
    const bool hasEndpoint = !options.endpoint.empty();
    if (hasEndpoint && (!options.hosts.empty() || !raw.symbols.empty() || !raw.sources.empty()))
        throw Failure(ExitCode::Usage,
                      "--watch looks at an application: it goes with no host, source or symbol");
    if (!hasEndpoint && (!options.endpointCa.empty() || !options.endpointTokenFile.empty()))
        throw Failure(ExitCode::Usage, "--watch-ca and --watch-token-file go with --watch");
    if (!hasEndpoint)
        tivra_tools::checkUser(options.user);
    if (!hasEndpoint && options.hosts.empty())
        throw Failure(ExitCode::Usage, "no hub named: give --host ADDRESS:PORT, or --watch URL");
    tivra_tools::checkHosts(options.hosts, options.backups);
    if (raw.symbols.empty() && !raw.sources.empty())
        raw.symbols.emplace_back("*");
    for (const std::string& symbol : raw.symbols)
        addSymbol(options, raw.sources, symbol);
    options.hasCompression = !raw.isPlain;
    const char* const noColor = std::getenv("NO_COLOR");
    if (!raw.serve.empty())
        options.serve = tivra_tools::resolveListener(raw.serve);
    options.hasColor = !raw.isColorless && (noColor == nullptr || *noColor == '\0');
}

} // namespace

std::optional<Options> readOptions(int argc, char** argv) {
    tivra_tools::refusePasswordArgument(argc, argv);
    CLI::App app("Shows a market-data feed as it is now, on the whole screen or in a browser: values, hubs "
                 "and the log.",
                 "tivra-top");
    app.footer(kFooter);
    app.set_version_flag("--version", std::string("tivra-top ") + TIVRA_TOP_VERSION);
    Options options;
    RawOptions raw;
    declareWho(app, options, raw);
    declareOutput(app, options, raw);
    if (!tivra_tools::readCommandLine(app, argc, argv))
        return std::nullopt;
    complete(options, raw);
    return options;
}

} // namespace tivra_top
