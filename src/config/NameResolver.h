#pragma once

#include <string>

#include "config/NameLookup.h"

namespace tivra_internal {

/// Finds the addresses of host names. Tests put one of their own in the place of the system's.
class NameResolver {
public:
    virtual ~NameResolver() = default;

    /// @thread any
    [[nodiscard]] virtual NameLookup lookUp(const std::string& name) = 0;

    /// Every name is looked up by this one from now on; null for the system's. It is borrowed.
    static void replace(NameResolver* resolver) noexcept;
};

} // namespace tivra_internal
