#pragma once

#include <nanobind/nanobind.h>

/// @file
/// What the extension module consists of: each function adds the Python classes of one concern.

namespace tivra_python {

void bindColumns(nanobind::module_& module);
void bindDictionary(nanobind::module_& module);
void bindBatches(nanobind::module_& module);
void bindWriting(nanobind::module_& module);

} // namespace tivra_python
