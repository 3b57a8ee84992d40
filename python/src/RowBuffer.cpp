#include "RowBuffer.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "Values.h"

namespace tivra_python {
namespace {

/// What waits is dropped in so many steps at least.
constexpr std::size_t kBlocks = 4;

[[nodiscard]] RowKind rowKindOf(Event::Kind kind) noexcept {
    if (kind == Event::Kind::Image)
        return RowKind::Image;
    return kind == Event::Kind::Refresh ? RowKind::Refresh : RowKind::Update;
}

[[nodiscard]] RowKind rowKindOf(tivra::Update::Kind kind) noexcept {
    if (kind == tivra::Update::Kind::Image)
        return RowKind::Image;
    return kind == tivra::Update::Kind::Refresh ? RowKind::Refresh : RowKind::Update;
}

/// Whoever waits for data has to know: it may be all that comes.
[[nodiscard]] bool isUrgentNotice(const Event& notice) noexcept {
    return notice.gap || (notice.state && notice.state->to == tivra::DataState::Refused);
}

} // namespace

RowBuffer::RowBuffer(const RowFields& fields, const Limits& limits)
    : m_limits(limits)
    , m_blockRows(std::min(limits.batchRows, std::max<std::size_t>(limits.rows / kBlocks, 1)))
    , m_filler(fields) {}

template<class Values>
void RowBuffer::addRow(const RowHead& head, const Values& values) {
    if (m_filler.rows() == 0)
        m_open.first = head.received;
    m_open.last = head.received;
    m_filler.add(head, values);
    m_isAfterLoss = false;
    if (isBlockComplete()) {
        m_blocks.push_back(cut());
        m_waiting += m_blocks.back().rows->rows();
        m_bytes += m_blocks.back().rows->bytes();
    }
    while (m_limits.mayDrop && (rows() > m_limits.rows || m_bytes > m_limits.bytes) && !m_blocks.empty())
        dropOldest();
}

bool RowBuffer::isBlockComplete() const noexcept {
    constexpr std::size_t kLook = 256; // rows after which the bytes are looked at
    const std::size_t count = m_filler.rows();
    return count >= m_blockRows || m_filler.isFull() ||
           (count % kLook == 0 && m_filler.bytes() > m_limits.bytes / kBlocks);
}

void RowBuffer::add(const tivra::Update& update) {
    RowHead head;
    head.received = toNanoseconds(update.receivedAt());
    head.source = update.source();
    head.symbol = update.symbol();
    head.kind = rowKindOf(update.kind());
    head.isAfterGap = m_isAfterLoss || (!m_afterGap.empty() && takeGapMark(update.subscription().id()));
    addRow(head, update);
}

void RowBuffer::add(Event&& event) {
    if (event.state || event.gap) {
        noteGap(event);
        addNotice(std::move(event));
        return;
    }
    if (event.dropped != 0) {
        Event overflow;
        overflow.source = event.source;
        overflow.symbol = event.symbol;
        overflow.dropped = event.dropped;
        addNotice(std::move(overflow));
    }
    RowHead head;
    head.received = event.received;
    head.source = event.source;
    head.symbol = event.symbol;
    head.kind = rowKindOf(event.kind);
    head.isAfterGap = takeGapMark(event.subscription) || event.dropped != 0 || m_isAfterLoss;
    addRow(head, event.record);
}

bool RowBuffer::takeGapMark(std::uint64_t subscription) {
    return m_afterGap.erase(subscription) != 0;
}

void RowBuffer::noteGap(const Event& event) {
    if (event.gap || event.dropped != 0)
        m_afterGap.insert(event.subscription);
    else if (event.state->to == tivra::DataState::Closed)
        m_afterGap.erase(event.subscription);
}

void RowBuffer::addNotice(Event&& notice) {
    // Of what nobody reads for long, states are told by the subscriptions, and gaps are counted.
    constexpr std::size_t kMostNotices = 100'000;
    if (m_noticeCount < kMostNotices) {
        const std::size_t urgent = isUrgentNotice(notice) ? 1 : 0;
        m_open.notices.push_back({m_filler.rows(), std::move(notice)});
        m_open.urgent += urgent;
        m_urgentCount += urgent;
        ++m_noticeCount;
    } else if (notice.gap) {
        ++m_open.loss.gaps;
    } else {
        m_open.loss.rows += notice.dropped;
    }
}

RowBlock RowBuffer::cut() {
    RowBlock block = std::exchange(m_open, {});
    block.rows = m_filler.finish();
    return block;
}

/// What stands among the rows goes on to those that follow.
void RowBuffer::dropOldest() {
    RowBlock oldest = std::move(m_blocks.front());
    m_blocks.pop_front();
    const std::size_t count = oldest.rows->rows();
    m_waiting -= count;
    m_bytes -= oldest.rows->bytes();
    m_dropped += count;

    RowBlock& next = m_blocks.empty() ? m_open : m_blocks.front();
    next.loss.from = oldest.loss.rows != 0 ? oldest.loss.from : oldest.first;
    next.loss.to = oldest.last;
    next.loss.rows += oldest.loss.rows + count;
    next.loss.gaps += oldest.loss.gaps;
    for (RowBlock::Notice& notice : oldest.notices)
        notice.row = 0;
    next.notices.insert(next.notices.begin(), std::make_move_iterator(oldest.notices.begin()),
                        std::make_move_iterator(oldest.notices.end()));
    next.urgent += oldest.urgent;
}

RowBlock RowBuffer::take() {
    RowBlock block;
    if (m_blocks.empty()) {
        block = cut();
    } else {
        block = std::move(m_blocks.front());
        m_blocks.pop_front();
        m_waiting -= block.rows->rows();
        m_bytes -= block.rows->bytes();
    }
    if (block.loss.rows != 0) {
        if (block.rows->rows() != 0)
            block.rows->markGapAtStart();
        else
            m_isAfterLoss = true;
    }
    m_noticeCount -= block.notices.size();
    m_urgentCount -= block.urgent;
    return block;
}

} // namespace tivra_python
