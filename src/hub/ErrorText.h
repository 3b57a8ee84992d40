#pragma once

#include <string>

namespace tivra_internal {

/// The system's text for an error number. @thread any
[[nodiscard]] std::string errorText(int error);

} // namespace tivra_internal
