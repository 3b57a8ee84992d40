#pragma once

#include <nanobind/nanobind.h>

#include <feed/ConnectionEvent.h>

namespace tivra_python {

/// The connection to a hub as a dict, whose states are the numbers of the enumerators. With the interpreter's
/// lock.
[[nodiscard]] nanobind::dict toHubDict(const tivra::ConnectionEvent& event);

} // namespace tivra_python
