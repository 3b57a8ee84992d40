#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <feed/Error.h>
#include <feed/Subscription.h>
#include <feed/Update.h>

#include "feed/ItemKind.h"
#include "feed/ItemTurn.h"

namespace tivra_internal {

class FeedRegistry;
class FeedStream;
class SubscriptionState;
struct StreamMessage;

/// What the feed has subscribed at the hubs with one request: a symbol, its order book, or a pattern of
/// symbols; and the subscriptions of the application that share it. It decides what state its data is in, and
/// calls the subscriptions' handlers, one call at a time, in its turn.
class FeedItem : public std::enable_shared_from_this<FeedItem> {
public:
    using Subscriptions = std::vector<std::shared_ptr<SubscriptionState>>;

    /// @param symbol  or pattern
    /// @param tag     of the standing request
    FeedItem(std::shared_ptr<FeedRegistry> registry, ItemKind kind, int source, std::string symbol,
             int64_t tag);
    FeedItem(const FeedItem&) = delete;
    FeedItem& operator=(const FeedItem&) = delete;

    [[nodiscard]] ItemKind kind() const noexcept { return m_kind; }
    [[nodiscard]] int source() const noexcept { return m_source; }
    [[nodiscard]] std::string_view symbol() const noexcept { return m_symbol; }
    [[nodiscard]] int64_t tag() const noexcept { return m_tag.load(std::memory_order_relaxed); }
    /// Nothing comes for it any more: tables may forget it.
    [[nodiscard]] bool isGone() const noexcept { return m_isGone.load(std::memory_order_relaxed); }

    // --- what the hubs' streams bring; @thread that delivers ---
    void deliver(FeedStream& stream, const StreamMessage& incoming, tivra::Update::Kind kind)
        TP_EXCLUDES(m_turn);
    /// The image that one subscription has asked for by itself, since it came later than the others.
    void deliverTo(SubscriptionState& latecomer, FeedStream& stream, const StreamMessage& incoming)
        TP_EXCLUDES(m_turn);
    /// One of several hubs that were asked has answered, maybe without a record: it may carry some of it
    /// later.
    void answered(const FeedStream& stream) TP_EXCLUDES(m_turn);
    void finishImage(FeedStream& stream) TP_EXCLUDES(m_turn);
    /// The hub has refused it. Of a source that is withdrawn that is no news.
    void refuse(const tivra::Error& error) TP_EXCLUDES(m_turn);
    void finishImageOf(SubscriptionState& latecomer) TP_EXCLUDES(m_turn);
    void refuse(SubscriptionState& latecomer, const tivra::Error& error) TP_EXCLUDES(m_turn);
    /// @param since  what may be missing was sent later, by the monotonic clock
    void lose(const FeedStream& stream, double since) TP_EXCLUDES(m_turn);
    void recover() TP_EXCLUDES(m_turn);
    /// The stream ends, or its hub carries nothing of it any more: what is lost others bring, if anybody.
    void forget(const FeedStream& stream) TP_EXCLUDES(m_turn);
    /// The hub has sent less than there was, until now; its data goes on.
    void skip(const FeedStream& stream, const tivra::Gap& gap) TP_EXCLUDES(m_turn);

    // --- what the session reports; @thread first user ---
    /// The user may not see the source any more.
    void withdraw() TP_EXCLUDES(m_turn);
    /// The user may see it again, and it is asked for anew.
    void restore() TP_EXCLUDES(m_turn);
    [[nodiscard]] bool isWithdrawn() const noexcept { return m_isWithdrawn.load(std::memory_order_relaxed); }

    /// A hub has served it before.
    [[nodiscard]] bool wasLive() const noexcept { return m_wasLive.load(std::memory_order_relaxed); }

    /// Its request has been refused while it was withdrawn, so that none stands. True once for each time.
    [[nodiscard]] bool takeUnasked() noexcept {
        return m_isUnasked.exchange(false, std::memory_order_relaxed);
    }
    void setUnasked() noexcept { m_isUnasked.store(true, std::memory_order_relaxed); }

    // --- what the application does; @thread any ---
    /// Ends a subscription: when this returns nothing of it runs, but for the callback that this is called
    /// in. On a thread of the library it waits for nobody.
    void close(SubscriptionState& subscription) TP_EXCLUDES(m_turn);
    /// Ends all of them, with their feed.
    void closeAll() TP_EXCLUDES(m_turn);

