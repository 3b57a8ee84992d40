#include "StatisticsFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace tivra_cat {

bool StatisticsFile::replace(const std::string& text) {
    m_error.clear();
    if (writeBeside(text) && std::rename(m_beside.c_str(), m_path.c_str()) == 0)
        return true;
    m_error = fmt::format("cannot write the statistics to {}: {}", m_path, std::strerror(errno));
    static_cast<void>(unlink(m_beside.c_str()));
    return false;
}

bool StatisticsFile::writeBeside(const std::string& text) const {
    // No link is followed: the folder may be one in which others can write.
    const int fd = open(m_beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd < 0)
        return false;
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t result = write(fd, text.data() + written, text.size() - written);
        if (result < 0 && errno != EINTR)
            break;
        written += result > 0 ? static_cast<std::size_t>(result) : 0;
    }
    const int error = errno;
    const bool isClosed = close(fd) == 0;
    if (written < text.size())
        errno = error;
    return written == text.size() && isClosed;
}

} // namespace tivra_cat
