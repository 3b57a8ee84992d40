// A quote board: the last bid and ask of some symbols, and whether they can be relied on. Ends after a number
// of updates.
// usage: example_board HOST:PORT USER PASSWORD SOURCE UPDATES SYMBOL...
#include <atomic>
#include <cstdlib>
#include <future>
#include <iostream>
#include <mutex>
#include <string>
#include <vector>

#include <tivra/feed.h>

int main(int argc, char** argv) {
    if (argc < 7) {
        std::cerr << "usage: " << argv[0] << " HOST:PORT USER PASSWORD SOURCE UPDATES SYMBOL...\n";
        return 2;
    }
    try {
        tivra::FeedOptions options;
        options.hosts = {argv[1]};
        options.user = argv[2];
        options.password = argv[3];
        tivra::Feed feed = tivra::Feed::open(std::move(options));
        const tivra::Field bid = feed.field("BID");
        const tivra::Field ask = feed.field("ASK");

        std::mutex mutex; // of the line that is being written
        std::promise<void> enough;
        std::atomic<int> left{std::atoi(argv[5])};
        tivra::SubscriptionHandlers handlers;
        handlers.onUpdate = [&](const tivra::Update& update) {
            const std::lock_guard<std::mutex> lock(mutex);
            std::cout << update.symbol();
            if (const auto price = update.get<double>(bid))
                std::cout << " bid " << *price;
            if (const auto price = update.get<double>(ask))
                std::cout << " ask " << *price;
            std::cout << '\n';
            if (--left == 0)
                enough.set_value();
        };
        handlers.onState = [&](const tivra::SubscriptionView& subscription,
                               const tivra::StateChange& change) {
            const std::lock_guard<std::mutex> lock(mutex);
            std::cout << subscription.symbol() << ": " << change.cause << '\n';
        };
        std::vector<tivra::Subscription> subscriptions;
        for (int i = 6; i < argc; ++i)
            subscriptions.push_back(feed.subscribe({std::atoi(argv[4]), argv[i]}, handlers));
        enough.get_future().wait();
        return 0;
    } catch (const tivra::Error& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
