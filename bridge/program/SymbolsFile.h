#pragma once

#include <feed/Instrument.h>

#include <string>
#include <vector>

namespace tivra_bus {

/// The symbols of a file, one in each line as SYMBOL or SOURCE:SYMBOL; empty lines and those that begin with
/// # are left out. One without a source of its own is taken of each of `sources`. Throws UsageError with the
/// line for what can't be a symbol.
[[nodiscard]] std::vector<tivra::Instrument> readSymbols(const std::string& path,
                                                         const std::vector<int>& sources);

} // namespace tivra_bus
