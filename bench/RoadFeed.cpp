// The road through a feed, whose subscriptions find each message by its symbol.
#include "Road.h"
#include "RoadHub.h"

#include <stdexcept>

#if __has_include(<feed.h>)
#    include <algorithm>
#    include <condition_variable>
#    include <mutex>
#    include <string>
#    include <vector>

#    include <APIFactory.h>
#    include <feed.h>
#endif

namespace tivra_bench {

#if __has_include(<feed.h>)

bool libraryHasFeeds() {
    return true;
}

RoadRun runFeed(const RoadTask& task) {
    // As the other roads: a log at the usual level, which goes nowhere.
    tivra::APIFactory::getInstance()->initialize("bench", "1", false, "/dev/null");
    RoadProgress progress(task);
    std::mutex mutex;
    std::condition_variable done;
    bool isFinished = false;
    const auto onUpdate = [&](const tivra::Update& update) {
        if (update.kind() != tivra::Update::Kind::Update || !progress.count())
            return;
        const std::lock_guard<std::mutex> lock(mutex);
        isFinished = true;
        done.notify_all();
    };

    const std::vector<std::uint16_t>& ports = task.hub.ports();
    tivra::FeedOptions options;
    for (const std::uint16_t port : ports)
        options.hosts.push_back("127.0.0.1:" + std::to_string(port));
    options.user = "demo";
    options.password = "demo";
    options.parameters["COMPRESSION_BOOL"] = task.compressed ? "1" : "0";
    options.parameters["INLINE_CALLBACKS_BOOL"] = task.isInline ? "1" : "0";
    options.parameters["QUEUE_SIZE_LONG"] = std::to_string(std::max<std::size_t>(64 / ports.size(), 1));
    tivra::Feed feed = tivra::Feed::open(std::move(options));
    std::vector<tivra::Subscription> subscriptions;
    for (std::size_t i = 0; i < ports.size(); ++i)
        for (const char* symbol : kSymbols)
            subscriptions.push_back(feed.subscribe({kSource + static_cast<int>(i), symbol}, onUpdate));
    std::unique_lock<std::mutex> lock(mutex);
    if (!done.wait_for(lock, std::chrono::seconds(60), [&] { return isFinished; }))
        throw std::runtime_error("the feed received only " + std::to_string(progress.countInPass()) +
                                 " messages");
    return progress.run();
}

#else

bool libraryHasFeeds() {
    return false;
}

RoadRun runFeed(const RoadTask&) {
    throw std::logic_error("this library has no feeds");
}

#endif

} // namespace tivra_bench
