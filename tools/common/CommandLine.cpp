#include "common/CommandLine.h"

#include "common/ParseFailure.h"
#include "common/ToolText.h"
#include "common/UsageError.h"

#include <fmt/format.h>

namespace tivra_tools {

bool readCommandLine(CLI::App& app, int argc, char** argv) {
    if (writeToolText(app, argc, argv))
        return false;
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        app.exit(success);
        return false;
    } catch (const CLI::ParseError& error) {
        throw UsageError(fmt::format("{} (see {} --help)", parseFailureText(app, error), app.get_name()));
    }
    return true;
}

} // namespace tivra_tools
