#include "feed/FeedRegistry.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include <tp/Clock.h>
#include <tp/eprintf.h>

#include "feed/AnswerState.h"
#include "feed/FeedSender.h"
#include "feed/FeedStream.h"
#include "feed/InstrumentCheck.h"
#include "feed/SubscriptionState.h"
#include "feed/Wildcard.h"

namespace tivra_internal {
namespace {

using tivra::Error;
using tivra::Instrument;

/// The least time between two looks for slow callbacks, in seconds.
constexpr double kShortestLook = 0.001;
/// How long a full queue gets, in seconds, before what nobody waits for is sent again.
constexpr double kSendAgain = 0.1;
constexpr double kUntilWithdrawalIsKnown = 2.0;

[[nodiscard]] Error requestError(Error::Code code, std::string cause, std::string advice = {}) {
    return Error({code, Error::Phase::Request, std::move(cause), std::move(advice), "", 0, "", 0});
}

[[nodiscard]] Error closedError() {
    return requestError(Error::Code::Closed, "the feed is closed");
}

[[nodiscard]] Error queueFullError() {
    return requestError(Error::Code::QueueFull, "no more requests can be queued",
                        "wait for answers, or raise MAX_REQUEST_QUEUE_SIZE_LONG or MAX_WATCHLIST_SIZE_LONG");
}

[[nodiscard]] std::string describe(const char* what, const Instrument& instrument) {
    return std::string(what) + " of " + instrument.symbol + " at source " + std::to_string(instrument.source);
}

void addUpdates(tivra::FeedStatistics& figures, const std::string& hub, std::uint64_t updates) {
    figures.updates += updates;
    for (tivra::HubStatistics& entry : figures.hubs)
        if (entry.hub == hub)
            entry.updates += updates;
}

/// Two connections to one hub have a queue each.
void addQueue(tivra::FeedStatistics& figures, const std::string& hub, double fill) {
    for (tivra::HubStatistics& entry : figures.hubs)
        if (entry.hub == hub)
            entry.queueFill = std::max(entry.queueFill, fill);
}

} // namespace

FeedRegistry::FeedRegistry(FeedSender& sender, std::function<void(const Error&)> onError)
    : m_callbacks(std::move(onError)), m_sender(&sender) {}

FeedRegistry::~FeedRegistry() = default;

int64_t FeedRegistry::nextTag() {
    const tp::MutexLock lock(m_sendMutex);
    if (m_sender == nullptr)
        throw closedError();
    return m_sender->nextTag();
}

void FeedRegistry::send(tivra::Commands command, const Instrument& instrument, int64_t tag, int64_t origin) {
    const tp::MutexLock lock(m_sendMutex);
    if (m_sender == nullptr)
        throw closedError();
    if (!m_sender->send(command, instrument, tag, origin))
        throw queueFullError();
}

std::shared_ptr<SubscriptionState> FeedRegistry::subscribe(ItemKind kind, const Instrument& instrument,
                                                           SubscriptionState::Handlers handlers) {
    checkInstrument(instrument, "subscribe");
    const int64_t tag = nextTag();
    bool isFirst = false;
    std::shared_ptr<SubscriptionState> subscription =
        enter(kind, instrument, std::move(handlers), tag, isFirst);
    try {
        send(isFirst ? subscribeCommand(kind) : queryCommand(kind), instrument, tag, 0);
    } catch (...) {
        if (isFirst)
            giveUp(*subscription);
        subscription->close();
        throw;
    }
    return subscription;
}

/// The item's request could not be sent. Others may have joined it meanwhile, who are told on the feed's
/// thread: this one may be in a callback of another item.
void FeedRegistry::giveUp(SubscriptionState& subscription) {
    if (isDetached())
        return; // close() ends them all
    forgetItem(*subscription.item());
    static_cast<void>(subscription.markClosed());
    laterAt(0.0, [item = subscription.item()] { item->refuse(queueFullError()); });
}

/// The symbol's item gets the subscription. The first one has the item made; others share it, and get an
/// image of their own.
std::shared_ptr<SubscriptionState> FeedRegistry::enter(ItemKind kind, const Instrument& instrument,
                                                       SubscriptionState::Handlers handlers, int64_t tag,
                                                       bool& isFirst) {
    const tp::MutexLock lock(m_mutex);
    ++m_subscriptionCount;
    const auto found = m_items.find(Key(instrument.symbol, instrument.source, kind));
    isFirst = found == m_items.end();
    if (!isFirst) {
        const std::shared_ptr<FeedItem>& item = *found;
        auto latecomer = std::make_shared<SubscriptionState>(item, std::move(handlers), tag);
        m_targets[tag] = std::make_shared<const Latecomer>(Latecomer{item, latecomer});
        item->add(latecomer);
        return latecomer;
    }
    const auto item =
        std::make_shared<FeedItem>(shared_from_this(), kind, instrument.source, instrument.symbol, tag);
    auto subscription = std::make_shared<SubscriptionState>(item, std::move(handlers), 0);
    item->begin(subscription);
    m_items.insert(item);
    if (kind == ItemKind::Pattern)
        m_patterns.push_back(item);
    m_targets[tag] = item;
    return subscription;
}

std::shared_ptr<AnswerState> FeedRegistry::request(tivra::Commands command, const char* what,
                                                   const Instrument& instrument, double timeout) {
    checkInstrument(instrument, what);
    return ask(command, describe(what, instrument), instrument, timeout);
}

std::shared_ptr<AnswerState> FeedRegistry::ask(tivra::Commands command, std::string what,
                                               const Instrument& instrument, double timeout) {
    const int64_t tag = nextTag();
    auto answer = std::make_shared<AnswerState>(shared_from_this(), tag, std::move(what));
    {
        const tp::MutexLock lock(m_mutex);
        m_targets[tag] = answer;
        ++m_requestCount;
    }
    const LaterThread::Ticket timeOut = m_later.runAt(
        tp::Clock::monotonic() + timeout, [waiting = std::weak_ptr<AnswerState>(answer), timeout] {
            if (const std::shared_ptr<AnswerState> late = waiting.lock())
                late->fail(Error({Error::Code::TimedOut, Error::Phase::Answer,
                                  "no answer to the " + late->what() + " within " +
                                      std::to_string(static_cast<long long>(timeout * 1000)) + " ms",
                                  "", "", 0, "", 0}));
        });
    answer->setTimeOut(timeOut);
    try {
        send(command, instrument, tag, 0);
    } catch (...) {
        forgetAnswer(tag, timeOut);
        throw;
    }
    return answer;
}

void FeedRegistry::watchCallbacks(double threshold, std::function<void(const tivra::SlowCallback&)> onSlow) {
    if (threshold <= 0.0)
        return;
    m_callbacks.watch().setThreshold(threshold);
    m_onSlow = std::move(onSlow);
    laterAt(0.0, [this] { lookForSlowCallbacks(); });
}

void FeedRegistry::lookForSlowCallbacks() {
    CallbackWatch& watch = m_callbacks.watch();
    for (const CallbackWatch::Report& report : watch.look())
        reportSlow(report);
    laterAt(tp::Clock::monotonic() + std::max(watch.threshold() / 4, kShortestLook),
            [this] { lookForSlowCallbacks(); });
}

void FeedRegistry::reportSlow(const CallbackWatch::Report& report) {
    // The callback goes on meanwhile, and its item may be gone.
    const Target target = targetOf(report.tag);
    const auto* const item = std::get_if<std::shared_ptr<FeedItem>>(&target);
    const std::string_view text = item != nullptr ? (*item)->symbol() : std::string_view(report.text);
    if (report.isRunning)
        eprintf(EPF_WARN, "A callback of the application is slow: %s for \"%.*s\" has run for %.3f s",
                report.function.c_str(), static_cast<int>(text.size()), text.data(), report.seconds);
    else
        eprintf(EPF_INFO, "A slow callback of the application has returned: %s for \"%.*s\" took %.3f s",
                report.function.c_str(), static_cast<int>(text.size()), text.data(), report.seconds);
    if (!m_onSlow)
        return;
    const auto duration = std::chrono::milliseconds(std::llround(report.seconds * 1000.0));
    const tivra::SlowCallback slow{report.function, text, item != nullptr ? (*item)->source() : 0, duration,
                                   report.isRunning};
    // By itself it is not watched, or a slow one would be reported for ever.
    const struct {
        std::string_view name;
        [[nodiscard]] std::string_view symbol() const { return name; }
    } context{text};
    m_callbacks.run("onSlowCallback", context, [&] { m_onSlow(slow); });
}

void FeedRegistry::detach() {
    const tp::MutexLock lock(m_sendMutex);
    m_sender = nullptr;
    m_isDetached.store(true, std::memory_order_release);
    m_hold.end();
}

void FeedRegistry::close() {
    m_later.end();
    std::vector<std::shared_ptr<FeedItem>> items;
    std::vector<std::shared_ptr<AnswerState>> answers;
    {
        const tp::MutexLock lock(m_mutex);
        items.assign(m_items.begin(), m_items.end());
        for (const auto& [tag, target] : m_targets)
            if (const auto* const answer = std::get_if<std::shared_ptr<AnswerState>>(&target))
                answers.push_back(*answer);
    }
    for (const std::shared_ptr<AnswerState>& answer : answers)
        answer->fail(
            Error({Error::Code::Closed, Error::Phase::Answer,
                   "the feed was closed before the answer to the " + answer->what(), "", "", 0, "", 0}));
    for (const std::shared_ptr<FeedItem>& item : items)
        item->closeAll();
}

FeedRegistry::Target FeedRegistry::targetOf(int64_t tag) {
    const tp::MutexLock lock(m_mutex);
    const auto found = m_targets.find(tag);
    return found != m_targets.end() ? found->second : Target();
}

std::vector<std::shared_ptr<FeedItem>> FeedRegistry::findItems(int source, std::string_view symbol) {
    std::vector<std::shared_ptr<FeedItem>> items;
    const tp::MutexLock lock(m_mutex);
    for (const ItemKind kind : {ItemKind::Symbol, ItemKind::OrderBook})
        if (const auto found = m_items.find(Key(symbol, source, kind)); found != m_items.end())
            items.push_back(*found);
    for (const std::shared_ptr<FeedItem>& pattern : m_patterns)
        if (pattern->source() == source && matchesWildcard(pattern->symbol(), symbol))
            items.push_back(pattern);
    return items;
}

std::vector<std::shared_ptr<FeedItem>> FeedRegistry::itemsOf(int source) {
    std::vector<std::shared_ptr<FeedItem>> items;
    const tp::MutexLock lock(m_mutex);
    for (const std::shared_ptr<FeedItem>& item : m_items)
        if (item->source() == source)
            items.push_back(item);
    return items;
}

void FeedRegistry::withdraw(int source) {
    for (const std::shared_ptr<FeedItem>& item : itemsOf(source))
        item->withdraw();
}

/// Whether the hub has kept what it had to withhold nobody knows, so it is told to forget all of it first.
void FeedRegistry::restore(int source) {
    std::vector<std::shared_ptr<FeedItem>> withdrawn = itemsOf(source);
    std::erase_if(withdrawn, [](const auto& item) { return !item->isWithdrawn(); });
    for (const std::shared_ptr<FeedItem>& item : withdrawn) {
        item->restore();
        unsubscribe(item, item->tag());
    }
    for (const std::shared_ptr<FeedItem>& item : withdrawn)
        askAnew(item);
}

void FeedRegistry::askWithdrawn() {
    if (!m_hasUnasked.exchange(false))
        return;
    std::vector<std::shared_ptr<FeedItem>> unasked;
    {
        const tp::MutexLock lock(m_mutex);
        for (const std::shared_ptr<FeedItem>& item : m_items)
            if (item->takeUnasked() && item->isWithdrawn())
                unasked.push_back(item);
    }
    for (const std::shared_ptr<FeedItem>& item : unasked)
        askAnew(item);
}

/// Under another tag. What comes under the former one is of no use.
void FeedRegistry::askAnew(const std::shared_ptr<FeedItem>& item) {
    try {
        const int64_t tag = nextTag();
        {
            const tp::MutexLock lock(m_mutex);
            if (item->isGone())
                return;
            m_targets.erase(item->tag());
            m_targets[tag] = item;
            item->setTag(tag);
        }
        send(subscribeCommand(item->kind()), {item->source(), std::string(item->symbol())}, tag, 0);
    } catch (const Error& error) {
        if (error.code() != Error::Code::Closed)
            laterAt(tp::Clock::monotonic() + kSendAgain,
                    [registry = shared_from_this(), item] { registry->askAnew(item); });
    }
}

/// A hub refuses what it is asked for once more after it has withdrawn the source, and its answer takes
/// another way than the word of the withdrawal: either may come first.
void FeedRegistry::refuse(const std::shared_ptr<FeedItem>& item, int64_t tag, const Error& error) {
    if (!item->wasLive() || item->isWithdrawn())
        refuseNow(*item, tag, error);
    else
        laterAt(tp::Clock::monotonic() + kUntilWithdrawalIsKnown,
                [this, item, tag, error] { refuseNow(*item, tag, error); });
}

void FeedRegistry::refuseNow(FeedItem& item, int64_t tag, const Error& error) {
    if (item.isGone() || item.tag() != tag)
        return; // it has been asked for once more meanwhile
    if (item.isWithdrawn()) {
        item.setUnasked(); // until the source comes back, or another connection
        m_hasUnasked.store(true);
        return;
    }
    forgetItem(item);
    item.refuse(error);
}

void FeedRegistry::forgetItem(FeedItem& item) {
    const tp::MutexLock lock(m_mutex);
    removeItem(item);
}

/// Its subscriptions keep it, for what they have to say of themselves.
void FeedRegistry::removeItem(FeedItem& item) {
    item.setGone();
    m_targets.erase(item.tag());
    if (item.kind() == ItemKind::Pattern)
        std::erase_if(m_patterns, [&item](const auto& one) { return one.get() == &item; });
    const auto found = m_items.find(Key(item.symbol(), item.source(), item.kind()));
    if (found != m_items.end() && found->get() == &item)
        m_items.erase(found);
}

void FeedRegistry::forgetTag(int64_t tag) {
    Target dropped; // goes without the mutex
    const tp::MutexLock lock(m_mutex);
    const auto found = m_targets.find(tag);
    if (found == m_targets.end())
        return;
    if (std::holds_alternative<std::shared_ptr<AnswerState>>(found->second))
        --m_requestCount;
    std::swap(dropped, found->second);
    m_targets.erase(found);
}

void FeedRegistry::addStream(FeedStream& stream) {
    const tp::MutexLock lock(m_mutex);
    m_streams.push_back(&stream);
}

void FeedRegistry::removeStream(FeedStream& stream) {
    const tp::MutexLock lock(m_mutex);
    std::erase(m_streams, &stream);
    m_pastUpdates[stream.measures().hub] += stream.updates();
}

FeedItem::Subscriptions FeedRegistry::takeAdded(FeedItem& item) {
    const tp::MutexLock lock(m_mutex);
    return item.takeAdded();
}

/// On the wire it is the symbol that is unsubscribed, whatever was subscribed under it: what else there is
/// may have gone with it, and is asked for once more.
void FeedRegistry::release(FeedItem& item, const FeedItem::Subscriptions& leavers) {
    std::vector<std::shared_ptr<FeedItem>> namesakes;
    {
        const tp::MutexLock lock(m_mutex);
        for (const std::shared_ptr<SubscriptionState>& leaver : leavers)
            if (leaver->imageTag() != 0)
                m_targets.erase(leaver->imageTag());
        m_subscriptionCount -= leavers.size();
        if (!item.remove(leavers.size()) || item.isGone())
            return;
        removeItem(item);
        for (const ItemKind kind : {ItemKind::Symbol, ItemKind::OrderBook, ItemKind::Pattern})
            if (const auto found = m_items.find(Key(item.symbol(), item.source(), kind));
                found != m_items.end())
                namesakes.push_back(*found);
    }
    unsubscribe(item.shared_from_this(), item.tag());
    for (const std::shared_ptr<FeedItem>& namesake : namesakes)
        askAnew(namesake);
}

/// The hub would go on sending what nobody wants.
void FeedRegistry::unsubscribe(const std::shared_ptr<FeedItem>& item, int64_t tag) {
    const tp::MutexLock lock(m_sendMutex);
    if (m_sender == nullptr ||
        m_sender->send(tivra::UNSUBSCRIBE, {item->source(), std::string(item->symbol())}, m_sender->nextTag(),
                       tag))
        return;
    laterAt(tp::Clock::monotonic() + kSendAgain,
            [registry = shared_from_this(), item, tag] { registry->unsubscribe(item, tag); });
}

std::optional<tivra::Value::Type> FeedRegistry::typeOfField(std::string_view name) {
    const tp::MutexLock lock(m_mutex);
    for (FeedStream* stream : m_streams)
        if (const std::optional<tivra::Value::Type> type = stream->fields().typeOf(name))
            return type;
    return std::nullopt;
}

tivra::FeedStatistics FeedRegistry::statistics() {
    tivra::FeedStatistics figures;
    figures.unwanted = m_unwanted.load(std::memory_order_relaxed);
    figures.lateAnswers = m_late.load(std::memory_order_relaxed);
    figures.failedCallbacks = m_callbacks.failures();
    figures.slowCallbacks = m_callbacks.watch().slowCalls();
    m_measures.describe(figures); // without the mutex, since it takes a while
    const tp::MutexLock lock(m_mutex);
    for (const auto& [hub, updates] : m_pastUpdates)
        addUpdates(figures, hub, updates);
    for (const FeedStream* stream : m_streams) {
        addUpdates(figures, stream->measures().hub, stream->updates());
        addQueue(figures, stream->measures().hub, stream->queueFill());
    }
    figures.subscriptions = m_subscriptionCount;
    figures.requests = m_requestCount;
    return figures;
}

} // namespace tivra_internal
