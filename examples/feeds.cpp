// Several feeds in one process, opened at the same time: the bid of one symbol at each of several hubs, none
// of which holds up the others. Ends with 1 when one of them fails.
// usage: example_feeds USER PASSWORD SOURCE SYMBOL HOST:PORT...
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <vector>

#include <tivra/feed.h>

int main(int argc, char** argv) {
    if (argc < 6) {
        std::cerr << "usage: " << argv[0] << " USER PASSWORD SOURCE SYMBOL HOST:PORT...\n";
        return 2;
    }
    std::vector<tivra::Opening> openings;
    for (int i = 5; i < argc; ++i) {
        tivra::FeedOptions options;
        options.hosts = {argv[i]};
        options.user = argv[1];
        options.password = argv[2];
        options.openTimeout = std::chrono::seconds(5);
        openings.push_back(tivra::Feed::openAsync(std::move(options)));
    }
    int failures = 0;
    for (std::size_t i = 0; i < openings.size(); ++i) {
        std::cout << argv[5 + i] << ' ';
        try {
            tivra::Feed feed = openings[i].get();
            const tivra::Snapshot snapshot = feed.query({std::atoi(argv[3]), argv[4]}).get();
            // Each feed has fields of its own.
            std::cout << snapshot.get<double>(feed.field("BID")).value_or(0.0) << '\n';
        } catch (const tivra::Error& error) {
            std::cout << error.what() << '\n';
            ++failures;
        }
    }
    return failures == 0 ? 0 : 1;
}
