// The error text of the calling thread: how a function that returned null or -1 says why.
#pragma once

#include <span>

namespace tp {

/// Stores the pointer itself: only for texts that live forever.
void te_seterror(const char* text) noexcept;

/// Formats into the thread's buffer. No argument may be the thread's own text; te_error_safe() takes it.
void te_error(const char* format, ...) noexcept __attribute__((format(printf, 1, 2)));

/// As te_error(), for arguments that may be te_geterror()'s text.
void te_error_safe(const char* format, ...) noexcept __attribute__((format(printf, 1, 2)));

/// @return the last text of the calling thread, never null; valid until the thread reports again
[[nodiscard]] const char* te_geterror() noexcept;

/// Hands out the thread's buffer, which is the error text from now on, to a caller that composes the text
/// itself and ends it with a zero. Empty when there is no memory for it.
[[nodiscard]] std::span<char> te_fill() noexcept;

} // namespace tp
