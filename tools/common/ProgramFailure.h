#pragma once

#include <stdexcept>
#include <string>

namespace tivra_tools {

/// An error that ends a program with one of its exit codes: what was attempted, with what or whom, why it
/// failed and what to do.
template<class Code>
class ProgramFailure : public std::runtime_error {
public:
    ProgramFailure(Code exitCode, const std::string& text) : std::runtime_error(text), m_exitCode(exitCode) {}

    [[nodiscard]] Code exitCode() const noexcept { return m_exitCode; }

private:
    Code m_exitCode;
};

} // namespace tivra_tools
