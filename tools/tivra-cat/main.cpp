#include "BusRun.h"
#include "ExitCode.h"
#include "Options.h"
#include "Run.h"

#include "common/LogFile.h"
#include "common/Password.h"
#include "common/Printable.h"
#include "common/UsageError.h"

#include <fmt/format.h>

#include <csignal>
#include <cstdio>
#include <exception>

namespace {

const std::string kProgram = "tivra-cat";

int runProgram(int argc, char** argv) {
    using namespace tivra_cat;
    const std::optional<Options> options = readOptions(argc, argv);
    if (!options)
        return static_cast<int>(ExitCode::Ended);
    if (!options->from.empty())
        return static_cast<int>(runFromBus(*options));
    const std::string logFile = tivra_tools::logFileName(options->logFile, kProgram);
    const std::string password = tivra_tools::obtainPassword(options->user, options->passwordFile);
    Run run(*options, logFile);
    return static_cast<int>(run.execute(password));
}

} // namespace

int main(int argc, char** argv) {
    // A closed pipe is the writer's error, not the end of the process.
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return runProgram(argc, argv);
    } catch (const tivra_cat::Failure& failure) {
        fmt::print(stderr, "tivra-cat: {}\n", tivra_tools::printableLines(failure.what()));
        return static_cast<int>(failure.exitCode());
    } catch (const tivra_tools::UsageError& error) {
        fmt::print(stderr, "tivra-cat: {}\n", tivra_tools::printableLines(error.what()));
        return static_cast<int>(tivra_cat::ExitCode::Usage);
    } catch (const std::exception& error) {
        fmt::print(stderr, "tivra-cat: internal error: {}\n", tivra_tools::printableLines(error.what()));
        return static_cast<int>(tivra_cat::ExitCode::Internal);
    }
}
