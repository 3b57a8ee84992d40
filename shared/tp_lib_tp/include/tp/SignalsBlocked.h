#pragma once

#include <csignal>
#include <pthread.h>

namespace tp {

/// Blocks all signals on the calling thread for a scope. Threads that it makes meanwhile inherit that, so
/// that a host's handlers run on the host's own threads.
class SignalsBlocked {
public:
    SignalsBlocked() noexcept {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t m_before{};
};

} // namespace tp
