#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

#include <feed/Opening.h>
#include <tp/Mutex.h>

namespace tivra_internal {

class FeedImpl;

/// What is behind an Opening: the thread that opens a feed, and the feed until somebody takes it. @thread any
class OpeningState : public std::enable_shared_from_this<OpeningState> {
public:
    explicit OpeningState(std::shared_ptr<FeedImpl> feed) : m_feed(std::move(feed)) {}
    OpeningState(const OpeningState&) = delete;
    OpeningState& operator=(const OpeningState&) = delete;

    /// @throws tivra::Error when the options can't be meant, or the system refuses a thread
    [[nodiscard]] static tivra::Opening begin(tivra::FeedOptions options);

    [[nodiscard]] tivra::Result<tivra::Feed> wait(std::optional<std::chrono::nanoseconds> timeout)
        TP_EXCLUDES(m_mutex);
    [[nodiscard]] bool isReady() TP_EXCLUDES(m_mutex);
    void then(tivra::Opening::Callback callback) TP_EXCLUDES(m_mutex);
    void cancel() TP_EXCLUDES(m_mutex);
    /// It was made by the parent of this process.
    [[nodiscard]] bool isForeign() const;

private:
    void run() TP_EXCLUDES(m_mutex);
    void hand(const tivra::Opening::Callback& callback, tivra::Result<tivra::Feed> result);

    const std::shared_ptr<FeedImpl> m_feed;
    tp::Mutex m_mutex; ///< guards what follows
    tp::ConditionVariable m_changed;
    std::optional<tivra::Result<tivra::Feed>> m_result TP_GUARDED_BY(m_mutex);
    tivra::Opening::Callback m_callback TP_GUARDED_BY(m_mutex);
    bool m_isTaken TP_GUARDED_BY(m_mutex) = false; ///< no result is to be had any more
    std::thread m_thread;                          ///< of whoever holds the Opening
};

} // namespace tivra_internal
