#include "ExitCode.h"
#include "LogFile.h"
#include "Options.h"
#include "Password.h"
#include "Run.h"

#include <fmt/format.h>

#include <csignal>
#include <cstdio>
#include <exception>

namespace {

int runProgram(int argc, char** argv) {
    using namespace tivra_cat;
    const std::optional<Options> options = readOptions(argc, argv);
    if (!options)
        return static_cast<int>(ExitCode::Ended);
    const std::string logFile = logFileName(options->logFile);
    const std::string password = obtainPassword(options->user, options->passwordFile);
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
        fmt::print(stderr, "tivra-cat: {}\n", failure.what());
        return static_cast<int>(failure.exitCode());
    } catch (const std::exception& error) {
        fmt::print(stderr, "tivra-cat: internal error: {}\n", error.what());
        return static_cast<int>(tivra_cat::ExitCode::Internal);
    }
}
