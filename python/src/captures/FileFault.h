#pragma once

#include <stdexcept>

namespace tivra_python {

/// A file that can't be read or isn't what it should be; what() names the file, the place and the fault.
class FileFault : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace tivra_python
