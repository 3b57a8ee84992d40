// The road through as many feeds as there are hubs, one for each, as a process of many parts has them.
#include "Road.h"
#include "RoadHub.h"

#include <algorithm>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include <APIFactory.h>
#include <feed.h>

namespace tivra_bench {
namespace {

/// Counts down the feeds that haven't had all of a pass yet.
class PassEnd {
public:
    void begin(std::size_t feeds) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_open = feeds;
    }
    void countDown() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (--m_open == 0)
            m_done.notify_all();
    }
    void wait() {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (!m_done.wait_for(lock, std::chrono::seconds(60), [this] { return m_open == 0; }))
            throw std::runtime_error(std::to_string(m_open) + " feeds have not received all of a pass");
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_done;
    std::size_t m_open = 0;
};

/// A feed at one hub, whose messages come on a thread of its own.
class OneFeed {
public:
    OneFeed(const RoadTask& task, std::size_t index, PassEnd& end)
        : m_quota(task.messages / task.hub.ports().size())
        , m_end(end)
        , m_feed(tivra::Feed::open(optionsOf(task, index))) {
        for (const char* symbol : kSymbols)
            m_subscriptions.push_back(
                m_feed.subscribe({kSource + static_cast<int>(index), symbol},
                                 [this](const tivra::Update& update) { take(update); }));
    }

private:
    static tivra::FeedOptions optionsOf(const RoadTask& task, std::size_t index) {
        const std::vector<std::uint16_t>& ports = task.hub.ports();
        tivra::FeedOptions options;
        options.hosts = {"127.0.0.1:" + std::to_string(ports[index])};
        options.user = "demo";
        options.password = "demo";
        options.parameters["COMPRESSION_BOOL"] = "0";
        // A ring holds a whole pass of its hub.
        options.parameters["QUEUE_SIZE_LONG"] = std::to_string(std::max<std::size_t>(64 / ports.size(), 1));
        return options;
    }
    void take(const tivra::Update& update) {
        if (update.kind() == tivra::Update::Kind::Update && ++m_count % m_quota == 0)
            m_end.countDown();
    }

    const std::size_t m_quota; ///< messages of a pass
    PassEnd& m_end;
    std::size_t m_count = 0; ///< the feed's callbacks alone
    tivra::Feed m_feed;
    std::vector<tivra::Subscription> m_subscriptions;
};

} // namespace

RoadRun runFeeds(const RoadTask& task) {
    tivra::APIFactory::getInstance()->initialize("bench", "1", false, "/dev/null");
    const std::size_t count = task.hub.ports().size();
    PassEnd end;
    end.begin(count);
    std::vector<std::unique_ptr<OneFeed>> feeds;
    for (std::size_t i = 0; i < count; ++i)
        feeds.push_back(std::make_unique<OneFeed>(task, i, end));
    double cpu = 0.0;
    for (std::size_t pass = 0; pass < task.passes; ++pass) {
        if (pass > 0) {
            end.begin(count);
            cpu = processorSeconds();
            task.hub.playAgain();
        }
        end.wait();
    }
    RoadRun run;
    run.cpuSeconds = processorSeconds() - cpu;
    return run;
}

} // namespace tivra_bench
