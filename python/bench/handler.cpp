// What a C++ handler takes for the same updates, as the measure of the Python package: it reads three fields
// of each. usage: handler HOST:PORT EVENTS SYMBOL...   prints updates and processor seconds
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include <feed.h>

int main(int argc, char** argv) {
    if (argc < 4) {
        std::cerr << "usage: " << argv[0] << " HOST:PORT EVENTS SYMBOL...\n";
        return 2;
    }
    tivra::FeedOptions options;
    options.hosts = {argv[1]};
    options.user = "demo";
    options.password = "demo";
    options.set("compression", "false");
    options.set("queue_size", "512");
    tivra::Feed feed = tivra::Feed::open(std::move(options));
    const std::uint64_t wanted = std::strtoull(argv[2], nullptr, 10);
    const std::vector<tivra::Field> fields{feed.field("BID"), feed.field("ASK"), feed.field("TRADE.PRICE")};

    std::atomic<std::uint64_t> count{0};
    double sum = 0.0;
    std::vector<tivra::Instrument> instruments;
    for (int i = 3; i < argc; ++i)
        instruments.emplace_back(100, argv[i]);
    tivra::SubscriptionHandlers handlers;
    handlers.onUpdate = [&](const tivra::Update& update) {
        for (const tivra::Field& field : fields)
            sum += update.get<double>(field).value_or(0.0);
        count.fetch_add(1, std::memory_order_relaxed);
    };
    const std::clock_t before = std::clock();
    tivra::SubscriptionGroup group = feed.subscribeAll(instruments, std::move(handlers));
    while (count.load(std::memory_order_relaxed) < wanted)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    const double seconds = static_cast<double>(std::clock() - before) / CLOCKS_PER_SEC;
    feed.close();
    std::cout << count.load() << ' ' << seconds << ' ' << sum << '\n';
    return 0;
}
