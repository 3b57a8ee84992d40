#include "capture/CaptureFile.h"

#include "capture/CaptureFormat.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace tivra_capture {

CaptureFile::CaptureFile(std::string path, Mode mode) : m_path(std::move(path)) {
    const bool isForReading = mode == Mode::Read;
    m_fd = ::open(m_path.c_str(), (isForReading ? O_RDONLY : O_WRONLY | O_CREAT | O_TRUNC) | O_CLOEXEC, 0644);
    if (m_fd < 0)
        failWithErrno(isForReading ? "cannot open the capture" : "cannot write the capture");
}

CaptureFile::~CaptureFile() {
    if (m_fd >= 0)
        static_cast<void>(::close(m_fd));
}

void CaptureFile::write(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t result = ::write(m_fd, bytes.data(), bytes.size());
        if (result >= 0)
            bytes.remove_prefix(static_cast<std::size_t>(result));
        else if (errno != EINTR)
            failWithErrno("cannot write the capture");
    }
}

void CaptureFile::close() {
    const int fd = m_fd;
    m_fd = -1;
    if (fd >= 0 && ::close(fd) != 0)
        failWithErrno("cannot write the capture");
}

std::string CaptureFile::read(std::uint64_t offset, std::size_t count) const {
    std::string bytes(count, '\0');
    std::size_t got = 0;
    while (got < count) {
        const ssize_t result =
            ::pread(m_fd, bytes.data() + got, count - got, static_cast<off_t>(offset + got));
        if (result == 0)
            break;
        if (result > 0)
            got += static_cast<std::size_t>(result);
        else if (errno != EINTR)
            failWithErrno("cannot read the capture");
    }
    bytes.resize(got);
    return bytes;
}

std::uint64_t CaptureFile::size() const {
    struct stat status {};
    if (::fstat(m_fd, &status) != 0)
        failWithErrno("cannot read the capture");
    return static_cast<std::uint64_t>(status.st_size);
}

void CaptureFile::fail(const std::string& what) const {
    throw CaptureError(m_path + ": " + what);
}

void CaptureFile::failWithErrno(const char* attempted) const {
    throw CaptureError(std::string(attempted) + " " + m_path + ": " + std::strerror(errno));
}

} // namespace tivra_capture
