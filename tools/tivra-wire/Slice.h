#pragma once

#include "Options.h"

namespace tivra_wire {

/// Copies the messages and notes of captures into one, in the order of their times, byte for byte: those of
/// the time range, the sources and the symbols that the options ask for. It needs no dictionary. Throws
/// Failure.
void slice(const Options& options);

} // namespace tivra_wire
