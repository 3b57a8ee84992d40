#ifndef TIVRA_WIRE_EXITCODE_H
#define TIVRA_WIRE_EXITCODE_H

#include <stdexcept>
#include <string>

namespace tivra_wire {

/// What the program ends with; docs/tools.md and --help list the same.
enum class ExitCode : int {
    Ended = 0,
    Internal = 1,
    Usage = 2,
    Fault = 3,
    InputFailed = 4,
    OutputFailed = 5
};

/// An error that ends the program: what was attempted, with what, why it failed and what to do.
class Failure : public std::runtime_error {
public:
    Failure(ExitCode exitCode, const std::string& text) : std::runtime_error(text), m_exitCode(exitCode) {}

    [[nodiscard]] ExitCode exitCode() const noexcept { return m_exitCode; }

private:
    ExitCode m_exitCode;
};

} // namespace tivra_wire

#endif
