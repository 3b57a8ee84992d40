#include "ChildProcess.h"

#include <cstdio>
#include <exception>
#include <stdexcept>

#include <sys/wait.h>
#include <unistd.h>

namespace tivra_bench {

bool writeAll(int fd, const void* data, std::size_t size) {
    const char* from = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t written = ::write(fd, from, size);
        if (written <= 0)
            return false;
        from += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

ChildProcess::ChildProcess(const std::function<void(const Ends&)>& work) {
    int tell[2];
    int control[2];
    if (pipe(tell) != 0 || pipe(control) != 0)
        throw std::runtime_error("no pipe to a process of its own");
    std::fflush(nullptr);
    m_pid = fork();
    if (m_pid == 0) {
        close(tell[0]);
        close(control[1]);
        try {
            work({tell[1], control[0]});
        } catch (const std::exception& error) {
            std::fprintf(stderr, "bench: %s\n", error.what());
            _exit(1);
        }
        _exit(0);
    }
    close(tell[1]);
    close(control[0]);
    m_hear = tell[0];
    m_control = control[1];
    if (m_pid < 0)
        throw std::runtime_error("no process of its own");
}

ChildProcess::~ChildProcess() {
    close(m_control);
    close(m_hear);
    waitpid(m_pid, nullptr, 0);
}

bool ChildProcess::read(void* data, std::size_t size) const {
    char* to = static_cast<char*>(data);
    while (size > 0) {
        const ssize_t got = ::read(m_hear, to, size);
        if (got <= 0)
            return false;
        to += got;
        size -= static_cast<std::size_t>(got);
    }
    return true;
}

void ChildProcess::write(char byte) const {
    if (!writeAll(m_control, &byte, 1))
        throw std::runtime_error("the hub's process has gone");
}

} // namespace tivra_bench
