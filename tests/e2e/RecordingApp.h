#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <tivra.h>

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
#    define TIVRA_E2E_SANITIZED 1
#elif defined(__has_feature)
#    if __has_feature(thread_sanitizer) || __has_feature(address_sanitizer)
#        define TIVRA_E2E_SANITIZED 1
#    endif
#endif

/// True in builds that run many times slower, where tests move less data.
#ifdef TIVRA_E2E_SANITIZED
inline constexpr bool IS_SANITIZED = true;
#else
inline constexpr bool IS_SANITIZED = false;
#endif

/// A message as the application saw it.
struct SeenMessage {
    using Field = std::pair<int, std::string>;

    tivra::MessageEvent::Types type = tivra::MessageEvent::UPDATE;
    std::int64_t tag = 0;
    int status = 0;
    std::string statusText;
    int source = 0;
    int permission = 0;
    std::string symbol;
    int conflatable = 0;
    char partCode = '\0';
    int displayPrecision = 0;
    std::vector<Field> fields;
    std::vector<Field> alternates;
    std::thread::id thread;

    explicit SeenMessage(const tivra::MessageEvent& event);

    /// Whether it ends a request: a status or the end of an image.
    bool isEnd() const {
        return type == tivra::MessageEvent::STATUS || type == tivra::MessageEvent::IMAGE_COMPLETE;
    }
    /// The text of the first field of `token`, empty when there is none.
    std::string field(int token) const;
};

/// An application that keeps whatever it is told, and lets a test wait for it. Callbacks run on the library's
/// threads, everything else on the test's.
class RecordingApp : public tivra::SessionEventHandler,
                     public tivra::UserEventHandler,
                     public tivra::MessageEventHandler,
                     public tivra::StatisticsEventHandler {
public:
    using Deadline = std::chrono::milliseconds;
    static constexpr Deadline LONG = std::chrono::seconds(30);

    /// Called in place of the recording of messages.
    std::function<void(const tivra::MessageEvent&)> messageHook;
    /// Called before a session event is recorded.
    std::function<void(const tivra::SessionEvent&)> sessionHook;

    void onSessionEvent(const tivra::SessionEvent& event) override;
    void onUserEvent(const tivra::UserEvent& event) override;
    void onMessageEvent(const tivra::MessageEvent& event) override;
    void onStatisticsEvent(const tivra::StatisticsEvent& event) override;

    /// Session events as "ESTABLISHED", "DIC_LOADED 20131007.1", "AVAILABLE_ALLSOURCES 100" ...
    std::vector<std::string> sessionEvents() const;
    /// User events as "SUCCESS", "FAILURE -5 ERR.AUTH.LOGIN" ...
    std::vector<std::string> userEvents() const;
    std::vector<SeenMessage> messages() const;
    std::vector<SeenMessage> messagesOf(std::int64_t tag) const;
    void forget();

    bool waitForSessionEvent(const std::string& text, std::size_t times = 1) const;
    bool waitForUserEvents(std::size_t count) const;
    bool waitForEnd(std::int64_t tag) const;
    bool waitForMessage(const std::function<bool(const SeenMessage&)>& predicate) const;
    bool waitForUpdates(std::size_t count) const;
    /// One row for each statistics event, indexed by the type.
    using Statistics = std::vector<std::vector<std::uint64_t>>;
    Statistics statistics() const;
    /// Waits until two statistics events one after the other tell the same of what came in and went out, and
    /// gives how many events there have been.
    std::size_t waitForQuiet() const;
    /// Waits for a statistics event whose value of `type` is accepted.
    bool waitForStatistics(tivra::StatisticsEvent::StatsTypes type,
                           const std::function<bool(std::uint64_t)>& accept) const;
    /// Wakes those who wait for a state that hooks made. Not for use inside a condition.
    void notify();
    /// The condition is asked under the mutex that keeps what was recorded, so it must not ask the
    /// application.
    bool waitUntil(const std::function<bool()>& condition, Deadline deadline = LONG) const;

private:
    std::string describe(const tivra::SessionEvent& event) const;

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    std::vector<std::string> m_sessionEvents;
    std::vector<std::string> m_userEvents;
    std::vector<SeenMessage> m_messages;
    Statistics m_statistics;
};
