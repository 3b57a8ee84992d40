#include "Wakeup.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace tivra_cat {

Wakeup::Wakeup() : m_fd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (m_fd < 0)
        throw std::system_error(errno, std::generic_category(), "eventfd");
}

Wakeup::~Wakeup() {
    close(m_fd);
}

void Wakeup::notify() const noexcept {
    // Fails only when the counter is full, and then the reader is awake anyway.
    [[maybe_unused]] const int result = eventfd_write(m_fd, 1);
}

void Wakeup::clear() const noexcept {
    eventfd_t count = 0;
    [[maybe_unused]] const int result = eventfd_read(m_fd, &count);
}

} // namespace tivra_cat
