#include "FeedLoad.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <time.h>

#include <feed.h>

#include "ChildProcess.h"
#include "GroupProcess.h"
#include "HeapSize.h"

namespace tivra_bench {
namespace {

double now(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// A feed at a group of hubs, and a count of what is live.
class Client {
public:
    explicit Client(const GroupProcess& group) {
        tivra::FeedOptions options;
        options.hosts = {group.hostString()};
        options.user = "demo";
        options.password = "demo";
        options.parameters = {{"COMPRESSION_BOOL", "0"}, {"MULTITHREADED_API_CONNECTIONS_BOOL", "1"}};
        m_feed.emplace(tivra::Feed::open(std::move(options)));
    }

    FeedRun run(std::size_t subscriptions) {
        FeedRun run;
        tivra::SubscriptionHandlers handlers;
        handlers.onUpdate = [](const tivra::Update&) {};
        handlers.onState = [this](const tivra::SubscriptionView&, const tivra::StateChange& change) {
            count(change.to);
        };
        // Every hub has answered once, so that all threads, rings and routes are there.
        tivra::SubscriptionGroup all = m_feed->makeGroup(std::move(handlers));
        add(all, 0, kGroupHubs);
        wait(kGroupHubs);

        const double heap = heapBytes();
        const double resident = residentBytes();
        const double wall = now(CLOCK_MONOTONIC);
        const double cpu = now(CLOCK_PROCESS_CPUTIME_ID);
        run.addCpu = add(all, kGroupHubs, subscriptions);
        wait(kGroupHubs + subscriptions);
        run.liveSeconds = now(CLOCK_MONOTONIC) - wall;
        run.liveCpu = now(CLOCK_PROCESS_CPUTIME_ID) - cpu;
        run.heapBytes = heapBytes() - heap;
        run.residentBytes = residentBytes() - resident;
        return run;
    }

private:
    static double add(tivra::SubscriptionGroup& all, std::size_t first, std::size_t count) {
        std::vector<tivra::Instrument> instruments;
        instruments.reserve(count);
        for (std::size_t i = first; i < first + count; ++i)
            instruments.emplace_back(kFirstSource + static_cast<int>(i % kGroupHubs), symbolOf(i));
        const double before = now(CLOCK_THREAD_CPUTIME_ID);
        all.add(instruments);
        return now(CLOCK_THREAD_CPUTIME_ID) - before;
    }

    void count(tivra::DataState state) {
        if (state == tivra::DataState::Live)
            ++m_live;
        else
            ++m_others;
        if (m_live + m_others >= m_wanted) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_complete.notify_all();
        }
    }

    void wait(std::size_t count) {
        m_wanted = count;
        std::unique_lock<std::mutex> lock(m_mutex);
        const bool complete = m_complete.wait_for(lock, std::chrono::seconds(90),
                                                  [this] { return m_live + m_others >= m_wanted; });
        if (!complete || m_others > 0)
            throw std::runtime_error(std::to_string(m_live) + " of " + std::to_string(count) +
                                     " subscriptions are live");
    }

    std::atomic<std::size_t> m_live{0};
    std::atomic<std::size_t> m_others{0};
    std::atomic<std::size_t> m_wanted{0};
    std::mutex m_mutex;
    std::condition_variable m_complete;
    std::optional<tivra::Feed> m_feed; ///< before what its callbacks use
};

} // namespace

FeedRun runSubscriptions(const GroupProcess& group, std::size_t subscriptions) {
    const ChildProcess process([&](const ChildProcess::Ends& parent) {
        const FeedRun run = Client(group).run(subscriptions);
        if (!writeAll(parent.tell, &run, sizeof run))
            throw std::runtime_error("nobody waits for the run");
    });
    FeedRun run;
    if (!process.read(&run, sizeof run))
        throw std::runtime_error("a run did not come to its end");
    return run;
}

} // namespace tivra_bench
