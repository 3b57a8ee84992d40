#include <tp/WakeEvent.h>

#include <tp/aboveStandardStreams.h>

#include <cstdint>
#include <sys/eventfd.h>
#include <unistd.h>

namespace tp {

WakeEvent::WakeEvent() : m_fd(aboveStandardStreams(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))) {}

WakeEvent::~WakeEvent() {
    close();
}

void WakeEvent::close() noexcept {
    if (m_fd >= 0)
        ::close(m_fd);
    m_fd = -1;
}

void WakeEvent::signal() noexcept {
    if (m_fd < 0 || m_isSignalled.exchange(true))
        return;
    const uint64_t one = 1;
    // It can't fail but by being full, and then the descriptor is readable.
    [[maybe_unused]] const ssize_t written = ::write(m_fd, &one, sizeof(one));
}

void WakeEvent::drain() noexcept {
    uint64_t count = 0;
    // In this order: a signal in between writes once too often, and none is lost.
    [[maybe_unused]] const ssize_t got = ::read(m_fd, &count, sizeof(count));
    m_isSignalled.store(false);
}

} // namespace tp
