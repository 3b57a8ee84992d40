#include "Options.h"

#include "ExitCode.h"

#include "common/CommandLine.h"
#include "common/HostAddress.h"
#include "common/SessionOptions.h"
#include "common/UserOptions.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <sys/stat.h>
#include <unistd.h>

namespace tivra_wire {

namespace {

constexpr const char* kFooter =
    R"(kvn: frames with token numbers, as a hub sends them. zkvn: the same inside one zlib stream.
vkvn: lines of NAME=value or NUMBER=value with | between them. capture: a file of tivra-cat --record.
json and csv are written only. A FILE of - is standard input.

The password of --hub comes from TIVRA_PASSWORD, --password-file or a prompt, never from the command line.

Exit codes: 0 ended well, 1 internal error, 2 wrong usage or a map file that cannot be loaded,
3 a fault in the input, 4 the input cannot be read, 5 the output cannot be written,
6 the hub gives no dictionary.)";

const std::map<std::string, Form> kForms{{"kvn", Form::Kvn},   {"vkvn", Form::Vkvn},
                                         {"zkvn", Form::Zkvn}, {"capture", Form::Capture},
                                         {"json", Form::Json}, {"csv", Form::Csv}};

CLI::Validator formNames() {
    return CLI::Validator(CLI::CheckedTransformer(kForms).description("kvn|vkvn|zkvn|capture|json|csv"));
}

void declareInput(CLI::App& app, Options& options, std::string& from) {
    const char* const group = "Input";
    app.add_option("-m,--map", options.maps, "map file with the dictionary; repeat it for more")
        ->allow_extra_args(false)
        ->group(group);
    app.add_option("--from", from, "form of the input; else its first bytes tell")
        ->check(CLI::IsMember({"kvn", "vkvn", "zkvn", "capture"}))
        ->group(group);
}

void declareHub(CLI::App& app, HubOptions& hub, bool& isPlain) {
    const char* const group = "Dictionary from a hub";
    app.add_option("--hub", hub.host, "hub as ADDRESS:PORT that is asked for its dictionary")->group(group);
    tivra_tools::declareUser(app, group, hub.user, hub.passwordFile);
    tivra_tools::declareTls(app, group, hub.tls);
    tivra_tools::declareAddresses(app, group, hub.addresses);
    app.add_option("-t,--timeout", hub.timeoutSeconds, "seconds that the hub may take for all; default 30")
        ->check(CLI::Range(0.001, 86400.0))
        ->group(group);
    app.add_flag("--no-compression", isPlain, "ask the hub for a plain stream")->group(group);
    tivra_tools::declareLogFile(app, group, hub.logFile);
}

void declareFilters(CLI::App& app, Options& options) {
    const char* const group = "Filters";
    app.add_option("--token", options.tokens, "only messages with this token, by name or number; repeatable")
        ->allow_extra_args(false)
        ->group(group);
    app.add_option("-s,--source", options.sources, "only messages of this source; repeatable")
        ->allow_extra_args(false)
        ->group(group);
    app.add_option("--symbol", options.symbols, "only messages of this symbol; repeatable")
        ->allow_extra_args(false)
        ->group(group);
}

/// What the command line says of times, before it is read.
struct TimeTexts {
    std::string begin;
    std::string end;
};

void declareTimes(CLI::App& app, TimeTexts& times) {
    const char* const group = "Filters";
    app.add_option("--begin", times.begin,
                   "captures: only messages from then on, seconds after the first or 2026-11-27T02:40:00Z")
        ->group(group);
    app.add_option("--end", times.end, "captures: only messages before then")->group(group);
}

void declareTask(CLI::App& app, Options& options, Task task, const char* name, const char* help) {
    CLI::App* const command = app.add_subcommand(name, help);
    command->fallthrough();
    command->callback([&options, task] { options.task = task; });
    if (task != Task::Map)
        command->add_option("FILE", options.files,
                            "files to read one after the other; default standard input");
    if (task != Task::Check)
        command->add_option("-o,--output", options.output, "file to write, default standard output");
    if (task != Task::Convert)
        return;
    command->add_option("--to", options.to, "form of the output, default vkvn")->transform(formNames());
    command
        ->add_option("-F,--fields", options.columns,
                     "csv: fields that get a column each, separated by commas")
        ->delimiter(',')
        ->allow_extra_args(false);
    command->add_flag("--blanks", options.hasBlanks,
                      "vkvn with short names and blanks between the fields, which is not read back");
    command->add_option("--level", options.level, "level of zlib for zkvn, 0 to 9")->check(CLI::Range(0, 9));
}

/// Opening the output would empty the input before it is read.
void refuseOneFileForBoth(const Options& options) {
    struct stat out {};
    if (options.output == "-" || stat(options.output.c_str(), &out) != 0 || !S_ISREG(out.st_mode))
        return;
    for (const std::string& file : options.files) {
        struct stat in {};
        const int result = file == "-" ? fstat(STDIN_FILENO, &in) : stat(file.c_str(), &in);
        if (result == 0 && in.st_dev == out.st_dev && in.st_ino == out.st_ino)
            throw Failure(ExitCode::Usage, fmt::format("{} is the input and the output", options.output));
    }
}

/// A capture is no stream: its index stands at its end.
void checkCaptures(const Options& options) {
    const bool isSlice = options.task == Task::Slice;
    const bool readsStream = options.files.empty() || std::find(options.files.begin(), options.files.end(),
                                                                "-") != options.files.end();
    if ((isSlice || options.from == Form::Capture) && readsStream)
        throw Failure(ExitCode::Usage, "a capture is read from a file, not from standard input: name one");
    const bool writesCapture = isSlice || (options.task == Task::Convert && options.to == Form::Capture);
    if (writesCapture && options.output == "-")
        throw Failure(ExitCode::Usage, "a capture is written to a file: name one with --output");
    if (isSlice && !options.tokens.empty())
        throw Failure(ExitCode::Usage, "slice knows no dictionary, so no --token; convert --to capture does");
    if (!options.columns.empty() && options.to != Form::Csv)
        throw Failure(ExitCode::Usage, "--fields are columns of --to csv");
}

void complete(Options& options) {
    if (options.hasBlanks && options.to != Form::Vkvn)
        throw Failure(ExitCode::Usage, "--blanks is a kind of vkvn; leave --to out");
    checkCaptures(options);
    if (options.files.empty() && options.task != Task::Map)
        options.files.emplace_back("-");
    refuseOneFileForBoth(options);
    if (options.task == Task::Slice)
        return;
    if (options.hub.host.empty() && options.maps.empty())
        throw Failure(ExitCode::Usage, "no dictionary named: give a file with --map or a hub with --hub");
    if (options.hub.host.empty())
        return;
    tivra_tools::checkUser(options.hub.user);
    const bool readsInput = std::find(options.files.begin(), options.files.end(), "-") != options.files.end();
    if (options.hub.passwordFile == "-" && readsInput)
        throw Failure(ExitCode::Usage, "standard input cannot be both the password and the messages");
    static_cast<void>(tivra_tools::resolveHost(options.hub.host));
}

} // namespace

