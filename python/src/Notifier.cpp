#include "Notifier.h"

#include <cerrno>
#include <memory>
#include <utility>

#include <sys/eventfd.h>
#include <unistd.h>

#include <nanobind/stl/vector.h>

#include <feed/Error.h>

#include "Bindings.h"

namespace nb = nanobind;

namespace tivra_python {

Notifier::Notifier() : m_descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (m_descriptor < 0)
        throw tivra::Error({tivra::Error::Code::System, tivra::Error::Phase::None,
                            "the event loop's descriptor can't be made",
                            "see whether the process has too many files open", "", 0, "", errno});
}

Notifier::~Notifier() {
    ::close(m_descriptor);
}

void Notifier::post(std::uint64_t token) {
    const tp::MutexLock lock(m_mutex);
    m_tokens.push_back(token);
    if (m_tokens.size() == 1)
        static_cast<void>(eventfd_write(m_descriptor, 1));
}

std::vector<std::uint64_t> Notifier::drain() {
    const tp::MutexLock lock(m_mutex);
    eventfd_t count = 0;
    static_cast<void>(eventfd_read(m_descriptor, &count));
    return std::exchange(m_tokens, {});
}

void bindNotifier(nb::module_& module) {
    nb::class_<NotifierHolder>(module, "Notifier", "Tells an event loop what has come to its end.")
        .def(nb::init<>())
        .def("drain", [](const NotifierHolder& self) { return self.notifier->drain(); })
        .def("fileno", [](const NotifierHolder& self) { return self.notifier->descriptor(); });
}

} // namespace tivra_python
