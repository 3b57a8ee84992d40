#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include <tivra.h>

#include "tivra_testkit/SeenMessage.h"

namespace tivra_testkit {

/// An application that keeps whatever it is told, and lets a test wait for it. The callbacks run on the
/// library's threads; everything else may be called from any thread but those. Each wait returns true as soon
/// as what it waits for is there, and false when its deadline has passed without it.
class RecordingApp : public tivra::SessionEventHandler,
                     public tivra::UserEventHandler,
                     public tivra::MessageEventHandler,
                     public tivra::StatisticsEventHandler {
public:
    using Deadline = std::chrono::milliseconds;
    static constexpr Deadline LONG = std::chrono::seconds(30);

    /// Called in place of the recording of messages, on the library's threads. Set it before the session
    /// starts.
    std::function<void(const tivra::MessageEvent&)> messageHook;
    /// Called before a session event is recorded, on the library's thread. Set it before the session starts.
    std::function<void(const tivra::SessionEvent&)> sessionHook;

    void onSessionEvent(const tivra::SessionEvent& event) override;
    void onUserEvent(const tivra::UserEvent& event) override;
    void onMessageEvent(const tivra::MessageEvent& event) override;
    void onStatisticsEvent(const tivra::StatisticsEvent& event) override;

    /// Session events in order, as "ESTABLISHED", "DIC_LOADED 20131007.1", "AVAILABLE_ALLSOURCES 100" ...
    [[nodiscard]] std::vector<std::string> sessionEvents() const;
    /// User events in order, as "SUCCESS", "FAILURE -5 ERR.AUTH.LOGIN" ...
    [[nodiscard]] std::vector<std::string> userEvents() const;
    [[nodiscard]] std::vector<SeenMessage> messages() const;
    [[nodiscard]] std::vector<SeenMessage> messagesOf(std::int64_t tag) const;
    /// Throws away all events and messages recorded so far, but not the statistics.
    void forget();

    /// Waits until that event has come so many times.
    bool waitForSessionEvent(const std::string& text, std::size_t times = 1) const;
    bool waitForUserEvents(std::size_t count) const;
    /// Waits for the message that ends a request.
    bool waitForEnd(std::int64_t tag, Deadline deadline = LONG) const;
    /// Waits for a message that is accepted. The predicate must not ask the application.
    bool waitForMessage(const std::function<bool(const SeenMessage&)>& accept,
                        Deadline deadline = LONG) const;
    /// Waits until so many updates have come in all.
    bool waitForUpdates(std::size_t count) const;

    /// One row for each statistics event, indexed by tivra::StatisticsEvent::StatsTypes.
    using Statistics = std::vector<std::vector<std::uint64_t>>;
    [[nodiscard]] Statistics statistics() const;
    /// Waits until two successive statistics events report the same number of messages in and out; returns
    /// how many events there have been, 0 after the deadline.
    std::size_t waitForQuiet() const;
    /// Waits for a statistics event whose value of `type` is accepted.
    bool waitForStatistics(tivra::StatisticsEvent::StatsTypes type,
                           const std::function<bool(std::uint64_t)>& accept) const;

    /// Waits for a state that hooks make, which call notify(). The condition is asked under the mutex that
    /// guards what was recorded, so it must not ask the application.
    bool waitUntil(const std::function<bool()>& condition, Deadline deadline = LONG) const;
    /// Wakes those in waitUntil().
    void notify();

private:
    mutable std::mutex m_mutex; ///< guards all below
    mutable std::condition_variable m_changed;
    std::vector<std::string> m_sessionEvents;
    std::vector<std::string> m_userEvents;
    std::vector<SeenMessage> m_messages;
    Statistics m_statistics;
};

} // namespace tivra_testkit
