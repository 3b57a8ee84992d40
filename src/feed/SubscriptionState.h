#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include <feed/Error.h>
#include <feed/Subscription.h>
#include <feed/Update.h>

#include "feed/Attachment.h"
#include "feed/Callbacks.h"
#include "feed/MeasuredCallback.h"
#include "feed/UpdateData.h"

namespace tivra_internal {

class FeedItem;

/// One subscription of the application: its handlers, and what they have been told. The item that it is for
/// calls them.
class SubscriptionState : public std::enable_shared_from_this<SubscriptionState> {
public:
    /// Those of a group share them.
    using Handlers = std::shared_ptr<const tivra::SubscriptionHandlers>;

    /// @param imageTag  of the request for an image of its own; 0 for the one that its item was made for
    SubscriptionState(std::shared_ptr<FeedItem> item, Handlers handlers, std::int64_t imageTag);
    ~SubscriptionState();
    SubscriptionState(const SubscriptionState&) = delete;
    SubscriptionState& operator=(const SubscriptionState&) = delete;

    // --- what the application asks; @thread any ---
    [[nodiscard]] int source() const noexcept;
    [[nodiscard]] std::string_view symbol() const noexcept;
    [[nodiscard]] tivra::DataState state() const noexcept { return m_state.load(std::memory_order_acquire); }
    [[nodiscard]] tivra::SubscriptionStatistics statistics() const;
    [[nodiscard]] std::uint64_t id() const noexcept { return m_id; }
    /// When the last update came: seconds since the epoch, 0 before the first.
    [[nodiscard]] double lastUpdate() const noexcept { return m_lastUpdate.load(std::memory_order_relaxed); }
    [[nodiscard]] std::int64_t imageTag() const noexcept { return m_imageTag; }
    [[nodiscard]] const std::shared_ptr<FeedItem>& item() const noexcept { return m_item; }
    [[nodiscard]] std::optional<tivra::Error> error() const;
    void close();
    [[nodiscard]] tivra::SubscriptionView view() noexcept { return tivra::SubscriptionView(*this); }
    [[nodiscard]] tivra::Subscription handle() { return tivra::Subscription(shared_from_this()); }

    [[nodiscard]] bool isClosed() const noexcept { return state() == tivra::DataState::Closed; }
    /// Closed or refused: nothing comes for it any more.
    [[nodiscard]] bool hasEnded() const noexcept { return state() >= tivra::DataState::Refused; }
    /// Nothing is called from now on, but for what runs. False when it was closed already.
    bool markClosed() noexcept {
        return m_state.exchange(tivra::DataState::Closed) != tivra::DataState::Closed;
    }

    // --- what its item tells; in the item's turn ---
    void update(const UpdateData& data, Callbacks& callbacks, double now) {
        count(m_updates);
        m_lastUpdate.store(now, std::memory_order_relaxed);
        if (!m_handlers->onUpdate)
            return;
        const MeasuredCallback measured(data.times);
        callbacks.run("onUpdate", *this, [&] { m_handlers->onUpdate(data.update()); });
    }
    /// Nothing when it is in that state, refused or closed.
    void change(tivra::DataState to, std::string_view cause, const tivra::Error* error, Callbacks& callbacks);
    void gap(const tivra::Gap& gap, Callbacks& callbacks);
    /// It is closed, and nothing more is told to its handlers.
    void end() noexcept {
        for (Attachment* attached = m_attached.get(); attached != nullptr; attached = attached->next.get())
            attached->end();
    }
    /// What the handlers hold goes. After the item's turn, once end() has been called.
    void dropHandlers() {
        m_attached.reset();
        m_handlers.reset();
    }

    // --- what handlers keep with it; in the item's turn ---
    [[nodiscard]] static SubscriptionState& of(const tivra::SubscriptionView& view) noexcept {
        return *view.m_state;
    }
    /// Null when the owner has nothing here.
    [[nodiscard]] Attachment* attachmentOf(const void* owner) const noexcept {
        Attachment* attached = m_attached.get();
        while (attached != nullptr && attached->owner != owner)
            attached = attached->next.get();
        return attached;
    }
    Attachment& attach(std::unique_ptr<Attachment> attachment) noexcept {
        attachment->next = std::move(m_attached);
        m_attached = std::move(attachment);
        return *m_attached;
    }

private:
    /// A counter that one thread at a time writes and others read.
    template<class Count>
    static void count(std::atomic<Count>& counter) noexcept {
        counter.store(counter.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    }

    Handlers m_handlers; ///< used in the item's turn
    std::unique_ptr<Attachment> m_attached;
    std::atomic<tivra::DataState> m_state{tivra::DataState::Pending};
    std::atomic<std::uint32_t> m_gaps{0};
    std::atomic<std::uint64_t> m_updates{0};
    std::atomic<double> m_lastUpdate{0.0}; ///< seconds since the epoch, 0 before the first
    const std::shared_ptr<FeedItem> m_item;
    const std::uint64_t m_id;
    const std::int64_t m_imageTag;
    std::atomic<const tivra::Error*> m_error{nullptr}; ///< set once at most; owned
};

} // namespace tivra_internal
