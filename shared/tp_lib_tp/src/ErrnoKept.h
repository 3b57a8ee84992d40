#pragma once

#include <cerrno>

namespace tp {

/// Logging must not disturb the errno of the code that logs.
class ErrnoKept {
public:
    ErrnoKept() noexcept : m_errno(errno) {}
    ~ErrnoKept() { errno = m_errno; }
    ErrnoKept(const ErrnoKept&) = delete;
    ErrnoKept& operator=(const ErrnoKept&) = delete;

private:
    int m_errno;
};

} // namespace tp
