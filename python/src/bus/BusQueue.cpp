#include "bus/BusQueue.h"

#include <algorithm>

namespace tivra_python {
namespace {

/// States of a symbol, and gaps, that wait one by one.
constexpr std::size_t kMostNotices = 64;
/// After those of the stream and of its sink.
constexpr tp::LockRank kLockQueue{995, "BusQueue::m_mutex"};

[[nodiscard]] std::size_t bytesOf(const Event& event) {
    // For the list's node too.
    return sizeof event + 64 + event.symbol.size() + BusFields::bytesOf(event.record);
}

} // namespace

BusQueue::BusQueue(const tivra::QueueOptions& options, BusFields fields)
    : m_options(options), m_fields(std::move(fields)), m_mutex(kLockQueue) {}

bool BusQueue::isFull() const {
    return m_figures.updates > m_options.maxUpdates || m_bytes > m_options.maxBytes;
}

std::uint64_t BusQueue::push(Event&& event) {
    const tp::MutexLock lock(m_mutex);
    const bool isUpdate = !event.state && !event.gap;
    Lane& lane = m_lanes[{event.source, event.symbol}];
    ++m_order;
    if (!(isUpdate ? merge(lane, event) : mergeNotice(lane.noticesOf(event), event)))
        append(lane, std::move(event), isUpdate);
    // What is merged takes room too.
    while (m_options.policy != tivra::QueuePolicy::Block && isFull() && m_figures.updates > 1)
        dropOldest();
    m_figures.events = m_nodes.size();
    m_descriptor.set(true);
    m_hasEvents.notifyAll();
    return m_order;
}

void BusQueue::append(Lane& lane, Event&& event, bool isUpdate) {
    Node node{std::move(event), 0, m_order, isUpdate};
    node.bytes = isUpdate ? bytesOf(node.event) : 0;
    m_bytes += node.bytes;
    m_figures.updates += isUpdate ? 1 : 0;
    m_nodes.push_back(std::move(node));
    ++lane.waiting;
    lane.hasLast = isUpdate;
    const auto place = std::prev(m_nodes.end());
    if (isUpdate) {
        lane.last = place;
    } else {
        Notices& notices = lane.noticesOf(place->event);
        ++notices.count;
        notices.last = place;
    }
}

bool BusQueue::merge(Lane& lane, const Event& event) {
    // One record mustn't outgrow the queue.
    if (m_options.policy != tivra::QueuePolicy::Latest || !lane.hasLast ||
        lane.last->bytes >= m_options.maxBytes)
        return false;
    Node& node = *lane.last;
    const bool isWhole = event.kind == Event::Kind::Image;
    node.event.record = isWhole ? event.record : m_fields.merged(node.event.record, event.record);
    if (node.event.kind != Event::Kind::Image && event.kind != Event::Kind::Update)
        node.event.kind = event.kind;
    node.event.received = event.received;
    ++node.event.merged;
    ++m_figures.merged;
    m_bytes -= node.bytes;
    node.bytes = bytesOf(node.event);
    m_bytes += node.bytes;
    return true;
}

bool BusQueue::mergeNotice(Notices& notices, const Event& event) {
    if (notices.count < kMostNotices)
        return false;
    Event& last = notices.last->event;
    if (event.state) {
        const tivra::DataState from = last.state->from;
        last.state = event.state;
        last.state->from = from;
    } else {
        const auto addTo = [](std::optional<std::uint64_t>& sum, const std::optional<std::uint64_t>& more) {
            sum = sum && more ? std::optional(*sum + *more) : std::nullopt;
        };
        last.gap->from = std::min(last.gap->from, event.gap->from); // a loss may be noticed late
        last.gap->to = std::max(last.gap->to, event.gap->to);
        addTo(last.gap->messages, event.gap->messages);
        addTo(last.gap->bytes, event.gap->bytes);
    }
    last.received = event.received;
    ++last.merged;
    return true;
}

void BusQueue::dropOldest() {
    const auto oldest =
        std::find_if(m_nodes.begin(), m_nodes.end(), [](const Node& node) { return node.isUpdate; });
    Lane& lane = m_lanes[{oldest->event.source, oldest->event.symbol}];
    const std::uint64_t count = 1 + oldest->event.merged;
    lane.dropped += count;
    lane.droppedAt = oldest->order;
    m_figures.dropped += count;
    m_figures.merged -= oldest->event.merged;
    if (lane.hasLast && lane.last == oldest)
        lane.hasLast = false;
    forget(lane, *oldest);
    m_nodes.erase(oldest);
}

void BusQueue::forget(Lane& lane, const Node& node) {
    --lane.waiting;
    m_bytes -= node.bytes;
    m_figures.updates -= node.isUpdate ? 1 : 0;
}

void BusQueue::waitForRoom(std::uint64_t order) {
    const tp::MutexLock lock(m_mutex);
    while (m_options.policy == tivra::QueuePolicy::Block && !m_isWaitingOver && order > m_passes &&
           (m_figures.updates >= m_options.maxUpdates || m_bytes >= m_options.maxBytes))
        m_hasRoom.wait(m_mutex);
}

void BusQueue::letPass() {
    const tp::MutexLock lock(m_mutex);
    m_passes = m_order;
    m_hasRoom.notifyAll();
}

void BusQueue::endWaiting() {
    const tp::MutexLock lock(m_mutex);
    m_isWaitingOver = true;
    m_hasRoom.notifyAll();
}

std::size_t BusQueue::poll(std::size_t most, const Handler& handler) {
    std::size_t count = 0;
    for (; count < most; ++count) {
        Nodes taken;
        {
            const tp::MutexLock lock(m_mutex);
            if (m_nodes.empty())
                break;
            taken.splice(taken.begin(), m_nodes, m_nodes.begin());
            Node& node = taken.front();
            const auto place = m_lanes.find({node.event.source, node.event.symbol});
            Lane& lane = place->second;
            if (lane.hasLast && lane.last == taken.begin())
                lane.hasLast = false;
            if (!node.isUpdate)
                --lane.noticesOf(node.event).count;
            // A state may have come before what was dropped.
            if (lane.dropped != 0 && node.isUpdate && node.order > lane.droppedAt)
                node.event.dropped = std::exchange(lane.dropped, 0);
            forget(lane, node);
            // Symbols may come and go for as long as the queue lives.
            if (lane.waiting == 0 && lane.dropped == 0 && node.event.state &&
                node.event.state->to == tivra::DataState::Closed)
                m_lanes.erase(place);
            m_figures.events = m_nodes.size();
            m_descriptor.set(!m_nodes.empty());
            m_hasRoom.notifyAll();
        }
        handler(std::move(taken.front().event));
    }
    return count;
}

bool BusQueue::wait(std::chrono::nanoseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    const tp::MutexLock lock(m_mutex);
    while (m_nodes.empty())
        if (!m_hasEvents.waitUntil(m_mutex, deadline))
            break;
    return !m_nodes.empty();
}

int BusQueue::descriptor() {
    const tp::MutexLock lock(m_mutex);
    return m_descriptor.get(!m_nodes.empty());
}

EventQueueFigures BusQueue::figures() const {
    const tp::MutexLock lock(m_mutex);
    return m_figures;
}

} // namespace tivra_python
