#pragma once

#include <string>

namespace tivra_internal {

/// Where a host of a feed is, which may be given by its name.
struct HostPlace {
    /// Looks a name up, which may take as long as the system's resolver does.
    ///
    /// @param given      "host:port"
    /// @param mayBeLost  a host that can't be found stays as it is given, with a warning, and is never
    /// reached
    /// @throws tivra::Error (OpenFailed) for another that can't be found
    HostPlace(const std::string& given, bool mayBeLost);

    std::string host;   ///< "address:port"
    std::string name{}; ///< that was given in place of an address; empty for none
};

} // namespace tivra_internal
