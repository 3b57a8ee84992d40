#ifndef TIVRA_CAT_EXITCODE_H
#define TIVRA_CAT_EXITCODE_H

#include <stdexcept>
#include <string>

namespace tivra_cat {

/// What the program ends with; docs/tools.md and --help list the same.
enum class ExitCode : int {
    Ended = 0,
    Internal = 1,
    Usage = 2,
    Unreachable = 3,
    LoginRefused = 4,
    RequestRefused = 5,
    NoAnswer = 6,
    Lost = 7,
    OutputFailed = 8,
    Interrupted = 130
};

/// An error that ends the program: what was attempted, with whom, why it failed and what to do.
class Failure : public std::runtime_error {
public:
    Failure(ExitCode exitCode, const std::string& text) : std::runtime_error(text), m_exitCode(exitCode) {}

    [[nodiscard]] ExitCode exitCode() const noexcept { return m_exitCode; }

private:
    ExitCode m_exitCode;
};

} // namespace tivra_cat

#endif
