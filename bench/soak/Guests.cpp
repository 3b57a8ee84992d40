#include "soak/Guests.h"

#include <chrono>
#include <vector>

#include <feed/Feed.h>

#include "soak/Symbols.h"

namespace tivra_soak {

using namespace std::chrono_literals;

Guests::Guests(tivra::FeedOptions options, std::size_t symbols)
    : m_options(std::move(options)), m_symbols(symbols), m_thread([this] {
        while (!m_ends) {
            come();
            for (int i = 0; i < 50 && !m_ends; ++i)
                std::this_thread::sleep_for(100ms);
        }
    }) {}

Guests::~Guests() {
    m_ends = true;
    m_thread.join();
}

void Guests::come() {
    tivra::FeedOptions options = m_options;
    options.openTimeout = 5s;
    tivra::Result<tivra::Feed> opened = tivra::Feed::tryOpen(std::move(options));
    if (!opened) {
        ++m_turnedAway;
        return;
    }
    tivra::Feed& feed = *opened;
    const std::size_t first = static_cast<std::size_t>(++m_count * 97);
    std::vector<tivra::Subscription> subscriptions;
    std::vector<tivra::Answer> answers;
    for (std::size_t i = 0; i < 100; ++i) {
        const std::size_t symbol = (first + i) % m_symbols;
        const tivra::Instrument instrument{sourceOfHub(symbol % kHubs), symbolOf(symbol)};
        answers.push_back(feed.query(instrument));
        subscriptions.push_back(feed.subscribe(instrument, [](const tivra::Update&) {}));
    }
    for (tivra::Answer& answer : answers)
        static_cast<void>(answer.wait(50ms));
}

} // namespace tivra_soak
