#include "feed/ReadyDescriptor.h"

#include <cerrno>
#include <cstdint>

#include <sys/eventfd.h>
#include <unistd.h>

#include <feed/Error.h>

namespace tivra_internal {

ReadyDescriptor::~ReadyDescriptor() {
    if (m_descriptor >= 0)
        ::close(m_descriptor);
}

int ReadyDescriptor::get(bool isReady) {
    if (m_descriptor < 0) {
        m_descriptor = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        if (m_descriptor < 0)
            throw tivra::Error({tivra::Error::Code::System, tivra::Error::Phase::None,
                                "a descriptor couldn't be made", "see the limit of open files", "", 0, "",
                                errno});
        set(isReady);
    }
    return m_descriptor;
}

/// It holds 1 or nothing, so neither call has a reason to fail.
void ReadyDescriptor::change(bool isReady) noexcept {
    m_isReady = isReady;
    std::uint64_t count = 1;
    if (isReady)
        static_cast<void>(!::write(m_descriptor, &count, sizeof count));
    else
        static_cast<void>(!::read(m_descriptor, &count, sizeof count));
}

} // namespace tivra_internal
