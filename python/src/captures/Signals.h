#pragma once

#include <nanobind/nanobind.h>

#include "HandOver.h"

namespace tivra_python {

/// Lets Python handle signals while the interpreter is released, so that Ctrl-C ends a long reading. Throws
/// what a handler raises.
inline void checkSignals() {
    const HandOver hand;
    if (hand && PyErr_CheckSignals() != 0)
        throw nanobind::python_error();
}

} // namespace tivra_python
