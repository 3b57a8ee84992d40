#include "Formats.h"

#include "CommandTable.h"
#include "JsonLines.h"
#include "RawPairs.h"
#include "TablePorts.h"
#include "TableRecords.h"
#include "TableRows.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace tivra_cat {

namespace {

constexpr std::size_t kHeaderEvery = 40;

bool wantsColor(Choice choice) {
    if (choice != Choice::Auto)
        return choice == Choice::Always;
    const char* noColor = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    const bool isDumb = terminal == nullptr || std::strcmp(terminal, "dumb") == 0;
    return isatty(STDOUT_FILENO) == 1 && (noColor == nullptr || *noColor == '\0') && !isDumb;
}

} // namespace

bool wantsProgress(const Options& options) {
    if (options.progress != Choice::Auto)
        return options.progress == Choice::Always;
    return isatty(STDERR_FILENO) == 1 && (options.isQuiet || isatty(STDOUT_FILENO) == 0);
}

std::unique_ptr<OutputFormat> makeFormat(const Options& options, const FieldSelection& selection) {
    if (options.output == OutputKind::JsonLines)
        return std::make_unique<JsonLines>();
    if (options.output == OutputKind::RawPairs)
        return std::make_unique<RawPairs>();
    const CommandTraits& traits = traitsOf(options.command);
    const bool isColored = wantsColor(options.color);
    if (options.command == tivra::GETSOURCEPORTDETAILS && selection.selectsAll())
        return std::make_unique<TablePorts>();
    if (traits.describesFew && selection.selectsAll())
        return std::make_unique<TableRecords>(isColored);
    TableRows::Settings settings;
    settings.isColored = isColored;
    settings.isLive = traits.isStream;
    settings.showsSymbol = traits.carriesSymbol;
    settings.everySeconds = options.everySeconds;
    settings.headerEvery = traits.isStream && isatty(STDOUT_FILENO) == 1 ? kHeaderEvery : 0;
    return std::make_unique<TableRows>(settings, selection);
}

} // namespace tivra_cat
