#include "receive/StampedRead.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <cstring>
#include <ctime>

#include <tp/Clock.h>

namespace tivra_internal {
namespace {

/// The kernel stamps by the wall clock: what has passed since then, by the same clock.
[[nodiscard]] double ageOf(const timespec& stamp) noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<double>(now.tv_sec - stamp.tv_sec) +
           static_cast<double>(now.tv_nsec - stamp.tv_nsec) * 1e-9;
}

/// Older than any kernel keeps bytes for a reader: the wall clock has been set since.
constexpr double kImplausible = 3600.0;

} // namespace

bool stampArrivals(int fd) noexcept {
    const int on = 1;
    return setsockopt(fd, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on) == 0;
}

ssize_t readStamped(int fd, char* buffer, std::size_t length, double& arrivedAt) noexcept {
    iovec into{buffer, length};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(timespec))];
    msghdr message{};
    message.msg_iov = &into;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t got = ::recvmsg(fd, &message, 0);
    if (got <= 0)
        return got;
    arrivedAt = tp::Clock::monotonic();
    const cmsghdr* const header = CMSG_FIRSTHDR(&message);
    if (header == nullptr || header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_TIMESTAMPNS)
        return got;
    timespec stamp{};
    std::memcpy(&stamp, CMSG_DATA(header), sizeof stamp);
    if (const double age = ageOf(stamp); age > 0.0 && age < kImplausible)
        arrivedAt -= age;
    return got;
}

} // namespace tivra_internal
