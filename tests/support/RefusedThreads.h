#pragma once

#include <cstddef>
#include <pthread.h>

/// Lets the system refuse every new thread of the process for as long as it lives: no address space has room
/// for a stack of the size that is asked for.
class RefusedThreads {
public:
    RefusedThreads() {
        pthread_getattr_default_np(&m_before);
        pthread_attr_t huge;
        pthread_getattr_default_np(&huge);
        pthread_attr_setstacksize(&huge, std::size_t{1} << 60U);
        pthread_setattr_default_np(&huge);
        pthread_attr_destroy(&huge);
    }
    ~RefusedThreads() {
        pthread_setattr_default_np(&m_before);
        pthread_attr_destroy(&m_before);
    }
    RefusedThreads(const RefusedThreads&) = delete;
    RefusedThreads& operator=(const RefusedThreads&) = delete;

private:
    pthread_attr_t m_before{};
};
