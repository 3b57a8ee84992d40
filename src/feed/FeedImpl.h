#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <feed/Feed.h>
#include <session/SessionEventHandler.h>
#include <tp/Mutex.h>
#include <user/PasswordHandler.h>
#include <user/UserEventHandler.h>

#include "LockOrder.h"

#include "config/HandleAccess.h"
#include "feed/FeedRegistry.h"
#include "feed/FeedSender.h"
#include "feed/HubStates.h"
#include "receive/MessageStream.h"

namespace tivra_internal {

/// What is behind a Feed: the session and its user, and what comes of their events. @thread any, unless a
/// line says otherwise
class FeedImpl final : public std::enable_shared_from_this<FeedImpl>,
                       public MessageStreams,
                       public FeedSender,
                       public tivra::SessionEventHandler,
                       public tivra::UserEventHandler,
                       public tivra::PasswordHandler {
public:
    /// @throws tivra::Error when the options can't be meant
    explicit FeedImpl(tivra::FeedOptions options);
    ~FeedImpl() override;
    FeedImpl(const FeedImpl&) = delete;
    FeedImpl& operator=(const FeedImpl&) = delete;

    /// @throws tivra::Error when it can't be opened
    [[nodiscard]] static tivra::Feed open(tivra::FeedOptions options);
    /// In two steps: configured, and then connected. Each throws tivra::Error.
    [[nodiscard]] static std::shared_ptr<FeedImpl> make(tivra::FeedOptions options);
    [[nodiscard]] static tivra::Feed bringUp(std::shared_ptr<FeedImpl> feed);
    /// Has bringUp() fail soon, unless it is done.
    void cancelStart();

    [[nodiscard]] const tivra::FeedOptions& options() const noexcept { return m_options; }
    [[nodiscard]] FeedRegistry& registry() noexcept { return *m_registry; }
    [[nodiscard]] tivra::FeedState state() const noexcept { return m_state.load(std::memory_order_acquire); }
    [[nodiscard]] std::string statusName(int status) const;
    [[nodiscard]] const HubStates& hubs() const noexcept { return m_hubs; }
    void reconnectNow() TP_EXCLUDES(m_mutex);
    /// True when it is done, false at the deadline.
    bool close(std::chrono::milliseconds deadline) TP_EXCLUDES(m_mutex);

    // --- MessageStreams ---
    [[nodiscard]] std::unique_ptr<MessageStream> open(const MetaTokenMap& dictionary, const std::string& hub,
                                                      const Queue& queue) override;

    // --- FeedSender ---
    [[nodiscard]] int64_t nextTag() override;
    [[nodiscard]] bool send(tivra::Commands command, const tivra::Instrument& instrument, int64_t tag,
                            int64_t origin) override;

    // --- the session's events; @thread first user ---
    void onSessionEvent(const tivra::SessionEvent& event) override;
    void onUserEvent(const tivra::UserEvent& event) override;

    // --- @thread login ---
    [[nodiscard]] tivra::Password onPassword(const std::string& hub) override;

private:
    void configure();
    void start();
    void endStart();
    [[nodiscard]] tivra::Error startFailure(const std::string& reason) const;
    void changeState(tivra::FeedState to, const char* cause) TP_EXCLUDES(m_mutex);
    void awaitFirstState() TP_EXCLUDES(m_mutex);
    void tell(const tivra::ConnectionEvent& event);
    void startShutDown() TP_EXCLUDES(m_mutex);
    void shutDown() TP_EXCLUDES(m_mutex);

    const tivra::FeedOptions m_options;
    const std::shared_ptr<FeedRegistry> m_registry;
    std::atomic<tivra::FeedState> m_state{tivra::FeedState::Connecting};
    std::atomic<bool> m_isCancelled{false}; ///< the start is to end
    std::atomic<bool> m_isOpen{false};      ///< what fails from now on nobody is told by open()
    HubStates m_hubs{[this](int status) { return statusName(status); },
                     [this](const tivra::ConnectionEvent& event) { tell(event); }};
    HandlePtr<tivra::UserInfo> m_user;
    HandlePtr<tivra::Session> m_session; ///< before its user

    tp::Mutex m_mutex{kLockFeed}; ///< guards what follows
    tp::ConditionVariable m_changed;
    bool m_isClosing TP_GUARDED_BY(m_mutex) = false;
    bool m_isClosed TP_GUARDED_BY(m_mutex) = false;
};

} // namespace tivra_internal
