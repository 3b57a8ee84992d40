#include "ExitCode.h"
#include "Options.h"
#include "Run.h"

#include "common/UsageError.h"

#include <fmt/format.h>

#include <csignal>
#include <cstdio>
#include <exception>

namespace {

int runProgram(int argc, char** argv) {
    using namespace tivra_wire;
    const std::optional<Options> options = readOptions(argc, argv);
    return static_cast<int>(options ? run(*options) : ExitCode::Ended);
}

} // namespace

int main(int argc, char** argv) {
    // A closed pipe is the writer's error, not the end of the process.
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return runProgram(argc, argv);
    } catch (const tivra_wire::Failure& failure) {
        if (*failure.what() != '\0')
            fmt::print(stderr, "tivra-wire: {}\n", failure.what());
        return static_cast<int>(failure.exitCode());
    } catch (const tivra_tools::UsageError& error) {
        fmt::print(stderr, "tivra-wire: {}\n", error.what());
        return static_cast<int>(tivra_wire::ExitCode::Usage);
    } catch (const std::exception& error) {
        fmt::print(stderr, "tivra-wire: internal error: {}\n", error.what());
        return static_cast<int>(tivra_wire::ExitCode::Internal);
    }
}
