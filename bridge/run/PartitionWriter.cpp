#include "run/PartitionWriter.h"

#include "run/StateNames.h"

#include <algorithm>

namespace tivra_bus {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kFirstPause{100};
constexpr int kMostDoublings = 6;
/// Kept free of the largest message, for header and headers.
constexpr std::size_t kHeaderRoom = 1024;

std::string timeText(std::chrono::system_clock::time_point time = std::chrono::system_clock::now()) {
    std::string text;
    appendTime(text, time);
    return text;
}

} // namespace

PartitionWriter::PartitionWriter(unsigned partition, std::uint64_t epoch, const StreamEnd& end,
                                 BusPublisher& publisher, const WriterOptions& options,
                                 WriterCounters& counters)
    : m_partition(partition)
    , m_epoch(epoch)
    , m_publisher(publisher)
    , m_options(options)
    , m_counters(counters)
    , m_position(end.position)
    , m_chance(static_cast<unsigned>(epoch * 31 + partition)) {
    const tp::MutexLock lock(m_mutex);
    // What the writer before has still got, and whether there was one, nobody knows.
    const std::string now = timeText();
    addGap(nullptr, {"takeover", now, now, std::nullopt, std::nullopt});
    closeBatch();
}

PartitionWriter::~PartitionWriter() {
    const tp::MutexLock lock(m_mutex);
    fence();
}

tivra::SubscriptionHandlers PartitionWriter::handlers() {
    const std::shared_ptr<PartitionWriter> self = shared_from_this();
    const tivra::SubscriptionHandlers board = m_board.handlers();
    tivra::SubscriptionHandlers handlers;
    handlers.onUpdate = [self, board](const tivra::Update& update) {
        board.onUpdate(update);
        self->take(update);
    };
    handlers.onState = [self, board](const tivra::SubscriptionView& view, const tivra::StateChange& change) {
        board.onState(view, change);
        self->take(view, change);
    };
    handlers.onGap = [self, board](const tivra::SubscriptionView& view, const tivra::Gap& gap) {
        board.onGap(view, gap);
        self->take(view, gap);
    };
    return handlers;
}

std::uint64_t& PartitionWriter::numberOf(int source, std::string_view symbol) {
    const auto found = m_numbers.find(SymbolLook{source, symbol});
    if (found != m_numbers.end())
        return found->second;
    return m_numbers.emplace(SymbolKey{source, std::string(symbol)}, 0).first->second;
}

bool PartitionWriter::isFull() const {
    return m_counters.waitingBytes.load(std::memory_order_relaxed) >= m_options.bufferBytes;
}

void PartitionWriter::take(const tivra::Update& update) {
    const tp::MutexLock lock(m_mutex);
    m_counters.updates.fetch_add(1, std::memory_order_relaxed);
    const RecordKey key{update.source(), update.symbol(), ++numberOf(update.source(), update.symbol())};
    if (m_isFenced)
        return;
    if (m_leftOut > 0 || isFull()) {
        leaveOut(key.source, key.symbol);
        return;
    }
    constexpr RecordType kTypes[]{RecordType::Image, RecordType::Update, RecordType::Refresh};
    m_open.add(kTypes[static_cast<int>(update.kind())], key, update);
    if (m_options.sendsLive)
        m_publisher.sendLive(key.source, key.symbol, m_open.lastRecord());
    added(key);
}

void PartitionWriter::take(const tivra::SubscriptionView& view, const tivra::StateChange& change) {
    const tp::MutexLock lock(m_mutex);
    if (m_isFenced)
        return;
    const RecordKey key{view.source(), view.symbol(), numberOf(view.source(), view.symbol())};
    m_open.addState(key, nameOf(change.to), change.cause);
    added(key);
}

void PartitionWriter::take(const tivra::SubscriptionView& view, const tivra::Gap& gap) {
    const tp::MutexLock lock(m_mutex);
    if (m_isFenced)
        return;
    const RecordKey key{view.source(), view.symbol(), numberOf(view.source(), view.symbol())};
    addGap(&key, {nameOf(gap.cause), timeText(gap.from), timeText(gap.to), gap.messages, gap.bytes});
}

void PartitionWriter::addGap(const RecordKey* key, const BusGap& gap) {
    m_open.addGap(key, gap);
    m_counters.gaps.fetch_add(1, std::memory_order_relaxed);
    added(key != nullptr ? *key : RecordKey{});
}

void PartitionWriter::added(const RecordKey& key) {
    if (m_open.lastBytes() + kHeaderRoom > m_options.maxMessage) {
        // No message can hold it, so its place is told.
        m_open.removeLast();
        const std::string now = timeText();
        m_counters.dropped.fetch_add(1, std::memory_order_relaxed);
        addGap(&key, {"overflow", now, now, 1, std::nullopt});
        return;
    }
    if (m_open.count() == 1)
        m_openSince = Clock::now();
    m_counters.waitingBytes.fetch_add(m_open.lastBytes(), std::memory_order_relaxed);
    if (m_open.bytes() >= m_options.batchBytes) {
        closeBatch();
        sendNext(Clock::now());
    }
}

void PartitionWriter::leaveOut(int source, std::string_view symbol) {
    if (m_leftOut++ == 0)
        m_leftOutSince = timeText();
    m_counters.dropped.fetch_add(1, std::memory_order_relaxed);
    m_leftOutSymbols.emplace(source, symbol);
}

