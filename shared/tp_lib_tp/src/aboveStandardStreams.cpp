#include <tp/aboveStandardStreams.h>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace tp {

int aboveStandardStreams(int fd) noexcept {
    if (fd < 0 || fd > STDERR_FILENO)
        return fd;
    const int kept = ::fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int error = errno;
    ::close(fd);
    errno = error;
    return kept;
}

} // namespace tp
