// Reports each time of which a symbol's subscription has missed something. Ends with the first one.
// usage: example_gaps HOST:PORT USER PASSWORD SOURCE SYMBOL
#include <chrono>
#include <cstdlib>
#include <future>
#include <iostream>

#include <tivra/feed.h>

int main(int argc, char** argv) {
    if (argc < 6) {
        std::cerr << "usage: " << argv[0] << " HOST:PORT USER PASSWORD SOURCE SYMBOL\n";
        return 2;
    }
    try {
        tivra::FeedOptions options;
        options.hosts = {argv[1]};
        options.user = argv[2];
        options.password = argv[3];
        tivra::Feed feed = tivra::Feed::open(std::move(options));

        std::promise<void> reported;
        bool isReported = false; // calls for one symbol come one at a time
        tivra::SubscriptionHandlers handlers;
        handlers.onState = [](const tivra::SubscriptionView&, const tivra::StateChange& change) {
            std::cout << change.cause << std::endl;
        };
        handlers.onGap = [&](const tivra::SubscriptionView& subscription, const tivra::Gap& gap) {
            const auto missed = std::chrono::duration_cast<std::chrono::milliseconds>(gap.to - gap.from);
            std::cout << subscription.symbol() << ": " << missed.count() << " ms missed" << std::endl;
            if (!isReported)
                reported.set_value();
            isReported = true;
        };
        const tivra::Subscription subscription =
            feed.subscribe({std::atoi(argv[4]), argv[5]}, std::move(handlers));
        reported.get_future().wait();
        return 0;
    } catch (const tivra::Error& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
