// A quote board: the last bid and ask of some symbols, and whether they can be relied on. Ends when it has
// drawn a number of rows. usage: example_board HOST:PORT USER PASSWORD SOURCE ROWS SYMBOL...
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <thread>
#include <vector>

#include <tivra/feed.h>

int main(int argc, char** argv) {
    if (argc < 7) {
        std::cerr << "usage: " << argv[0] << " HOST:PORT USER PASSWORD SOURCE ROWS SYMBOL...\n";
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

        tivra::Board board;
        std::vector<tivra::Subscription> subscriptions;
        for (int i = 6; i < argc; ++i)
            subscriptions.push_back(feed.subscribe({std::atoi(argv[4]), argv[i]}, board));

        tivra::BoardCursor seen;
        int left = std::atoi(argv[5]);
        while (left > 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50)); // as often as anybody looks
            board.changedSince(seen, [&](const tivra::BoardRow& row) {
                std::cout << row.values.symbol();
                if (const auto price = row.get<double>(bid))
                    std::cout << " bid " << *price;
                if (const auto price = row.get<double>(ask))
                    std::cout << " ask " << *price;
                if (row.state != tivra::DataState::Live)
                    std::cout << (row.isStale() ? " (stale)" : " (no data yet)");
                std::cout << '\n';
                --left;
            });
        }
        return 0;
    } catch (const tivra::Error& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
