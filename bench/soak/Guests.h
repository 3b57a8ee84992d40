#pragma once

#include <atomic>
#include <cstdint>
#include <thread>

#include <feed/FeedOptions.h>

namespace tivra_soak {

/// Feeds that come and go, one after another: each asks and subscribes a little and leaves, whatever the
/// weather lets it have.
class Guests {
public:
    Guests(tivra::FeedOptions options, std::size_t symbols);
    ~Guests();
    Guests(const Guests&) = delete;
    Guests& operator=(const Guests&) = delete;

    [[nodiscard]] std::uint64_t count() const { return m_count; }
    /// Feeds that couldn't be opened, which storms explain.
    [[nodiscard]] std::uint64_t turnedAway() const { return m_turnedAway; }

private:
    void come();

    const tivra::FeedOptions m_options;
    const std::size_t m_symbols;
    std::atomic<std::uint64_t> m_count{0};
    std::atomic<std::uint64_t> m_turnedAway{0};
    std::atomic<bool> m_ends{false};
    std::thread m_thread;
};

} // namespace tivra_soak
