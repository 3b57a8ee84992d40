#include "reader/EndingThreads.h"

#include <utility>

namespace tivra_bus {

EndingThreads& EndingThreads::instance() {
    static EndingThreads threads;
    return threads;
}

void EndingThreads::add(std::thread&& thread) {
    const tp::MutexLock lock(m_mutex);
    m_threads.push_back(std::move(thread));
}

EndingThreads::~EndingThreads() {
    for (std::thread& thread : m_threads)
        // A handler may be what ends the process.
        if (thread.get_id() == std::this_thread::get_id())
            thread.detach();
        else
            thread.join();
}

} // namespace tivra_bus
