#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <variant>
#include <vector>

#include <feed/Feed.h>
#include <request/Commands.h>
#include <tp/Mutex.h>
#include <tp/Process.h>

#include "LockOrder.h"

#include "feed/Callbacks.h"
#include "feed/DeliveryHold.h"
#include "feed/FeedItem.h"
#include "feed/FeedMeasures.h"
#include "feed/FieldTable.h"
#include "feed/LaterThread.h"
#include "feed/SubscriptionState.h"

namespace tivra_internal {

class AnswerState;
class FeedSender;
class FeedStream;

/// What a feed has asked for: its items by symbol, and by tag whoever waits for an answer. Subscriptions,
/// answers and streams share it, so it may outlive the feed. @thread any
class FeedRegistry : public std::enable_shared_from_this<FeedRegistry>, public tp::OfOneProcess {
public:
    /// An image that a subscription has asked for by itself, since its item had had one.
    struct Latecomer {
        std::shared_ptr<FeedItem> item;
        std::shared_ptr<SubscriptionState> subscription;
    };
    /// Who gets what comes with a tag; nobody, maybe.
    using Target = std::variant<std::monostate, std::shared_ptr<FeedItem>, std::shared_ptr<AnswerState>,
                                std::shared_ptr<const Latecomer>>;

    /// @param sender  borrowed until close()
    FeedRegistry(FeedSender& sender, std::function<void(const tivra::Error&)> onError);
    ~FeedRegistry();
    FeedRegistry(const FeedRegistry&) = delete;
    FeedRegistry& operator=(const FeedRegistry&) = delete;

    // --- what the feed does; each throws tivra::Error ---
    [[nodiscard]] std::shared_ptr<SubscriptionState>
    subscribe(ItemKind kind, const tivra::Instrument& instrument, SubscriptionState::Handlers handlers);
    /// @param what     the name of the request, for error texts
    /// @param timeout  in seconds
    [[nodiscard]] std::shared_ptr<AnswerState> request(tivra::Commands command, const char* what,
                                                       const tivra::Instrument& instrument, double timeout);
    /// One that is about no instrument.
    [[nodiscard]] std::shared_ptr<AnswerState> request(tivra::Commands command, const char* what,
                                                       double timeout) {
        return ask(command, what, {}, timeout);
    }
    /// No request is accepted or sent from now on, and the loss of a hub is no news.
    void detach() TP_EXCLUDES(m_sendMutex);
    [[nodiscard]] bool isDetached() const noexcept { return m_isDetached.load(std::memory_order_acquire); }
    /// At a time by the monotonic clock, on the feed's own thread.
    void laterAt(double time, LaterThread::Work work) {
        static_cast<void>(m_later.runAt(time, std::move(work)));
    }
    /// Looks for slow callbacks from now on, on the feed's own thread, until close().
    void watchCallbacks(double threshold, std::function<void(const tivra::SlowCallback&)> onSlow);
    /// Ends everything that stands. The streams are gone.
    void close() TP_EXCLUDES(m_mutex);

    // --- what the session reports ---
    /// The user may not see the source any more.
    void withdraw(int source) TP_EXCLUDES(m_mutex);
    /// The user may see it again: what stood is asked for anew.
    void restore(int source) TP_EXCLUDES(m_mutex);
    /// A hub is ready, which may grant again what was withdrawn before, without a word of it.
    void askWithdrawn() TP_EXCLUDES(m_mutex);

    // --- what the streams ask ---
    [[nodiscard]] Target targetOf(int64_t tag) TP_EXCLUDES(m_mutex);
    /// Whoever has subscribed that symbol, its order book, or a pattern that it matches.
    [[nodiscard]] std::vector<std::shared_ptr<FeedItem>> findItems(int source, std::string_view symbol)
        TP_EXCLUDES(m_mutex);
    /// The hub has refused the item's request of that tag.
    void refuse(const std::shared_ptr<FeedItem>& item, int64_t tag, const tivra::Error& error)
        TP_EXCLUDES(m_mutex);
    void forgetTag(int64_t tag) TP_EXCLUDES(m_mutex);
    void addStream(FeedStream& stream) TP_EXCLUDES(m_mutex);
    void removeStream(FeedStream& stream) TP_EXCLUDES(m_mutex);
    void countUnwanted() noexcept { m_unwanted.fetch_add(1, std::memory_order_relaxed); }
    void countLate() noexcept { m_late.fetch_add(1, std::memory_order_relaxed); }
    [[nodiscard]] Callbacks& callbacks() noexcept { return m_callbacks; }
    [[nodiscard]] FeedMeasures& measures() noexcept { return m_measures; }
    [[nodiscard]] DeliveryHold& hold() noexcept { return m_hold; }
    [[nodiscard]] const std::shared_ptr<FieldTable>& fields() const noexcept { return m_fields; }

