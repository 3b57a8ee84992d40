#include "feed/FeedItem.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include <tp/Clock.h>
#include <tp/Thread.h>

#include "feed/ClockTime.h"
#include "feed/FeedRegistry.h"
#include "feed/FeedStream.h"
#include "feed/SubscriptionState.h"
#include "feed/UpdateData.h"

namespace tivra_internal {
namespace {

using tivra::DataState;
using tivra::Update;

constexpr const char* kLost = "the connection to the hub is lost";
constexpr const char* kOthersLost = "another hub that carries some of it is lost still";
constexpr const char* kBack = "the hub is back";
constexpr const char* kComplete = "the image is complete";
constexpr const char* kWithdrawn = "the user may not see the source any more";
constexpr const char* kRestored = "the user may see the source again";
constexpr const char* kRefused = "the hub has refused it";
constexpr double kLookAgain = 0.01; ///< in seconds

/// The item whose handlers this thread is calling.
thread_local const FeedItem* t_current = nullptr;

} // namespace

/// The scope in which one thread may call the item's handlers. It begins with who has come, and ends with who
/// has gone.
class TP_SCOPED_CAPABILITY FeedItem::Turn {
public:
    explicit Turn(FeedItem& item) TP_ACQUIRE(item.m_turn) : m_item(item), m_outer(t_current) {
        item.m_turn.lock();
        begin();
    }
    /// One that has been locked.
    Turn(FeedItem& item, std::adopt_lock_t) TP_REQUIRES(item.m_turn) : m_item(item), m_outer(t_current) {
        begin();
    }
    ~Turn() TP_RELEASE() {
        t_current = m_outer;
        m_item.endTurn();
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

private:
    void begin() TP_NO_THREAD_SAFETY_ANALYSIS {
        t_current = &m_item;
        m_item.enterAdded();
    }

    FeedItem& m_item;
    const FeedItem* const m_outer;
};

FeedItem::FeedItem(std::shared_ptr<FeedRegistry> registry, ItemKind kind, int source, std::string symbol,
                   int64_t tag)
    : m_registry(std::move(registry))
    , m_source(source)
    , m_kind(kind)
    , m_symbol(std::move(symbol))
    , m_tag(tag) {}

void FeedItem::deliver(FeedStream& stream, const StreamMessage& incoming, Update::Kind kind) {
    const Turn turn(*this);
    const bool isNewHome = m_home != &stream && addHome(stream);
    // An update of the next connection, or by a request that is about to end, may come before the image.
    if (isNewHome || m_asked == Asked::Anew ||
        (kind == Update::Kind::Image && m_state != DataState::Pending && m_state != DataState::Live))
        beginImage(stream);
    UpdateData data{incoming.message, stream.fields(), kind, nullptr, &stream.times(), incoming.body};
    // A callback may subscribe the same symbol, which enters the list when the next turn begins.
    forEachSubscription([&](SubscriptionState& subscription) {
        data.subscription = &subscription;
        if (!subscription.hasEnded())
            subscription.update(data, m_registry->callbacks(), stream.now());
    });
    if (m_asked == Asked::AndServed)
        return;
    if (kind == Update::Kind::Image) {
        m_asked = Asked::AndServed;
        return;
    }
    m_asked = Asked::AnewButUpdated;
    beginGap(tivra::Gap::Cause::Withdrawal, tp::Clock::monotonic());
}

void FeedItem::deliverTo(SubscriptionState& latecomer, FeedStream& stream, const StreamMessage& incoming) {
    const Turn turn(*this);
    if (!latecomer.hasEnded())
        latecomer.update({incoming.message, stream.fields(), Update::Kind::Image, &latecomer, &stream.times(),
                          incoming.body},
                         m_registry->callbacks(), stream.now());
}

void FeedItem::answered(const FeedStream& stream) {
    const Turn turn(*this);
    if (addHome(stream))
        beginImage(stream);
}

/// Of several hubs the last one to answer may be one that has nothing of it.
void FeedItem::finishImage(FeedStream& stream) {
    const Turn turn(*this);
    if (m_home == nullptr && (m_several == nullptr || m_several->homes.empty()))
        addHome(stream);
    beginImage(stream);
    m_asked = Asked::AndServed;
    m_isWithdrawn.store(false, std::memory_order_relaxed);
    m_wasLive.store(true, std::memory_order_relaxed);
    if (m_several != nullptr && !m_several->lost.empty()) {
        m_state = DataState::Stale;
        changeAll(DataState::Stale, kOthersLost);
        return;
    }
    m_state = DataState::Live;
    changeAll(DataState::Live, kComplete);
}

void FeedItem::refuse(const tivra::Error& error) {
    const Turn turn(*this);
    if (isWithdrawn())
        return;   // it is asked for once more when the source comes back
    recoverNow(); // it has answered
    m_state = DataState::Refused;
    changeAll(DataState::Refused, kRefused, &error);
}

void FeedItem::finishImageOf(SubscriptionState& latecomer) {
    const Turn turn(*this);
    // Before that its data is as old as that of the others.
    if (m_state == DataState::Live)
        latecomer.change(DataState::Live, kComplete, nullptr, m_registry->callbacks());
}

void FeedItem::refuse(SubscriptionState& latecomer, const tivra::Error& error) {
    const Turn turn(*this);
    // An image of its item, after a loss, has served it meanwhile, or will: then it needs none of its own.
    if (latecomer.state() == DataState::Pending)
        latecomer.change(DataState::Refused, kRefused, &error, m_registry->callbacks());
}

void FeedItem::lose(const FeedStream& stream, double since) {
    const Turn turn(*this);
    if (!removeHome(stream) || m_state == DataState::Refused)
        return;
    // Of several hubs each has to come back by itself, also one that is lost before the others have answered.
    if (m_several != nullptr || m_kind != ItemKind::Symbol)
        several().lost.push_back({&stream, since});
    if (m_state == DataState::Pending)
        return;
    beginGap(tivra::Gap::Cause::Loss, since);
    m_state = DataState::Stale;
    changeAll(DataState::Stale, kLost);
}

void FeedItem::forget(const FeedStream& stream) {
    const Turn turn(*this);
    reopenGap(stream);
}

void FeedItem::recover() {
    const Turn turn(*this);
    recoverNow();
}

void FeedItem::recoverNow() {
    if (m_state != DataState::Stale)
        return;
    m_state = DataState::Recovering;
    changeAll(DataState::Recovering, kBack);
}

void FeedItem::withdraw() {
    const Turn turn(*this);
    if (m_state == DataState::Pending || m_state == DataState::Refused)
        return; // the answer will say it, or has said it
    m_isWithdrawn.store(true, std::memory_order_relaxed);
    beginGap(tivra::Gap::Cause::Withdrawal, tp::Clock::monotonic());
    m_state = DataState::Stale;
    changeAll(DataState::Stale, kWithdrawn);
}

void FeedItem::restore() {
    const Turn turn(*this);
    if (!m_isWithdrawn.exchange(false, std::memory_order_relaxed))
        return;
    m_asked = Asked::Anew;
    // On another connection an update by the former request may have ended the gap before.
    beginGap(tivra::Gap::Cause::Withdrawal, tp::Clock::monotonic());
    if (m_state != DataState::Stale)
        return;
    m_state = DataState::Recovering;
    changeAll(DataState::Recovering, kRestored);
}

void FeedItem::skip(const FeedStream& stream, const tivra::Gap& gap) {
    const Turn turn(*this);
    // Also while its image comes, or another hub is lost: nothing else makes up for it.
    if (!isHome(stream))
        return;
    forEachSubscription([&](SubscriptionState& subscription) {
        if (!subscription.hasEnded())
            subscription.gap(gap, m_registry->callbacks());
    });
}

void FeedItem::beginGap(tivra::Gap::Cause cause, double since) {
    // A loss that is noticed later may have begun earlier.
    if (m_gapFrom != 0.0) {
        m_gapFrom = std::min(m_gapFrom, since);
        return;
    }
    m_gapFrom = since;
    m_gapCause = cause;
}

/// The image of another hub may have closed it that this one had a part in.
void FeedItem::reopenGap(const FeedStream& stream) {
    if (m_several == nullptr)
        return;
    std::vector<LostHome>& lost = m_several->lost;
    const auto found =
        std::find_if(lost.begin(), lost.end(), [&](const LostHome& one) { return one.stream == &stream; });
    if (found == lost.end())
        return;
    beginGap(tivra::Gap::Cause::Loss, found->since);
    lost.erase(found);
}

/// What comes now follows a gap, if there was one.
void FeedItem::beginImage(const FeedStream& stream) {
    recoverNow();
    reopenGap(stream);
    if (m_gapFrom == 0.0)
        return;
    const tivra::Gap gap{m_gapCause, toTimePoint(onTheWall(m_gapFrom)), wallTime(), std::nullopt,
                         std::nullopt};
    m_gapFrom = 0.0;
    forEachSubscription([&](SubscriptionState& subscription) {
        if (subscription.state() == DataState::Recovering)
            subscription.gap(gap, m_registry->callbacks());
    });
}

void FeedItem::changeAll(DataState to, std::string_view cause, const tivra::Error* error) {
    forEachSubscription([&](SubscriptionState& subscription) {
        subscription.change(to, cause, error, m_registry->callbacks());
    });
}

bool FeedItem::isHome(const FeedStream& stream) const {
    return m_home == &stream ||
           (m_several != nullptr &&
            std::find(m_several->homes.begin(), m_several->homes.end(), &stream) != m_several->homes.end());
}

bool FeedItem::addHome(const FeedStream& stream) {
    if (isHome(stream))
        return false;
    if (m_home == nullptr) {
        m_home = &stream;
        return true;
    }
    several().homes.push_back(&stream);
    return true;
}

FeedItem::Several& FeedItem::several() {
    if (m_several == nullptr)
        m_several = std::make_unique<Several>();
    return *m_several;
}

bool FeedItem::removeHome(const FeedStream& stream) {
    if (m_home == &stream) {
        m_home = nullptr;
        return true;
    }
    return m_several != nullptr && std::erase(m_several->homes, &stream) != 0;
}

void FeedItem::close(SubscriptionState& subscription) {
    if (m_registry->process().isForeign())
        return; // a thread that isn't in this process may have the turn
    static_cast<void>(subscription.markClosed());
    m_hasClosed.store(true, std::memory_order_release);
    if (t_current == this)
        return; // the end of the turn sees to it
    if (!tp::onLibraryThread()) {
        const Turn turn(*this);
        return;
    }
    // Two callbacks that close each other's subscriptions must not wait for each other: whoever has the turn
    // sees to it at its end.
    if (m_turn.tryLock())
        const Turn turn(*this, std::adopt_lock);
    else
        dropClosedLater();
}

void FeedItem::closeAll() {
    const Turn turn(*this);
    forEachSubscription(
        [](SubscriptionState& subscription) { static_cast<void>(subscription.markClosed()); });
    m_hasClosed.store(true, std::memory_order_release);
}

/// What the handlers hold goes after the turn, since it may close other subscriptions.
void FeedItem::endTurn() {
    if (!m_hasClosed.load(std::memory_order_acquire)) {
        m_turn.unlock();
        return;
    }
    const std::shared_ptr<FeedItem> keep = shared_from_this();
    const Subscriptions leavers = dropClosed();
    for (const std::shared_ptr<SubscriptionState>& leaver : leavers)
        leaver->end();
    m_turn.unlock();
    for (const std::shared_ptr<SubscriptionState>& leaver : leavers)
        leaver->dropHandlers();
    if (!leavers.empty())
        m_registry->release(*this, leavers);
}

/// Should whoever has the turn have looked just before. The feed's thread doesn't wait for a callback either,
/// for it ends requests at their time.
void FeedItem::dropClosedLater() {
    m_registry->laterAt(tp::Clock::monotonic() + kLookAgain, [item = shared_from_this()] {
        if (!item->m_hasClosed.load(std::memory_order_acquire))
            return;
        if (item->m_turn.tryLock())
            const Turn turn(*item, std::adopt_lock);
        else
            item->dropClosedLater();
    });
}

/// Nobody else has seen the item yet.
void FeedItem::begin(std::shared_ptr<SubscriptionState> subscription) TP_NO_THREAD_SAFETY_ANALYSIS {
    m_users = 1;
    m_first = std::move(subscription);
}

void FeedItem::add(std::shared_ptr<SubscriptionState> subscription) {
    ++m_users;
    if (m_added == nullptr)
        m_added = std::make_unique<Subscriptions>();
    m_added->push_back(std::move(subscription));
    m_hasAdded.store(true, std::memory_order_release);
}

FeedItem::Subscriptions FeedItem::takeAdded() {
    m_hasAdded.store(false, std::memory_order_relaxed);
    const std::unique_ptr<Subscriptions> added = std::move(m_added);
    return added != nullptr ? std::move(*added) : Subscriptions();
}

void FeedItem::enterAdded() {
    if (!m_hasAdded.load(std::memory_order_acquire))
        return;
    for (std::shared_ptr<SubscriptionState>& subscription : m_registry->takeAdded(*this)) {
        if (m_others == nullptr)
            m_others = std::make_unique<Subscriptions>();
        m_others->push_back(std::move(subscription));
    }
}

FeedItem::Subscriptions FeedItem::dropClosed() {
    // Before the look, so that what is closed during it is seen next time.
    m_hasClosed.store(false, std::memory_order_seq_cst);
    enterAdded(); // one that a callback has made and ended
    Subscriptions leavers;
    if (m_first != nullptr && m_first->isClosed())
        leavers.push_back(std::move(m_first));
    if (m_others == nullptr)
        return leavers;
    const auto isOpen = [](const std::shared_ptr<SubscriptionState>& one) { return !one->isClosed(); };
    const auto firstClosed = std::stable_partition(m_others->begin(), m_others->end(), isOpen);
    std::move(firstClosed, m_others->end(), std::back_inserter(leavers));
    m_others->erase(firstClosed, m_others->end());
    return leavers;
}

} // namespace tivra_internal
