#include "reader/EndingThreads.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace tivra_bus {

EndingThreads& EndingThreads::instance() {
    static EndingThreads threads;
    return threads;
}

void EndingThreads::add(std::thread&& thread, std::weak_ptr<const void> running) {
    std::vector<Ending> over; // each keeps its stack until it is joined
    {
        const tp::MutexLock lock(m_mutex);
        const auto first = std::partition(m_threads.begin(), m_threads.end(),
                                          [](const Ending& each) { return !each.running.expired(); });
        std::move(first, m_threads.end(), std::back_inserter(over));
        m_threads.erase(first, m_threads.end());
        m_threads.push_back({std::move(thread), std::move(running)});
    }
    for (Ending& each : over)
        each.thread.join();
}

EndingThreads::~EndingThreads() {
    for (Ending& each : m_threads)
        // A handler may be what ends the process.
        if (each.thread.get_id() == std::this_thread::get_id())
            each.thread.detach();
        else
            each.thread.join();
}

} // namespace tivra_bus
