#include "Input.h"

#include "ExitCode.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace tivra_wire {

Input::Input(const std::string& file, std::function<void()> beforeRead)
    : m_name(file == "-" ? "standard input" : file)
    , m_isOwned(file != "-")
    , m_fd(file == "-" ? STDIN_FILENO : ::open(file.c_str(), O_RDONLY | O_CLOEXEC))
    , m_beforeRead(std::move(beforeRead)) {
    if (m_fd < 0)
        throw Failure(ExitCode::InputFailed, fmt::format("cannot open {}: {}", m_name, std::strerror(errno)));
}

Input::~Input() {
    if (m_isOwned)
        ::close(m_fd);
}

std::size_t Input::read(char* to, std::size_t size) {
    m_beforeRead();
    for (;;) {
        const ssize_t count = ::read(m_fd, to, size);
        if (count >= 0)
            return static_cast<std::size_t>(count);
        if (errno != EINTR)
            throw Failure(ExitCode::InputFailed,
                          fmt::format("cannot read {}: {}", m_name, std::strerror(errno)));
    }
}

} // namespace tivra_wire
