// A poller as a coroutine: it asks for all symbols at once and awaits one answer after the other, without a
// thread that waits. Needs C++20. Ends with 1 when an answer fails.
// usage: example_coroutine HOST:PORT USER PASSWORD SOURCE SYMBOL...
#include <coroutine>
#include <cstdlib>
#include <exception>
#include <future>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include <tivra/feed.h>

namespace {

/// A coroutine that begins at once, and whose end can be waited for. Libraries have better ones.
struct Task {
    struct promise_type {
        Task get_return_object() { return {result.get_future()}; }
        std::suspend_never initial_suspend() noexcept { return {}; }
        std::suspend_never final_suspend() noexcept { return {}; }
        void return_value(int value) { result.set_value(value); }
        void unhandled_exception() { result.set_exception(std::current_exception()); }

        std::promise<int> result;
    };

    std::future<int> result;
};

/// @return how many answers have failed
Task poll(tivra::Feed& feed, std::vector<tivra::Instrument> instruments) {
    const tivra::Field bid = feed.field("BID");
    std::vector<tivra::Answer> answers = feed.queryMany(instruments);
    int failures = 0;
    for (std::size_t i = 0; i < answers.size(); ++i) {
        try {
            const tivra::Snapshot snapshot = co_await std::move(answers[i]);
            std::cout << instruments[i].symbol << ' ' << snapshot.get<double>(bid).value_or(0.0) << '\n';
        } catch (const tivra::Error& error) {
            std::cout << instruments[i].symbol << ' ' << error.what() << '\n';
            ++failures;
        }
    }
    co_return failures;
}

} // namespace

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
        tivra::Feed feed = tivra::Feed::open(std::move(options));

        std::vector<tivra::Instrument> instruments;
        for (int i = 5; i < argc; ++i)
            instruments.emplace_back(std::atoi(argv[4]), argv[i]);
        return poll(feed, std::move(instruments)).result.get() == 0 ? 0 : 1;
    } catch (const tivra::Error& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
