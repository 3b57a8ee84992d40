#pragma once

#include "Options.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tivra_wire {

/// A token as a hub lists it.
struct HubToken {
    std::int64_t number = 0;
    std::string name;
    std::string type; ///< a type word, such as INTEGER
};

/// Logs in at a hub as any client does and asks it for its tokens. Throws Failure with ExitCode::HubFailed
/// when they can't be had in the time that the options leave for it.
[[nodiscard]] std::vector<HubToken> fetchDictionary(const HubOptions& options, const std::string& password);

} // namespace tivra_wire
