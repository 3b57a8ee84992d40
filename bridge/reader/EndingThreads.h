#pragma once

#include <tp/Mutex.h>

#include <memory>
#include <thread>
#include <vector>

namespace tivra_bus {

/// Threads that were told to end by something that ran on them, so that nobody could wait for them. The
/// process waits before it ends, or they would run into what it has destroyed.
/// @thread any
class EndingThreads {
public:
    /// Has to be called before the first of the threads begins, so that it ends after what they use.
    static EndingThreads& instance();

    /// @param running  expires as the thread ends
    void add(std::thread&& thread, std::weak_ptr<const void> running);

private:
    struct Ending {
        std::thread thread;
        std::weak_ptr<const void> running;
    };

    EndingThreads() = default;
    ~EndingThreads();

    tp::Mutex m_mutex;
    std::vector<Ending> m_threads TP_GUARDED_BY(m_mutex);
};

} // namespace tivra_bus