    // --- under the registry's mutex ---
    /// The one that it was made for.
    void begin(std::shared_ptr<SubscriptionState> subscription);
    void add(std::shared_ptr<SubscriptionState> subscription);
    void setTag(int64_t tag) noexcept { m_tag.store(tag, std::memory_order_relaxed); }
    /// So many subscriptions have been dropped. True when nobody is left, and nobody has come.
    [[nodiscard]] bool remove(std::size_t count) noexcept {
        return (m_users -= static_cast<std::uint32_t>(count)) == 0;
    }
    [[nodiscard]] Subscriptions takeAdded();
    void setGone() noexcept { m_isGone.store(true, std::memory_order_relaxed); }

private:
    class Turn;
    friend class Turn;

    /// What comes before the image of a request that followed another one came by that one, which ended:
    /// there may be a gap before it, and there may be another one behind it.
    enum class Asked : std::uint8_t { AndServed, Anew, AnewButUpdated };

    struct LostHome {
        const FeedStream* stream;
        double since; ///< what it had sent before has come, by the monotonic clock
    };
    struct Several {
        std::vector<const FeedStream*> homes; ///< beside m_home
        std::vector<LostHome> lost;           ///< nothing has come of them since
    };

    void enterAdded() TP_REQUIRES(m_turn);
    void endTurn() TP_NO_THREAD_SAFETY_ANALYSIS;
    void dropClosedLater();
    [[nodiscard]] Subscriptions dropClosed() TP_REQUIRES(m_turn);
    [[nodiscard]] bool isHome(const FeedStream& stream) const TP_REQUIRES(m_turn);
    /// True when nothing of that stream had come before.
    bool addHome(const FeedStream& stream) TP_REQUIRES(m_turn);
    [[nodiscard]] bool removeHome(const FeedStream& stream) TP_REQUIRES(m_turn);
    [[nodiscard]] Several& several() TP_REQUIRES(m_turn);
    /// Whoever brings its data is there again.
    void recoverNow() TP_REQUIRES(m_turn);
    void beginImage(const FeedStream& stream) TP_REQUIRES(m_turn);
    void reopenGap(const FeedStream& stream) TP_REQUIRES(m_turn);
    void beginGap(tivra::Gap::Cause cause, double since) TP_REQUIRES(m_turn);
    void changeAll(tivra::DataState to, std::string_view cause, const tivra::Error* error = nullptr)
        TP_REQUIRES(m_turn);

    template<class Action>
    void forEachSubscription(Action&& action) TP_REQUIRES(m_turn) {
        if (m_first != nullptr)
            action(*m_first);
        if (m_others != nullptr)
            for (const std::shared_ptr<SubscriptionState>& subscription : *m_others)
                action(*subscription);
    }

    // There may be a million of these, so what few have costs a pointer.
    const std::shared_ptr<FeedRegistry> m_registry;
    const int m_source;
    const ItemKind m_kind;
    std::atomic<bool> m_isGone{false};
    std::atomic<bool> m_hasAdded{false};  ///< see m_added
    std::atomic<bool> m_hasClosed{false}; ///< some of the subscriptions have been closed
    std::atomic<bool> m_isWithdrawn{false};
    std::atomic<bool> m_wasLive{false};
    std::atomic<bool> m_isUnasked{false};
    tivra::Gap::Cause m_gapCause TP_GUARDED_BY(m_turn) = tivra::Gap::Cause::Loss; ///< of the gap that is open
    tivra::DataState m_state TP_GUARDED_BY(m_turn) = tivra::DataState::Pending;
    Asked m_asked TP_GUARDED_BY(m_turn) = Asked::AndServed;
    ItemTurn m_turn;
    /// The one subscription that most have, or null; others stand in m_others.
    std::shared_ptr<SubscriptionState> m_first TP_GUARDED_BY(m_turn);
    const FeedStream* m_home TP_GUARDED_BY(m_turn) = nullptr; ///< the stream that its data comes from
    const std::string m_symbol;
    std::atomic<int64_t> m_tag;
    double
        m_gapFrom TP_GUARDED_BY(m_turn) = 0.0; ///< since when the gap is open, by the monotonic clock; or 0
    std::unique_ptr<Subscriptions> m_others TP_GUARDED_BY(m_turn);
    std::unique_ptr<Several>
        m_several TP_GUARDED_BY(m_turn); ///< for what several hubs carry, or have carried

    std::unique_ptr<Subscriptions> m_added; ///< on their way into m_others; under the registry's mutex
    std::uint32_t m_users = 0; ///< subscriptions that haven't been dropped; under the registry's mutex
};

} // namespace tivra_internal
