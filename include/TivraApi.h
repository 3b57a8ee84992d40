#pragma once

/// @file
/// Marks what the shared library exports. Everything else in it is hidden.

/// Stands before each class and function of the API.
#if defined(__GNUC__) || defined(__clang__)
#    define TIVRA_API __attribute__((visibility("default")))
#else
#    define TIVRA_API
#endif
