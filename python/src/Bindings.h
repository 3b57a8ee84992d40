#pragma once

#include <nanobind/nanobind.h>

/// @file
/// What the extension module consists of: each function adds the Python classes of one concern.

namespace tivra_python {

} // namespace tivra_python
