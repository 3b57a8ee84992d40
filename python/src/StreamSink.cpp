#include "StreamSink.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "Errors.h"

namespace nb = nanobind;

namespace tivra_python {
namespace {

/// Before that of the queue.
constexpr tp::LockRank kLockSink{900, "StreamSink::m_mutex"};
constexpr std::size_t kAll = std::numeric_limits<std::size_t>::max();

} // namespace

StreamSink::StreamSink(Options options, std::unique_ptr<EventQueue> queue,
                       tivra::SubscriptionHandlers toQueue)
    : m_options(std::move(options))
    , m_queue(std::move(queue))
    , m_toQueue(std::move(toQueue))
    , m_mutex(kLockSink) {}

tivra::SubscriptionHandlers StreamSink::handlers() {
    tivra::SubscriptionHandlers handlers;
    const std::shared_ptr<StreamSink> self = shared_from_this();
    if (m_options.onUpdate)
        handlers.onUpdate = [self](const tivra::Update& update) {
            self->m_options.onUpdate.call([&] { return nb::make_tuple(Event::ofUpdate(update)); });
        };
    else if (canBeDirect())
        handlers.onUpdate = [self](const tivra::Update& update) { self->onUpdate(update); };
    else
        handlers.onUpdate = m_toQueue.onUpdate;
    handlers.onState = [self](const tivra::SubscriptionView& subscription, const tivra::StateChange& change) {
        self->onState(subscription, change);
    };
    handlers.onGap = [self](const tivra::SubscriptionView& subscription, const tivra::Gap& gap) {
        self->onGap(subscription, gap);
    };
    return handlers;
}

const Callable& StreamSink::callbackFor(const Event& event) const noexcept {
    if (event.state)
        return m_options.onState;
    return event.gap ? m_options.onGap : m_options.onUpdate;
}

void StreamSink::call(const Event& event) const {
    callbackFor(event).call([&event] { return nb::make_tuple(event); });
}

bool StreamSink::canBeDirect() const noexcept {
    return m_toQueue.onUpdate && !m_options.fields.columns.empty() &&
           m_options.queue.policy == tivra::QueuePolicy::DropOldest;
}

void StreamSink::onUpdate(const tivra::Update& update) {
    tp::MutexLock lock(m_mutex);
    if (!m_isDirect) {
        m_toQueue.onUpdate(update);
        return;
    }
    m_rows->add(update);
    tell(lock);
}

void StreamSink::onState(const tivra::SubscriptionView& subscription, const tivra::StateChange& change) {
    {
        tp::MutexLock lock(m_mutex);
        // The queue forgets what has ended by this.
        m_toQueue.onState(subscription, change);
        if (m_isDirect)
            drainQueue();
        tell(lock);
    }
    m_options.onState.call([&] { return nb::make_tuple(Event::ofState(subscription, change)); });
}

void StreamSink::onGap(const tivra::SubscriptionView& subscription, const tivra::Gap& gap) {
    {
        tp::MutexLock lock(m_mutex);
        m_toQueue.onGap(subscription, gap);
        if (m_isDirect)
            drainQueue();
        tell(lock);
    }
    m_options.onGap.call([&] { return nb::make_tuple(Event::ofGap(subscription, gap)); });
}

/// Subscriptions that end leave their last state there without a callback.
void StreamSink::drainQueue() {
    m_queue->poll(kAll, [this](Event&& event) TP_REQUIRES(m_mutex) { m_rows->add(std::move(event)); });
}

void StreamSink::fillBatch() {
    // Few at a time, for a batch of long rows is complete before it has its number of them.
    constexpr std::size_t kStep = 64;
    const auto add = [this](Event&& event) TP_REQUIRES(m_mutex) { m_rows->add(std::move(event)); };
    while (!m_rows->isBatchDue() && m_rows->rows() < m_rows->blockRows())
        if (m_queue->poll(std::min(kStep, m_rows->blockRows() - m_rows->rows()), add) == 0)
            return;
}

bool StreamSink::areThere(std::size_t rows) const {
    if (m_hasEnded)
        return true;
    if (m_rows == nullptr)
        return false;
    return m_rows->rows() >= rows || m_rows->isBatchDue();
}

void StreamSink::tell(tp::MutexLock& lock) {
    if (m_wanted == 0 || !areThere(m_wanted))
        return;
    m_wanted = 0;
    m_condition.notifyAll();
    const std::shared_ptr<Notifier> notifier = std::exchange(m_notifier, nullptr);
    const std::uint64_t token = m_token;
    lock.unlock();
    if (notifier)
        notifier->post(token);
}

void StreamSink::end() {
    tp::MutexLock lock(m_mutex);
    m_hasEnded = true;
    tell(lock);
}

bool StreamSink::isFinished() {
    const tp::MutexLock lock(m_mutex);
    if (m_isDirect)
        drainQueue();
    return m_hasEnded && (m_rows == nullptr || m_rows->isEmpty()) && m_queue->figures().events == 0;
}

std::size_t StreamSink::beginRows(std::size_t batchRows) {
    const tp::MutexLock lock(m_mutex);
    if (m_rows != nullptr)
        return m_rows->blockRows();
    if (m_options.fields.columns.empty())
        raiseInvalid("a subscription without fields has no columns to make batches of",
                     "name them in subscribe(fields=[...])");
    m_isDirect = canBeDirect();
    const RowBuffer::Limits limits{m_options.queue.maxUpdates, m_options.queue.maxBytes, batchRows,
                                   m_isDirect};
    m_rows = std::make_unique<RowBuffer>(m_options.fields, limits);
    if (m_isDirect)
        drainQueue();
    return m_rows->blockRows();
}

bool StreamSink::isDirect() {
    const tp::MutexLock lock(m_mutex);
    return m_isDirect;
}

std::optional<std::size_t> StreamSink::gather() {
    const tp::MutexLock lock(m_mutex);
    if (m_isDirect)
        drainQueue();
    else
        fillBatch();
    if (m_rows->isBatchDue())
        return m_rows->blockRows();
    // The last states are all that can come.
    const bool hasNews = m_rows->hasNews() || (m_hasEnded && !m_rows->isEmpty());
    return hasNews ? std::optional(m_rows->rows()) : std::nullopt;
}

bool StreamSink::waitForRows(std::size_t rows, std::chrono::steady_clock::time_point deadline) {
    tp::MutexLock lock(m_mutex);
    if (!m_isDirect) {
        if (m_hasEnded)
            return true;
        lock.unlock();
        return m_queue->wait(deadline - std::chrono::steady_clock::now());
    }
    while (!areThere(rows)) {
        m_wanted = rows;
        if (!m_condition.waitUntil(m_mutex, deadline))
            break;
    }
    m_wanted = 0;
    return areThere(rows);
}

bool StreamSink::notify(std::size_t rows, std::shared_ptr<Notifier> notifier, std::uint64_t token) {
    const tp::MutexLock lock(m_mutex);
    if (areThere(rows))
        return true;
    m_wanted = rows;
    m_notifier = std::move(notifier);
    m_token = token;
    return false;
}

RowBlock StreamSink::takeRows() {
    const tp::MutexLock lock(m_mutex);
    return m_rows->take();
}

std::uint64_t StreamSink::dropped() {
    const tp::MutexLock lock(m_mutex);
    // What the queue has dropped is counted there, whether or not it has come out yet.
    return m_queue->figures().dropped + (m_rows != nullptr ? m_rows->dropped() : 0);
}

std::size_t StreamSink::waiting() {
    const tp::MutexLock lock(m_mutex);
    return m_queue->figures().updates + (m_rows != nullptr ? m_rows->rows() : 0);
}

} // namespace tivra_python
