#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <string>

namespace tivra_internal {

/// A file that is open for reading as long as the object lives; no child inherits it.
class OpenFile {
public:
    /// @param flags  O_NONBLOCK for what may be a pipe that nobody writes to
    explicit OpenFile(const std::string& path, int flags = 0)
        : m_fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | flags)) {}
    ~OpenFile() {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    /// Below 0, with errno, when there is none.
    [[nodiscard]] int fd() const noexcept { return m_fd; }

private:
    const int m_fd;
};

} // namespace tivra_internal
