#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <feed.h>
#include <gtest/gtest.h>
#include <tivra_testkit/StartedHub.h>

/// Lines that callbacks write, and a wait for them.
class Story {
public:
    void add(std::string line) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_lines.push_back(std::move(line));
        m_changed.notify_all();
    }
    [[nodiscard]] std::vector<std::string> lines() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_lines;
    }
    void clear() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_lines.clear();
    }
    [[nodiscard]] bool waitFor(const std::string& line) {
        return waitUntil([&] { return std::find(m_lines.begin(), m_lines.end(), line) != m_lines.end(); });
    }
    /// `condition` looks at nothing but what this has been told.
    [[nodiscard]] bool waitUntil(const std::function<bool()>& condition) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::seconds(20), condition);
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::string> m_lines;
};

inline const char* nameOf(tivra::DataState state) {
    constexpr const char* kNames[] = {"Pending", "Live", "Stale", "Recovering", "Refused", "Closed"};
    return kNames[static_cast<int>(state)];
}

inline tivra::FeedOptions optionsFor(const tivra_sim::Hub& hub) {
    tivra::FeedOptions options;
    options.hosts = {hub.hostString()};
    options.user = "demo";
    options.password = "demo";
    return options;
}

/// Writes what a subscription hears: "image 184.1", "update 2", "Live", "gap".
inline tivra::SubscriptionHandlers writeTo(Story& story, const tivra::Field& bid) {
    tivra::SubscriptionHandlers handlers;
    handlers.onUpdate = [&story, bid](const tivra::Update& update) {
        std::ostringstream line;
        line << (update.kind() == tivra::Update::Kind::Image ? "image " : "update ")
             << update.get<double>(bid).value_or(-1.0);
        story.add(line.str());
    };
    handlers.onState = [&story](const tivra::SubscriptionView&, const tivra::StateChange& change) {
        story.add(nameOf(change.to));
    };
    handlers.onGap = [&story](const tivra::SubscriptionView&, const tivra::Gap& gap) {
        story.add(gap.from <= gap.to ? "gap" : "gap that ends before it begins");
    };
    return handlers;
}

/// Whether nothing is left of a feed's subscriptions. One whose close() has met a turn of another thread is
/// dropped when that ends.
inline bool waitUntilNoneIsLeft(const tivra::Feed& feed) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (feed.statistics().subscriptions != 0) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::yield();
    }
    return true;
}

/// A feed that is open, at a hub in the test.
class FeedTest : public testing::Test {
protected:
    void pushBid(int price) {
        hub.pushRecord(tivra_sim::Record(100, "IBM").add(tivra_sim::token::BID, price));
    }

    tivra_testkit::StartedHub hub;
    Story story;
    tivra::Feed feed = tivra::Feed::open(optionsFor(hub));
    const tivra::Field bid = feed.field("BID");
};
