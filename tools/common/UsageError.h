#pragma once

#include <stdexcept>

namespace tivra_tools {

/// Something that the user has said is wrong, found by code that doesn't know the program's exit codes.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace tivra_tools
