#include "SignalWatch.h"

#include <poll.h>
#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

namespace tivra_cat {

namespace {

constexpr std::chrono::milliseconds kSameSignal{300};

} // namespace

SignalWatch::SignalWatch(const Wakeup& wakeup) : m_wakeup(wakeup) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    m_fd = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    if (m_fd < 0)
        throw std::system_error(errno, std::generic_category(), "signalfd");
}

SignalWatch::~SignalWatch() {
    close(m_fd);
}

void SignalWatch::wait(std::chrono::milliseconds atMost) {
    pollfd watched[] = {{m_fd, POLLIN, 0}, {m_wakeup.fd(), POLLIN, 0}};
    if (poll(watched, 2, static_cast<int>(atMost.count())) <= 0)
        return;
    m_wakeup.clear();
    signalfd_siginfo info{};
    while (read(m_fd, &info, sizeof info) == static_cast<ssize_t>(sizeof info))
        note(std::chrono::steady_clock::now());
}

void SignalWatch::note(std::chrono::steady_clock::time_point now) {
    if (m_count == 0)
        m_first = now;
    else if (now - m_first < kSameSignal)
        return;
    ++m_count;
}

} // namespace tivra_cat