    // --- what items and answers ask ---
    [[nodiscard]] FeedItem::Subscriptions takeAdded(FeedItem& item) TP_EXCLUDES(m_mutex);
    /// These subscriptions of the item have gone; with the last one it is unsubscribed.
    void release(FeedItem& item, const FeedItem::Subscriptions& leavers) TP_EXCLUDES(m_mutex, m_sendMutex);
    /// The answer with that tag, and that time-out, has ended.
    void forgetAnswer(int64_t tag, const LaterThread::Ticket& timeOut) {
        forgetTag(tag);
        m_later.drop(timeOut);
    }
    /// What a field of that name holds, by the first hub that has one; nothing when none has.
    [[nodiscard]] std::optional<tivra::Value::Type> typeOfField(std::string_view name) TP_EXCLUDES(m_mutex);
    [[nodiscard]] tivra::FeedStatistics statistics() TP_EXCLUDES(m_mutex);

private:
    /// What an item is found by.
    struct Key {
        std::string_view symbol;
        int source;
        ItemKind kind;
        Key(std::string_view symbolText, int sourceNumber, ItemKind itemKind) noexcept
            : symbol(symbolText), source(sourceNumber), kind(itemKind) {}
        // NOLINTNEXTLINE(google-explicit-constructor): the set hashes and compares items
        Key(const std::shared_ptr<FeedItem>& item) noexcept
            : Key(item->symbol(), item->source(), item->kind()) {}
        bool operator==(const Key&) const = default;
    };
    struct KeyHash {
        using is_transparent = void;
        [[nodiscard]] std::size_t operator()(const Key& key) const noexcept {
            return std::hash<std::string_view>()(key.symbol) * 31 +
                   (static_cast<std::size_t>(key.source) << 2 | static_cast<std::size_t>(key.kind));
        }
    };
    struct KeyEqual {
        using is_transparent = void;
        [[nodiscard]] bool operator()(const Key& a, const Key& b) const noexcept { return a == b; }
    };

    [[nodiscard]] int64_t nextTag() TP_EXCLUDES(m_sendMutex);
    [[nodiscard]] std::shared_ptr<AnswerState> ask(tivra::Commands command, std::string what,
                                                   const tivra::Instrument& instrument, double timeout);
    void send(tivra::Commands command, const tivra::Instrument& instrument, int64_t tag, int64_t origin)
        TP_EXCLUDES(m_sendMutex);
    [[nodiscard]] std::shared_ptr<SubscriptionState> enter(ItemKind kind, const tivra::Instrument& instrument,
                                                           SubscriptionState::Handlers handlers, int64_t tag,
                                                           bool& isFirst) TP_EXCLUDES(m_mutex);
    [[nodiscard]] std::vector<std::shared_ptr<FeedItem>> itemsOf(int source) TP_EXCLUDES(m_mutex);
    void askAnew(const std::shared_ptr<FeedItem>& item) TP_EXCLUDES(m_mutex, m_sendMutex);
    void refuseNow(FeedItem& item, int64_t tag, const tivra::Error& error) TP_EXCLUDES(m_mutex);
    void forgetItem(FeedItem& item) TP_EXCLUDES(m_mutex);
    void removeItem(FeedItem& item) TP_REQUIRES(m_mutex);
    void unsubscribe(const std::shared_ptr<FeedItem>& item, int64_t tag) TP_EXCLUDES(m_sendMutex);
    void giveUp(SubscriptionState& subscription) TP_EXCLUDES(m_mutex);
    void lookForSlowCallbacks();
    void reportSlow(const CallbackWatch::Report& report);

    const std::shared_ptr<FieldTable> m_fields = std::make_shared<FieldTable>();
    Callbacks m_callbacks;
    FeedMeasures m_measures;
    std::function<void(const tivra::SlowCallback&)> m_onSlow; ///< of the feed's thread, once set
    DeliveryHold m_hold;
    std::atomic<std::uint64_t> m_unwanted{0};
    std::atomic<std::uint64_t> m_late{0};
    std::atomic<bool> m_isDetached{false};
    std::atomic<bool> m_hasUnasked{false}; ///< some item

    tp::Mutex m_sendMutex{kLockFeedSend};
    FeedSender* m_sender TP_GUARDED_BY(m_sendMutex); ///< null once the feed is closed

    tp::Mutex m_mutex{kLockFeedRegistry}; ///< guards what follows
    std::unordered_set<std::shared_ptr<FeedItem>, KeyHash, KeyEqual> m_items TP_GUARDED_BY(m_mutex);
    std::vector<std::shared_ptr<FeedItem>> m_patterns TP_GUARDED_BY(m_mutex); ///< those of m_items
    std::unordered_map<int64_t, Target> m_targets TP_GUARDED_BY(m_mutex);
    std::vector<FeedStream*> m_streams TP_GUARDED_BY(m_mutex);
    std::map<std::string, std::uint64_t>
        m_pastUpdates TP_GUARDED_BY(m_mutex); ///< of streams that are gone, by hub
    std::size_t m_subscriptionCount TP_GUARDED_BY(m_mutex) = 0;
    std::size_t m_requestCount TP_GUARDED_BY(m_mutex) = 0;

    LaterThread m_later;
};

} // namespace tivra_internal
