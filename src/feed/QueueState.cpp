#include "feed/QueueState.h"

#include <algorithm>
#include <new>
#include <utility>

#include <feed/Error.h>
#include <tp/Thread.h>

#include "feed/ClockTime.h"
#include "feed/DeliveryHold.h"
#include "feed/RecordData.h"
#include "feed/SubscriptionState.h"
#include "kvnparse/Message.h"

namespace tivra_internal {
namespace {

using tivra::DataState;
using tivra::Error;
using tivra::QueuePolicy;
using tivra::Update;
using Kind = tivra::QueueEvent::Kind;

/// So many states and gaps of a subscription wait, each as it was. A reader who is slower than the hub comes
/// and goes gets their sum.
constexpr std::size_t kMostStates = 8;
constexpr std::size_t kMostGaps = 4;
constexpr const char* kEnded = "the subscription has ended";

[[nodiscard]] Kind kindOf(Update::Kind kind) noexcept {
    switch (kind) {
    case Update::Kind::Image:
        return Kind::Image;
    case Update::Kind::Refresh:
        return Kind::Refresh;
    case Update::Kind::Update:
        break;
    }
    return Kind::Update;
}

[[nodiscard]] std::chrono::system_clock::time_point timeOf(const UpdateData& data, bool isExact) {
    return isExact ? data.update().receivedAt() : toTimePoint(data.subscription->lastUpdate());
}

[[nodiscard]] std::unique_ptr<QueueNode> makeUpdate(const UpdateData& data, bool hasExactTime) {
    auto node = std::make_unique<QueueNode>();
    node->kind = kindOf(data.kind);
    node->record = RecordData::copyOf(data.message, data.fields);
    node->bytes = sizeof(QueueNode) + RecordData::bytesOf(node->record);
    node->time = timeOf(data, hasExactTime);
    return node;
}

[[nodiscard]] std::unique_ptr<QueueNode> makeNotice(QueueLane& lane, Kind kind) {
    auto node = std::make_unique<QueueNode>();
    node->kind = kind;
    node->lane = &lane;
    node->symbol = &lane.symbolOf(lane.symbol);
    node->notice = std::make_unique<QueueNotice>();
    node->notice->symbol = lane.symbol;
    node->time = wallTime();
    return node;
}

void setState(QueueNode& node, const tivra::StateChange& change) {
    QueueNotice& notice = *node.notice;
    notice.cause = change.cause;
    notice.error = change.error != nullptr ? std::make_shared<const Error>(*change.error) : nullptr;
    notice.state = {change.from, change.to, notice.cause, notice.error.get(), change.time};
    node.time = change.time;
}

/// Of a hub's own gaps no image follows.
[[nodiscard]] bool hasImageAfter(const tivra::Gap& gap) noexcept {
    return gap.cause == tivra::Gap::Cause::Loss || gap.cause == tivra::Gap::Cause::Withdrawal;
}

void addTo(std::optional<std::uint64_t>& sum, const std::optional<std::uint64_t>& more) {
    sum = sum && more ? std::optional<std::uint64_t>(*sum + *more) : std::nullopt;
}

/// The node's gap is another one too, which may have begun earlier.
void add(const tivra::Gap& gap, QueueNode& node) {
    tivra::Gap& whole = node.notice->gap;
    whole.from = std::min(whole.from, gap.from);
    whole.to = std::max(whole.to, gap.to);
    addTo(whole.messages, gap.messages);
    addTo(whole.bytes, gap.bytes);
    ++node.merged;
}

[[nodiscard]] tivra::QueueOptions checked(tivra::QueueOptions options) {
    if (options.maxUpdates == 0 || options.maxBytes == 0)
        throw Error({Error::Code::InvalidArgument, Error::Phase::None, "a queue has to have room",
                     "give QueueOptions::maxUpdates and maxBytes above 0", "", 0, "", 0});
    return options;
}

} // namespace

QueueState::QueueState(tivra::QueueOptions options) : m_options(checked(options)) {}

QueueState::~QueueState() {
    while (QueueNode* const node = m_events.first())
        static_cast<void>(remove(*node));
}

QueueLane& QueueState::enter(const tivra::SubscriptionView& subscription) {
    const tp::MutexLock lock(m_mutex);
    std::unique_ptr<QueueLane>& lane = m_lanes[subscription.id()];
    lane = std::make_unique<QueueLane>();
    lane->id = subscription.id();
    lane->source = subscription.source();
    lane->symbol = subscription.symbol();
    ++m_openLanes;
    return *lane;
}

void QueueState::push(QueueLane& lane, const UpdateData& data) {
    // What is merged needs no copy as a rule; any other is made while the reader may have the mutex.
    std::unique_ptr<QueueNode> node = isLatest() ? nullptr : makeUpdate(data, m_options.exactTimes);
    bool isFilled = false;
    {
        const tp::MutexLock lock(m_mutex);
        if (m_isClosed)
            return;
        QueueSymbol& symbol = lane.symbolOf({data.message.symbol.buf, data.message.symbol.len});
        ++m_figures.entered;
        if (!isLatest() || !merge(lane, symbol, data)) {
            if (node == nullptr)
                node = makeUpdate(data, m_options.exactTimes);
            node->lane = &lane;
            node->symbol = &symbol;
            node->section = lane.section;
            append(std::move(node));
        }
        if (data.kind == Update::Kind::Image)
            lane.expectsImage = false;
        isFilled = isFull();
        while (m_options.policy != QueuePolicy::Block && isOverfull())
            dropOldest();
    }
    if (isFilled)
        DeliveryHold::ask(shared_from_this());
}

bool QueueState::merge(QueueLane& lane, QueueSymbol& symbol, const UpdateData& data) {
    QueueNode* const node = symbol.open;
    if (node == nullptr || node->section != lane.section)
        return false;
    const bool isNewImage = data.kind == Update::Kind::Image && lane.expectsImage;
    // One record mustn't outgrow the queue: the queue then drops it as its oldest, and counts it.
    if (!isNewImage && node->bytes >= m_options.maxBytes)
        return false;
    m_figures.bytes -= node->bytes;
    if (isNewImage)
        node->record = RecordData::copyOf(data.message, data.fields);
    else
        RecordData::merge(node->record, data.message, data.fields);
    if (node->kind != Kind::Image && data.kind != Update::Kind::Update)
        node->kind = kindOf(data.kind);
    node->bytes = sizeof(QueueNode) + RecordData::bytesOf(node->record);
    node->time = timeOf(data, m_options.exactTimes);
    m_figures.bytes += node->bytes;
    ++node->merged;
    ++symbol.merged;
    ++m_figures.merged;
    return true;
}

void QueueState::push(QueueLane& lane, const tivra::StateChange& change) {
    const tp::MutexLock lock(m_mutex);
    if (!m_isClosed)
        pushState(lane, change);
}

void QueueState::pushState(QueueLane& lane, const tivra::StateChange& change) {
    ++lane.section;
    lane.state = change.to;
    if (change.to == DataState::Stale || change.to == DataState::Recovering)
        lane.expectsImage = true;
    std::unique_ptr<QueueNode> node;
    if (lane.states < kMostStates) {
        node = makeNotice(lane, Kind::State);
        setState(*node, change);
    } else {
        QueueNode* last = lane.events.last();
        while (last->kind != Kind::State)
            last = lane.events.before(*last);
        node = remove(*last);
        ++node->merged;
        tivra::StateChange whole = change;
        whole.from = node->notice->state.from;
        setState(*node, whole);
    }
    append(std::move(node));
}

void QueueState::push(QueueLane& lane, const tivra::Gap& gap) {
    tp::MutexLock lock(m_mutex);
    if (m_isClosed)
        return;
    if (hasImageAfter(gap))
        lane.expectsImage = true;
    // Where nothing may be dropped, gaps fill the queue.
    if (m_options.policy != QueuePolicy::Block && mergeGap(lane, gap))
        return;
    ++lane.section;
    std::unique_ptr<QueueNode> node = makeNotice(lane, Kind::Gap);
    node->notice->gap = gap;
    append(std::move(node));
    const bool isFilled = isFull();
    lock.unlock();
    if (isFilled)
        DeliveryHold::ask(shared_from_this());
}

/// One that no image follows makes nothing old: the last gap goes on to its end, though what came between
/// stands after that.
bool QueueState::mergeGap(QueueLane& lane, const tivra::Gap& gap) {
    if (lane.gaps < (isLatest() ? 1 : kMostGaps))
        return false;
    QueueNode* last = lane.events.last();
    while (last != nullptr &&
           (last->kind != Kind::Gap || (hasImageAfter(gap) && !hasImageAfter(last->notice->gap))))
        last = lane.events.before(*last);
    if (last == nullptr)
        return false;
    if (hasImageAfter(gap)) {
        ++lane.section;
        dropAfter(*last);
    }
    add(gap, *last);
    return true;
}

/// An image follows, so what came since that gap has no use: the gap goes on to the next one, and the states
/// since come to one.
void QueueState::dropAfter(QueueNode& gap) {
    QueueLane& lane = *gap.lane;
    std::unique_ptr<QueueNode> state;
    while (lane.events.last() != &gap) {
        std::unique_ptr<QueueNode> node = remove(*lane.events.last());
        if (node->isUpdate()) {
            countDropped(*node);
            gap.dropped += 1 + node->merged;
            gap.droppedBytes += node->bytes;
        } else if (node->kind == Kind::Gap) {
            add(node->notice->gap, gap);
            gap.merged += node->merged;
        } else if (state == nullptr) {
            state = std::move(node);
        } else {
            state->notice->state.from = node->notice->state.from;
            state->merged += 1 + node->merged;
        }
    }
    if (state != nullptr && state->notice->state.from != state->notice->state.to)
        append(std::move(state));
}

void QueueState::leave(QueueLane& lane) {
    if (process().isForeign())
        return;
    const tp::MutexLock lock(m_mutex);
    lane.isOpen = false;
    if (--m_openLanes == 0)
        m_hasRoom.notifyAll();
    try {
        if (!m_isClosed)
            pushState(lane, {lane.state, DataState::Closed, kEnded, nullptr, wallTime()});
    } catch (const std::bad_alloc&) { // what stands in the queue is all that there is
    }
    forgetIfIdle(lane);
}

void QueueState::forgetIfIdle(QueueLane& lane) {
    if (!lane.isOpen && lane.events.first() == nullptr)
        m_lanes.erase(lane.id);
}

void QueueState::append(std::unique_ptr<QueueNode> node) {
    QueueNode& entered = *node.release();
    entered.subscription = entered.lane->id;
    entered.source = entered.lane->source;
    ++entered.symbol->waiting;
    m_events.pushBack(entered);
    entered.lane->events.pushBack(entered);
    ++m_figures.events;
    if (entered.isUpdate()) {
        entered.symbol->open = &entered;
        ++m_figures.updates;
        m_figures.bytes += entered.bytes;
        if (m_oldestUpdate == nullptr)
            m_oldestUpdate = &entered;
    } else {
        ++(entered.kind == Kind::Gap ? entered.lane->gaps : entered.lane->states);
    }
    signal();
}

std::unique_ptr<QueueNode> QueueState::remove(QueueNode& node) {
    if (m_oldestUpdate == &node)
        do
            m_oldestUpdate = m_events.after(*m_oldestUpdate);
        while (m_oldestUpdate != nullptr && !m_oldestUpdate->isUpdate());
    m_events.remove(node);
    node.lane->events.remove(node);
    --node.symbol->waiting;
    --m_figures.events;
    if (node.isUpdate()) {
        if (node.symbol->open == &node)
            node.symbol->open = nullptr;
        --m_figures.updates;
        m_figures.bytes -= node.bytes;
    } else {
        --(node.kind == Kind::Gap ? node.lane->gaps : node.lane->states);
    }
    return std::unique_ptr<QueueNode>(&node);
}

void QueueState::dropOldest() {
    const std::unique_ptr<QueueNode> node = remove(*m_oldestUpdate);
    countDropped(*node);
    node->symbol->droppedSince += 1 + node->merged;
    node->symbol->droppedBytesSince += node->bytes;
}

/// What had been merged into it is lost with it.
void QueueState::countDropped(const QueueNode& node) {
    m_figures.dropped += 1 + node.merged;
    m_figures.droppedBytes += node.bytes;
    m_figures.merged -= node.merged;
    node.symbol->dropped += 1 + node.merged;
    node.symbol->merged -= node.merged;
}

std::unique_ptr<QueueNode> QueueState::take() {
    if (process().isForeign())
        return nullptr;
    const tp::MutexLock lock(m_mutex);
    if (m_events.first() == nullptr)
        return nullptr;
    std::unique_ptr<QueueNode> node = remove(*m_events.first());
    if (node->isUpdate())
        ++m_figures.taken;
    node->dropped += std::exchange(node->symbol->droppedSince, 0);
    node->droppedBytes += std::exchange(node->symbol->droppedBytesSince, 0);
    node->dropped += std::exchange(node->lane->droppedSince, 0);
    node->droppedBytes += std::exchange(node->lane->droppedBytesSince, 0);
    if (m_events.first() == nullptr)
        m_descriptor.set(false);
    if (hasRoom())
        m_hasRoom.notifyAll();
    forgetIfIdle(*node->lane);
    return node;
}

bool QueueState::wait(std::chrono::steady_clock::time_point deadline) {
    if (process().isForeign())
        return false;
    const tp::MutexLock lock(m_mutex);
    if (m_events.first() == nullptr && tp::onLibraryThread())
        throw Error({Error::Code::InCallback, Error::Phase::None,
                     "a queue can't be waited for on a thread of the library",
                     "poll it on a thread of your own", "", 0, "", 0});
    ++m_readers;
    while (m_events.first() == nullptr)
        if (!m_hasEvents.waitUntil(m_mutex, deadline))
            break;
    --m_readers;
    return m_events.first() != nullptr;
}

int QueueState::descriptor() {
    if (process().isForeign())
        return -1;
    const tp::MutexLock lock(m_mutex);
    return m_descriptor.get(m_events.first() != nullptr);
}

void QueueState::signal() {
    m_descriptor.set(true);
    if (m_readers != 0)
        m_hasEvents.notifyAll();
}

bool QueueState::isFull() const noexcept {
    return m_options.policy == QueuePolicy::Block &&
           (m_figures.events >= m_options.maxUpdates || m_figures.bytes >= m_options.maxBytes);
}

bool QueueState::isOverfull() const noexcept {
    return m_figures.updates > 1 &&
           (m_figures.updates > m_options.maxUpdates || m_figures.bytes > m_options.maxBytes);
}

/// For more than one update, lest the thread that waits be woken for each.
bool QueueState::hasRoom() const noexcept {
    return m_figures.events <= m_options.maxUpdates - m_options.maxUpdates / 4 - 1 &&
           m_figures.bytes <= m_options.maxBytes - m_options.maxBytes / 4 - 1;
}

void QueueState::waitForRoom(const std::atomic<bool>& isOver) {
    const tp::MutexLock lock(m_mutex);
    while (!m_isClosed && m_openLanes > 0 && !hasRoom() && !isOver.load(std::memory_order_acquire))
        m_hasRoom.wait(m_mutex);
}

void QueueState::wakeDeliveries() {
    const tp::MutexLock lock(m_mutex);
    m_hasRoom.notifyAll();
}

tivra::QueueStatistics QueueState::statistics() {
    if (process().isForeign())
        return {};
    const tp::MutexLock lock(m_mutex);
    return m_figures;
}

std::vector<tivra::QueueCounts> QueueState::counts() {
    std::vector<tivra::QueueCounts> rows;
    if (process().isForeign())
        return rows;
    const tp::MutexLock lock(m_mutex);
    for (const auto& [id, lane] : m_lanes)
        for (const auto& [name, symbol] : lane->symbols)
            if (symbol.dropped != 0 || symbol.merged != 0)
                rows.push_back({id, lane->source, name, symbol.dropped, symbol.merged});
    return rows;
}

void QueueState::close() {
    if (process().isForeign())
        return;
    const tp::MutexLock lock(m_mutex);
    m_isClosed = true;
    while (QueueNode* const node = m_events.first()) {
        QueueLane& lane = *node->lane;
        static_cast<void>(remove(*node));
        forgetIfIdle(lane);
    }
    m_hasRoom.notifyAll();
    m_hasEvents.notifyAll();
}

} // namespace tivra_internal
