// A poller: the present bid of many symbols, asked for at once, each with its own end.
// usage: example_poll HOST:PORT USER PASSWORD SOURCE SYMBOL...
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <vector>

#include <tivra/feed.h>

int main(int argc, char** argv) {
    if (argc < 6) {
        std::cerr << "usage: " << argv[0] << " HOST:PORT USER PASSWORD SOURCE SYMBOL...\n";
        return 2;
    }
    try {
        tivra::FeedOptions options;
        options.hosts = {argv[1]};
        options.user = argv[2];
        options.password = argv[3];
        options.requestTimeout = std::chrono::seconds(2);
        tivra::Feed feed = tivra::Feed::open(std::move(options));
        const tivra::Field bid = feed.field("BID");

        std::vector<tivra::Instrument> instruments;
        for (int i = 5; i < argc; ++i)
            instruments.push_back({std::atoi(argv[4]), argv[i]});
        std::vector<tivra::Answer> answers = feed.queryMany(instruments);
        int failures = 0;
        for (std::size_t i = 0; i < answers.size(); ++i) {
            const tivra::Result<tivra::Snapshot> answer = answers[i].wait(std::chrono::seconds(3));
            std::cout << instruments[i].symbol << ' ';
            if (answer) {
                std::cout << answer.value().get<double>(bid).value_or(0.0) << '\n';
            } else {
                std::cout << answer.error().what() << '\n';
                ++failures;
            }
        }
        return failures == 0 ? 0 : 1;
    } catch (const tivra::Error& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
