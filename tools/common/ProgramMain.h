#pragma once

#include "common/Printable.h"
#include "common/ProgramFailure.h"
#include "common/UsageError.h"

#include <fmt/format.h>

#include <csignal>
#include <cstdio>
#include <exception>

namespace tivra_tools {

/// One line on standard error, and the code that the process ends with. Nothing is printed for an empty text,
/// whose cause has been printed before.
template<class Code>
[[nodiscard]] int endWith(Code code, const char* program, const char* text) {
    if (*text != '\0')
        fmt::print(stderr, "{}: {}\n", program, printableLines(text));
    return static_cast<int>(code);
}

/// The main() of a program: its work, and what it throws as a line on standard error and an exit code.
/// @tparam Code  the program's exit codes, among them Usage and Internal
template<class Code>
[[nodiscard]] int runMain(const char* program, Code (*work)(int, char**), int argc, char** argv) {
    // A closed pipe is the writer's error, not the end of the process.
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return static_cast<int>(work(argc, argv));
    } catch (const ProgramFailure<Code>& failure) {
        return endWith(failure.exitCode(), program, failure.what());
    } catch (const UsageError& error) {
        return endWith(Code::Usage, program, error.what());
    } catch (const std::exception& error) {
        return endWith(Code::Internal, program, fmt::format("internal error: {}", error.what()).c_str());
    }
}

} // namespace tivra_tools
