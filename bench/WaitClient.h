#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include <tivra.h>

namespace tivra_bench {

/// An application that asks one thing at a time, and knows when each callback came. Times are of the
/// monotonic clock, in nanoseconds.
class WaitClient : public tivra::SessionEventHandler,
                   public tivra::UserEventHandler,
                   public tivra::MessageEventHandler {
public:
    explicit WaitClient(const std::vector<std::string>& hosts, bool hasManyThreads = false);
    ~WaitClient() override;
    WaitClient(const WaitClient&) = delete;
    WaitClient& operator=(const WaitClient&) = delete;

    /// False when the session was refused.
    [[nodiscard]] bool start();
    void stop() { m_session->stop(); }
    /// Sends that many snapshot requests of a symbol and waits for all answers. Returns when each came.
    [[nodiscard]] std::vector<std::int64_t> snapshots(std::size_t count, int source,
                                                      const std::string& symbol);

    /// A loss or a refusal that comes from now on is the next one.
    void forgetEvents();
    std::int64_t waitForLoss() { return waitFor(m_lossAt); }
    std::int64_t waitForRefusal() { return waitFor(m_refusalAt); }
    std::int64_t waitForEstablished() { return waitFor(m_establishedAt); }

    void onSessionEvent(const tivra::SessionEvent& event) override;
    void onUserEvent(const tivra::UserEvent& event) override;
    void onMessageEvent(const tivra::MessageEvent& event) override;

private:
    void note(std::int64_t& event);
    std::int64_t waitFor(const std::int64_t& event);

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::int64_t m_lossAt = 0;
    std::int64_t m_refusalAt = 0;
    std::int64_t m_establishedAt = 0;
    std::vector<std::int64_t> m_answers;
    std::size_t m_wanted = 0;
    bool m_hasRefusal = false;

    tivra::APIFactory* m_factory = nullptr;
    tivra::UserInfo* m_user = nullptr;
    tivra::Session* m_session = nullptr;
    tivra::Request* m_request = nullptr;
};

} // namespace tivra_bench
