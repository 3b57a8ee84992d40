#pragma once

#include <atomic>

#include <session/SessionConfig.h>

namespace tivra_internal {

/// The settings of a session as a whole. The application writes them, every thread of the session may read
/// them.
class SessionConfigImpl {
public:
    SessionConfigImpl() = default;
    SessionConfigImpl(const SessionConfigImpl&) = delete;
    SessionConfigImpl& operator=(const SessionConfigImpl&) = delete;

    void set(tivra::SessionConfig::Parameters parameter, long value);
    void set(tivra::SessionConfig::Parameters parameter, bool value);

    [[nodiscard]] bool isMultithreaded() const { return multithreaded; }
    /// 0 means no limit.
    [[nodiscard]] long getMaxUserThreads() const { return maxUserThreads; }
    /// 0 means no limit.
    [[nodiscard]] long getMaxHubThreads() const { return maxHubThreads; }
    [[nodiscard]] long getMaxRequestQueueSize() const { return maxRequestQueueSize; }
    [[nodiscard]] bool isWatchlistOn() const { return watchlist; }
    [[nodiscard]] long getMaxWatchlistSize() const { return maxWatchlistSize; }
    /// Percent.
    [[nodiscard]] long getQueueThreshold() const { return queueThreshold; }

private:
    std::atomic<long>* longField(tivra::SessionConfig::Parameters parameter);

    std::atomic<bool> multithreaded{false};
    std::atomic<long> maxUserThreads{0};
    std::atomic<long> maxHubThreads{0};
    std::atomic<long> maxRequestQueueSize{100000};
    std::atomic<bool> watchlist{false};
    std::atomic<long> maxWatchlistSize{10000000};
    /// The application has chosen a queue size, so WATCHLIST_BOOL leaves it alone.
    std::atomic<bool> maxReqQSizeSet{false};
    std::atomic<long> queueThreshold{70};
};

} // namespace tivra_internal
