#include "Signals.h"

#include <poll.h>
#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

namespace tivra_top {

Signals::Signals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGWINCH})
        sigaddset(&signals, signal);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    m_fd = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    if (m_fd < 0)
        throw std::system_error(errno, std::generic_category(), "signalfd");
}

Signals::~Signals() {
    close(m_fd);
}

bool Signals::wait(int fd, std::chrono::milliseconds atMost) {
    pollfd watched[] = {{m_fd, POLLIN, 0}, {fd, POLLIN, 0}};
    if (poll(watched, 2, static_cast<int>(atMost.count())) <= 0)
        return false;
    signalfd_siginfo info{};
    while (read(m_fd, &info, sizeof info) == static_cast<ssize_t>(sizeof info))
        m_hasEnd = m_hasEnd || info.ssi_signo != SIGWINCH;
    return watched[1].revents != 0;
}

} // namespace tivra_top
