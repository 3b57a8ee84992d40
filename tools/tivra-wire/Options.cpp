#include "Options.h"

#include "ExitCode.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <map>

namespace tivra_wire {

namespace {

constexpr const char* FOOTER =
    R"(kvn: frames with token numbers, as a hub sends them. zkvn: the same inside one zlib stream.
vkvn: lines of NAME=value or NUMBER=value with | between them. A FILE of - is standard input.

Exit codes: 0 ended well, 1 internal error, 2 wrong usage or a map file that cannot be loaded,
3 a fault in the input, 4 the input cannot be read, 5 the output cannot be written.)";

const std::map<std::string, Form> FORMS{{"kvn", Form::Kvn}, {"vkvn", Form::Vkvn}, {"zkvn", Form::Zkvn}};

CLI::Validator formNames() {
    return CLI::Validator(CLI::CheckedTransformer(FORMS).description("kvn|vkvn|zkvn"));
}

void declareInput(CLI::App& app, Options& options, std::string& from) {
    const char* const group = "Input";
    app.add_option("-m,--map", options.maps, "map file with the dictionary; repeat it for more")
        ->required()
        ->allow_extra_args(false)
        ->group(group);
    app.add_option("--from", from, "form of the input; else its first bytes tell")
        ->check(CLI::IsMember({"kvn", "vkvn", "zkvn"}))
        ->group(group);
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

void declareTask(CLI::App& app, Options& options, Task task, const char* name, const char* help) {
    CLI::App* const command = app.add_subcommand(name, help);
    command->fallthrough();
    command->callback([&options, task] { options.task = task; });
    command->add_option("FILE", options.files, "files to read one after the other; default standard input");
    if (task != Task::Check)
        command->add_option("-o,--output", options.output, "file to write, default standard output");
    if (task != Task::Convert)
        return;
    command->add_option("--to", options.to, "form of the output, default vkvn")->transform(formNames());
    command->add_flag("--blanks", options.hasBlanks,
                      "vkvn with short names and blanks between the fields, which is not read back");
    command->add_option("--level", options.level, "level of zlib for zkvn, 0 to 9")->check(CLI::Range(0, 9));
}

} // namespace

std::optional<Options> readOptions(int argc, char** argv) {
    Options options;
    std::string from;
    CLI::App app("Shows, converts and checks streams of token messages.", "tivra-wire");
    app.footer(FOOTER);
    app.set_version_flag("--version", std::string("tivra-wire ") + TIVRA_WIRE_VERSION);
    app.require_subcommand(1);
    declareInput(app, options, from);
    declareFilters(app, options);
    declareTask(app, options, Task::Dump, "dump", "every field with its offset, token, name and type");
    declareTask(app, options, Task::Convert, "convert", "write the messages in another form");
    declareTask(app, options, Task::Check, "check", "read all and count");
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        app.exit(success);
        return std::nullopt;
    } catch (const CLI::ParseError& error) {
        throw Failure(ExitCode::Usage, fmt::format("{} (try tivra-wire --help)", error.what()));
    }
    if (!from.empty())
        options.from = FORMS.at(from);
    if (options.hasBlanks && options.to != Form::Vkvn)
        throw Failure(ExitCode::Usage, "--blanks is a kind of vkvn; leave --to out");
    if (options.files.empty())
        options.files.emplace_back("-");
    return options;
}

} // namespace tivra_wire
