#pragma once

namespace tivra_internal {

/// The library's version and its date, as login requests and the log tell them.
inline constexpr const char* kVersion = "V1.7.0.1";
inline constexpr const char* kVersionDate = "20250210";

} // namespace tivra_internal
