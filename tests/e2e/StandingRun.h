#pragma once

#include <optional>
#include <string>

#include "StandingHistory.h"

namespace standing {

/// Something that was not as it must be.
struct Fault {
    int sequence = -1; ///< -1 when it concerns all
    std::string what;
};

/// Plays a history through one session of the library and a group, and compares at every settlement what each
/// member holds, what it has been sent again, and what the application got. The first fault ends the run.
/// The library's clock runs fast meanwhile.
std::optional<Fault> run(const History& history);

} // namespace standing
