#pragma once

#include <cerrno>

namespace tp {

/// A call on a socket that blocks nobody has failed for now: it may be repeated.
[[nodiscard]] inline bool isTransient(int error) noexcept {
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

} // namespace tp
