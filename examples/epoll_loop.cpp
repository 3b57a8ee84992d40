// An event loop of the application's own: epoll waits for a queue's descriptor, and updates are handled on
// the thread that runs the loop. Ends after a number of updates; with 3 when nothing comes for 10 seconds.
// usage: example_epoll_loop HOST:PORT USER PASSWORD SOURCE UPDATES SYMBOL...
#include <cstdlib>
#include <iostream>
#include <vector>

#include <sys/epoll.h>
#include <unistd.h>

#include <tivra/feed.h>

namespace {

/// epoll, which would wait for an application's other descriptors too.
class Loop {
public:
    explicit Loop(int descriptor) {
        epoll_event event{};
        event.events = EPOLLIN;
        ::epoll_ctl(m_epoll, EPOLL_CTL_ADD, descriptor, &event);
    }
    ~Loop() { ::close(m_epoll); }
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;

    bool wait(int milliseconds) {
        epoll_event event{};
        return ::epoll_wait(m_epoll, &event, 1, milliseconds) == 1;
    }

private:
    const int m_epoll = ::epoll_create1(EPOLL_CLOEXEC);
};

} // namespace

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

        // However slow this program is, at most one update of each symbol waits for it: the latest.
        tivra::QueueOptions latest;
        latest.policy = tivra::QueuePolicy::Latest;
        tivra::UpdateQueue queue(latest);
        std::vector<tivra::Subscription> subscriptions;
        for (int i = 6; i < argc; ++i)
            subscriptions.push_back(feed.subscribe({std::atoi(argv[4]), argv[i]}, queue));

        Loop loop(queue.descriptor());
        int left = std::atoi(argv[5]);
        while (left > 0) {
            if (!loop.wait(10'000)) {
                std::cerr << "nothing has come for 10 seconds\n";
                return 3;
            }
            queue.poll(100, [&](const tivra::QueueEvent& event) {
                std::cout << event.symbol;
                if (event.state != nullptr)
                    std::cout << ": " << event.state->cause;
                else if (event.gap != nullptr)
                    std::cout << ": something has been missed";
                else
                    --left;
                if (const auto price = event.get<double>(bid))
                    std::cout << " bid " << *price;
                if (event.merged != 0)
                    std::cout << " (" << event.merged << " more merged)";
                std::cout << '\n';
            });
        }
        return 0;
    } catch (const tivra::Error& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