void PartitionWriter::endOverflow() {
    const std::uint64_t messages = std::exchange(m_leftOut, 0);
    addGap(nullptr, {"overflow", m_leftOutSince, timeText(), messages, std::nullopt});
    for (const auto& [source, symbol] : std::exchange(m_leftOutSymbols, {})) {
        const std::optional<tivra::BoardRow> row = m_board.find(source, symbol);
        if (!row)
            continue;
        const RecordKey key{source, symbol, row->updates};
        m_open.add(RecordType::Refresh, key, row->values);
        added(key);
    }
}

void PartitionWriter::closeBatch() {
    Closed closed;
    closed.bytes = m_open.bytes();
    closed.records = m_open.count();
    closed.number = ++m_lastBatch;
    BatchHeader header;
    header.partition = m_partition;
    header.epoch = m_epoch;
    header.batch = closed.number;
    header.dictionary = m_options.dictionary;
    header.time = timeText();
    closed.message = m_open.close(std::move(header));
    m_closed.push_back(std::move(closed));
}

void PartitionWriter::sendNext(Clock::time_point now) {
    if (m_isSending || m_needsLook || m_isFenced || m_closed.empty() || now < m_sendAfter)
        return;
    m_isSending = true;
    if (m_failures > 0)
        m_counters.resent.fetch_add(1, std::memory_order_relaxed);
    const Closed& batch = m_closed.front();
    m_publisher.sendBatch(m_partition, batch.message, m_position,
                          [weak = weak_from_this(), number = batch.number](const SendResult& result) {
                              if (const std::shared_ptr<PartitionWriter> self = weak.lock())
                                  self->answered(number, result);
                          });
}

void PartitionWriter::pump(Clock::time_point now) {
    const tp::MutexLock lock(m_mutex);
    if (m_isFenced)
        return;
    if (m_leftOut > 0 && m_counters.waitingBytes.load(std::memory_order_relaxed) < m_options.bufferBytes / 2)
        endOverflow();
    if (m_closed.empty() && m_open.count() > 0 && now - m_openSince >= m_options.linger)
        closeBatch();
    sendNext(now);
}

void PartitionWriter::stored(std::uint64_t position) {
    const Closed& batch = m_closed.front();
    m_position = position;
    m_storedBatch = batch.number;
    m_counters.batches.fetch_add(1, std::memory_order_relaxed);
    m_counters.records.fetch_add(batch.records, std::memory_order_relaxed);
    m_counters.bytes.fetch_add(batch.message.size(), std::memory_order_relaxed);
    m_counters.waitingBytes.fetch_sub(batch.bytes, std::memory_order_relaxed);
    m_closed.pop_front();
    m_isSending = false;
    m_failures = 0;
    m_sendAfter = {};
}

void PartitionWriter::answered(std::uint64_t number, const SendResult& result) {
    const tp::MutexLock lock(m_mutex);
    if (!m_isSending || m_closed.empty() || m_closed.front().number != number)
        return;
    const Clock::time_point now = Clock::now();
    switch (result.outcome) {
    case SendResult::Outcome::Stored:
        stored(result.position);
        if (m_closed.empty() && m_open.count() > 0 && now - m_openSince >= m_options.linger)
            closeBatch();
        sendNext(now);
        break;
    case SendResult::Outcome::Conflict:
        m_counters.conflicts.fetch_add(1, std::memory_order_relaxed);
        m_isSending = false;
        m_needsLook = true;
        break;
    case SendResult::Outcome::Failed: {
        m_isSending = false;
        const milliseconds pause = kFirstPause * (1 << std::min(m_failures++, kMostDoublings));
        m_sendAfter = now + pause + pause * static_cast<int>(m_chance() % 50) / 100;
        break;
    }
    }
}

bool PartitionWriter::needsLook() const {
    const tp::MutexLock lock(m_mutex);
    return (m_needsLook || m_wantsLook) && !m_isFenced;
}

void PartitionWriter::askForLook() {
    const tp::MutexLock lock(m_mutex);
    m_wantsLook = true;
}

void PartitionWriter::looked(const StreamEnd& end) {
    const tp::MutexLock lock(m_mutex);
    m_wantsLook = false;
    const bool wasWaiting = std::exchange(m_needsLook, false);
    if (end.epoch > m_epoch) {
        m_counters.fenced.fetch_add(1, std::memory_order_relaxed);
        fence();
    } else if (!wasWaiting) {
        return; // what is on its way is still expected where it belongs
    } else if (end.epoch == m_epoch && !m_closed.empty() && end.batch == m_closed.front().number) {
        stored(end.position); // its acknowledgement was lost
    } else {
        m_position = end.position;
    }
    sendNext(Clock::now());
}

void PartitionWriter::fence() {
    m_isFenced = true;
    std::size_t bytes = m_open.bytes();
    for (const Closed& batch : m_closed)
        bytes += batch.bytes;
    m_counters.waitingBytes.fetch_sub(bytes, std::memory_order_relaxed);
    m_closed.clear();
    m_open = {};
}

bool PartitionWriter::isFenced() const {
    const tp::MutexLock lock(m_mutex);
    return m_isFenced;
}

bool PartitionWriter::isEstablished() const {
    const tp::MutexLock lock(m_mutex);
    return m_storedBatch > 0 && !m_isFenced;
}

bool PartitionWriter::isDrained() const {
    const tp::MutexLock lock(m_mutex);
    return m_isFenced || (m_closed.empty() && m_open.count() == 0 && m_leftOut == 0);
}

} // namespace tivra_bus
