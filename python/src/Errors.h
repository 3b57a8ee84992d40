#pragma once

#include <nanobind/nanobind.h>

#include <feed/Error.h>

namespace tivra_python {

/// The exception that stands for an error: an instance of tivra.Error or of the subclass for its code. With
/// the interpreter's lock.
[[nodiscard]] nanobind::object makeException(const tivra::Error& error);

/// Raises an error that a binding has found itself.
[[noreturn]] void raiseInvalid(const char* cause, const char* advice);

} // namespace tivra_python
