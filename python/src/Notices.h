#pragma once

#include <cstddef>

#include <nanobind/nanobind.h>

#include "Event.h"

namespace tivra_python {

/// The tivra.Gap of an event that is one, or of what was dropped before it. With the interpreter's lock.
/// @param row  before which it stands in a batch
[[nodiscard]] nanobind::object makeGap(const Event& event, std::size_t row);
[[nodiscard]] nanobind::object makeOverflow(int source, const std::string& symbol, std::uint64_t messages,
                                            std::int64_t from, std::int64_t to, std::size_t row);
/// Of so many gaps that a reader who didn't come for long had no room for.
[[nodiscard]] nanobind::object makeUnlisted(std::uint64_t gaps);
/// The tivra.StateChange of an event that is one.
[[nodiscard]] nanobind::object makeStateChange(const Event& event);

} // namespace tivra_python
