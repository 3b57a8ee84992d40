#pragma once

namespace tivra_internal {

/// Where the names of return codes come from; the session implements it. @thread any
class RetCodeTexts {
public:
    virtual ~RetCodeTexts() = default;

    /// The name of a return code, or "Unknown code"; valid until the session ends.
    [[nodiscard]] virtual const char* getRetCodeDesc(int code) const = 0;
};

} // namespace tivra_internal
