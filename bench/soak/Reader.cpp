#include "soak/Reader.h"

#include <atomic>
#include <chrono>
#include <thread>

#include "soak/Symbols.h"

namespace tivra_soak {

using namespace std::chrono_literals;

void Reader::subscribeAll(const tivra::SubscriptionHandlers& handlers, std::size_t symbols) {
    std::vector<tivra::Instrument> instruments;
    instruments.reserve(symbols);
    for (std::size_t i = 0; i < symbols; ++i)
        instruments.push_back({sourceOfHub(i % kHubs), symbolOf(i)});
    m_group = m_feed.subscribeAll(instruments, handlers);
}

namespace {

class CallbackReader : public Reader {
public:
    CallbackReader(const tivra::FeedOptions& options, std::size_t symbols, bool rests)
        : Reader(rests ? "callbacks that rest" : "callbacks", options, symbols), m_rests(rests) {
        tivra::SubscriptionHandlers handlers;
        handlers.onUpdate = [this](const tivra::Update& update) {
            const bool isImage = update.kind() != tivra::Update::Kind::Update;
            m_ledger.value({indexOf(update.symbol()), valueOf(update), isImage});
            if (++m_calls % kCallsBetweenRests == 0 && m_rests)
                std::this_thread::sleep_for(100ms);
        };
        handlers.onState = [this](const tivra::SubscriptionView& view, const tivra::StateChange& change) {
            m_ledger.state(indexOf(view.symbol()), change);
        };
        handlers.onGap = [this](const tivra::SubscriptionView& view, const tivra::Gap&) {
            m_ledger.gap(indexOf(view.symbol()));
        };
        subscribeAll(handlers, symbols);
    }
    void hurry() override { m_rests = false; }

private:
    static constexpr std::uint64_t kCallsBetweenRests = 200'000;

    std::atomic<bool> m_rests;
    std::uint64_t m_calls = 0; // one thread delivers
};

class QueueReader : public Reader {
public:
    QueueReader(const tivra::FeedOptions& options, std::size_t symbols, tivra::QueuePolicy policy)
        : Reader(policy == tivra::QueuePolicy::Latest ? "queue of the latest" : "queue that drops the oldest",
                 options, symbols)
        , m_queue(tivra::QueueOptions{policy, 20'000, std::size_t{16} << 20, false}) {
        subscribeAll(m_queue.handlers(), symbols);
        m_thread = std::thread([this] { read(); });
    }
    ~QueueReader() override {
        m_ends = true;
        m_thread.join();
    }
    void hurry() override { m_rests = false; }

private:
    void read() {
        while (!m_ends) {
            m_queue.wait(100ms);
            m_queue.poll(kHandful, [this](const tivra::QueueEvent& event) { enter(event); });
            if (m_rests)
                std::this_thread::sleep_for(100ms);
        }
    }
    void enter(const tivra::QueueEvent& event) {
        const std::size_t symbol = indexOf(event.symbol);
        const bool isChange =
            event.kind == tivra::QueueEvent::Kind::State || event.kind == tivra::QueueEvent::Kind::Gap;
        if (const std::uint64_t leftOut = event.dropped + (isChange ? 0 : event.merged); leftOut != 0)
            m_ledger.leaveOut(symbol, leftOut);
        if (event.kind == tivra::QueueEvent::Kind::State)
            m_ledger.state(symbol, *event.state);
        else if (event.kind == tivra::QueueEvent::Kind::Gap)
            m_ledger.gap(symbol);
        else
            m_ledger.value({symbol, valueOf(event), event.kind != tivra::QueueEvent::Kind::Update});
    }

    static constexpr std::size_t kHandful = 3000; ///< a little less than what comes meanwhile

    tivra::UpdateQueue m_queue;
    std::atomic<bool> m_rests{true};
    std::atomic<bool> m_ends{false};
    std::thread m_thread;
};

} // namespace

std::unique_ptr<Reader> callbackReader(const tivra::FeedOptions& options, std::size_t symbols, bool rests) {
    return std::make_unique<CallbackReader>(options, symbols, rests);
}

std::unique_ptr<Reader> queueReader(const tivra::FeedOptions& options, std::size_t symbols,
                                    tivra::QueuePolicy policy) {
    return std::make_unique<QueueReader>(options, symbols, policy);
}

} // namespace tivra_soak
