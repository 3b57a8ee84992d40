#pragma once

#include <atomic>

#include <session/SessionConfig.h>
#include <tp/Process.h>

#include "config/ParameterTable.h"

namespace tivra_internal {

/// The settings of a session as a whole. The application writes them, every thread of the session may read
/// them.
class SessionConfigImpl : public tp::OfOneProcess {
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
    [[nodiscard]] bool isEndingLostRequests() const { return m_endLostRequests; }
    [[nodiscard]] bool isDeliveringInline() const { return m_inlineCallbacks; }
    [[nodiscard]] bool isDecodingLazily() const { return m_lazyValues; }
    [[nodiscard]] bool isHoldingReads() const { return m_holdReads; }
    [[nodiscard]] bool isStampingArrivals() const { return m_kernelTimestamps; }
    /// Percent.
    [[nodiscard]] long getQueueThreshold() const { return queueThreshold; }

private:
    std::atomic<long>* longField(tivra::SessionConfig::Parameters parameter);

    std::atomic<bool> multithreaded{isOnByDefault(tivra::SessionConfig::MULTITHREADED_API_CONNECTIONS_BOOL)};
    std::atomic<long> maxUserThreads{defaultOf(tivra::SessionConfig::MAX_USER_THREADS_LONG)};
    std::atomic<long> maxHubThreads{defaultOf(tivra::SessionConfig::MAX_HUB_THREADS_LONG)};
    std::atomic<long> maxRequestQueueSize{defaultOf(tivra::SessionConfig::MAX_REQUEST_QUEUE_SIZE_LONG)};
    std::atomic<bool> watchlist{isOnByDefault(tivra::SessionConfig::WATCHLIST_BOOL)};
    std::atomic<long> maxWatchlistSize{defaultOf(tivra::SessionConfig::MAX_WATCHLIST_SIZE_LONG)};
    /// The application has chosen a queue size, so WATCHLIST_BOOL leaves it alone.
    std::atomic<bool> maxReqQSizeSet{false};
    std::atomic<bool> m_endLostRequests{isOnByDefault(tivra::SessionConfig::END_LOST_REQUESTS_BOOL)};
    std::atomic<bool> m_inlineCallbacks{isOnByDefault(tivra::SessionConfig::INLINE_CALLBACKS_BOOL)};
    std::atomic<bool> m_lazyValues{isOnByDefault(tivra::SessionConfig::LAZY_VALUES_BOOL)};
    std::atomic<bool> m_holdReads{isOnByDefault(tivra::SessionConfig::HOLD_READS_BOOL)};
    std::atomic<bool> m_kernelTimestamps{isOnByDefault(tivra::SessionConfig::KERNEL_TIMESTAMPS_BOOL)};
    std::atomic<long> queueThreshold{defaultOf(tivra::SessionConfig::QUEUE_DEPTH_THRESHOLD_PERCENT_LONG)};
};

} // namespace tivra_internal