std::optional<Options> readOptions(int argc, char** argv) {
    tivra_tools::refusePasswordArgument(argc, argv);
    Options options;
    std::string from;
    bool isPlain = false;
    CLI::App app("Shows, converts and checks streams of token messages.", "tivra-wire");
    app.footer(kFooter);
    app.set_version_flag("--version", std::string("tivra-wire ") + TIVRA_WIRE_VERSION);
    app.require_subcommand(1);
    declareInput(app, options, from);
    declareHub(app, options.hub, isPlain);
    declareFilters(app, options);
    declareTask(app, options, Task::Dump, "dump", "every field with its offset, token, name and type");
    declareTask(app, options, Task::Convert, "convert", "write the messages in another form");
    declareTask(app, options, Task::Check, "check", "read all and count");
    declareTask(app, options, Task::Map, "map", "write the dictionary as a map file");
    declareTask(app, options, Task::Slice, "slice",
                "copy what is wanted of captures into one, in the order of the times");
    app.get_subcommand("slice")->alias("merge");
    TimeTexts times;
    declareTimes(app, times);
    if (!tivra_tools::readCommandLine(app, argc, argv))
        return std::nullopt;
    if (!from.empty())
        options.from = kForms.at(from);
    readTime("--begin", times.begin, options.range.begin, options.range.isBeginRelative);
    readTime("--end", times.end, options.range.end, options.range.isEndRelative);
    options.hub.hasCompression = !isPlain;
    complete(options);
    return options;
}

} // namespace tivra_wire
