#pragma once

#include "tivra_sim/Hub.h"

#include <string>
#include <vector>

namespace tivra_sim {

/// Turns the bodies of a good answer into those of a hub that answers wrongly.
[[nodiscard]] std::vector<std::string> spoilt(const std::vector<std::string>& bodies, Hub::Wrong how);

} // namespace tivra_sim
