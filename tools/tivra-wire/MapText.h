#pragma once

#include "Dictionary.h"

#include <string>

namespace tivra_wire {

/// The dictionary as a map file that loads to the same again, in the order of the numbers.
[[nodiscard]] std::string mapText(Dictionary& dictionary);

} // namespace tivra_wire
