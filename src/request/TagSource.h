#pragma once

#include <cstdint>

namespace tivra_internal {

/// Where a request builder gets its tags from; the session implements it. @thread any
class TagSource {
public:
    virtual ~TagSource() = default;

    /// The next free tag, never below FIRST_AVAILABLE_USER_TAG.
    [[nodiscard]] virtual int64_t getNextTag() = 0;
};

} // namespace tivra_internal
