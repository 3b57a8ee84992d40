#pragma once

#include "TivraApi.h"

/// @file
/// The version of these headers, as macros, and that of the library behind them. The build reads it from
/// here.

/// Changes with what breaks programs or their binaries; the name of the shared library ends with it.
#define TIVRA_VERSION_MAJOR 1
/// Changes with what is added.
#define TIVRA_VERSION_MINOR 7
/// Changes with corrections.
#define TIVRA_VERSION_PATCH 0
/// The fourth part of the version.
#define TIVRA_VERSION_BUILD 1
/// The day of the version as "YYYYMMDD".
#define TIVRA_VERSION_DATE "20250210"

/// One number to compare, with two digits for each part after the first: 1.7.0.1 is 1070001.
#define TIVRA_VERSION                                                                                        \
    (TIVRA_VERSION_MAJOR * 1000000 + TIVRA_VERSION_MINOR * 10000 + TIVRA_VERSION_PATCH * 100 +               \
     TIVRA_VERSION_BUILD)

/// @cond
#define TIVRA_VERSION_JOIN_(major, minor, patch, build) #major "." #minor "." #patch "." #build
#define TIVRA_VERSION_TEXT_(major, minor, patch, build) TIVRA_VERSION_JOIN_(major, minor, patch, build)
/// @endcond
/// The version as a literal, such as "1.7.0.1".
#define TIVRA_VERSION_STRING                                                                                 \
    TIVRA_VERSION_TEXT_(TIVRA_VERSION_MAJOR, TIVRA_VERSION_MINOR, TIVRA_VERSION_PATCH, TIVRA_VERSION_BUILD)

namespace tivra {

/// The version of the library that runs, in the form of TIVRA_VERSION_STRING. With a shared library it may be
/// a later one than that of the headers. May be called at any time on any thread; the text lives for ever.
[[nodiscard]] TIVRA_API const char* version() noexcept;

} // namespace tivra
