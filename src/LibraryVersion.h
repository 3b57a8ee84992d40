#pragma once

#include "TivraVersion.h"

namespace tivra_internal {

/// The library's version and its date, as login requests and the log report them.
inline constexpr const char* kVersion = "V" TIVRA_VERSION_STRING;
inline constexpr const char* kVersionDate = TIVRA_VERSION_DATE;

} // namespace tivra_internal
