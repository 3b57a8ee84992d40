#include "run/PartitionWriter.h"

#include "bus/JsonRecords.h"
#include "bus/JsonText.h"
#include "run/StateNames.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace tivra_bus {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kFirstPause{100};
constexpr int kMostDoublings = 6;
/// Kept free of the largest message, for header and headers.
constexpr std::size_t kHeaderRoom = 1024;
/// Present values that are written in one go, so that the thread that sends has other work done too.
constexpr int kRepairsAtOnce = 256;

std::string timeText(std::chrono::system_clock::time_point time = std::chrono::system_clock::now()) {
    std::string text;
    appendTime(text, time);
    return text;
}

/// Another one each time.
std::string anyName() {
    std::random_device chance;
    return fmt::format("{:08x}{:08x}", chance(), chance());
}

WriterOptions fitting(WriterOptions options) {
    options.maxMessage = std::max(options.maxMessage, 2 * kHeaderRoom) - kHeaderRoom;
    options.batchBytes = std::min(options.batchBytes, options.maxMessage);
    return options;
}

} // namespace

PartitionWriter::PartitionWriter(unsigned partition, std::uint64_t epoch, const StreamEnd& end,
                                 BusPublisher& publisher, const WriterOptions& options,
                                 std::shared_ptr<WriterCounters> counters, std::shared_ptr<FieldNames> names,
                                 std::shared_ptr<SendBell> bell)
    : m_partition(partition)
    , m_epoch(epoch)
    , m_writer(anyName())
    , m_publisher(publisher)
    , m_options(fitting(options))
    , m_counters(std::move(counters))
    , m_names(std::move(names))
    , m_bell(std::move(bell))
    , m_room(options.bufferBytes)
    , m_open(openBatch(m_options.payload, m_options.batchBytes))
    , m_position(end.position)
    , m_chance(static_cast<unsigned>(epoch * 31 + partition)) {
    const tp::MutexLock lock(m_mutex);
    // What the writer before has still got, and whether there was one, nobody knows.
    const std::string now = timeText();
    addGap(nullptr, {"takeover", end.time.empty() ? now : end.time, now, std::nullopt, std::nullopt});
    closeBatch();
}

PartitionWriter::~PartitionWriter() {
    const tp::MutexLock lock(m_mutex);
    fence("it is ended");
}

tivra::SubscriptionHandlers PartitionWriter::handlers() {
    const std::shared_ptr<PartitionWriter> self = shared_from_this();
    tivra::SubscriptionHandlers handlers;
    handlers.onUpdate = [self](const tivra::Update& update) { self->take(update); };
    handlers.onState = [self](const tivra::SubscriptionView& view, const tivra::StateChange& change) {
        self->take(view, change);
    };
    handlers.onGap = [self](const tivra::SubscriptionView& view, const tivra::Gap& gap) {
        self->take(view, gap);
    };
    return handlers;
}

void PartitionWriter::take(const tivra::Update& update) {
    const tivra::SubscriptionView subscription = update.subscription();
    const tp::MutexLock lock(m_mutex);
    m_counters->updates.fetch_add(1, std::memory_order_relaxed);
    SymbolSlot& slot = m_slots.of(subscription);
    // What was left out before is written first, with the values as they are without this update.
    const bool hasRoom = makeWay(slot);
    ++slot.number;
    slot.lastUpdate = subscription.statistics().lastUpdate;
    RecordType type = RecordType::Update;
    if (update.kind() == tivra::Update::Kind::Refresh)
        type = RecordType::Refresh;
    else if (update.kind() == tivra::Update::Kind::Image && !std::exchange(slot.hasImage, true))
        type = RecordType::Image;
    slot.image.apply(update, type == RecordType::Image, m_options.maxMessage, *m_names, m_change);
    noteChange(slot);
    if (m_isFenced)
        return;
    if (hasRoom && !isFull())
        add(type, slot, update);
    else
        leaveOut(slot, 1);
}

void PartitionWriter::add(RecordType type, SymbolSlot& slot, const tivra::Update& update) {
    const RecordKey key{slot.name.source, slot.name.symbol, slot.number};
    const ValuesRecord record{type, slot.name, slot.number, slot.image, &m_change, &update};
    addFitting([&record](OpenBatch& batch) { batch.add(record); });
    if (m_options.sendsLive && !m_live.add(key.source, key.symbol, aloneText(record)))
        m_counters->liveDropped.fetch_add(1, std::memory_order_relaxed);
    added(key);
}

template<class Add>
void PartitionWriter::addFitting(const Add& add) {
    add(*m_open);
    if (m_open->count() == 1 || m_open->messageBytes() <= m_options.maxMessage)
        return;
    // What it needs of the batch stays there, so it is written anew.
    m_open->removeLast();
    closeBatch();
    add(*m_open);
}

std::string PartitionWriter::aloneText(const ValuesRecord& record) const {
    if (const auto line = m_open->lastLine())
        return std::string(*line);
    std::string text;
    BatchFields fields;
    JsonRecords().append(text, record, fields);
    return text;
}

void PartitionWriter::noteChange(SymbolSlot& slot) {
    if (slot.number > 0 && !std::exchange(slot.isChanged, true))
        m_changed.push_back(slot.index);
}

std::vector<std::uint32_t> PartitionWriter::takeChanged() {
    const tp::MutexLock lock(m_mutex);
    for (const std::uint32_t index : m_changed)
        m_slots[index].isChanged = false;
    return std::exchange(m_changed, {});
}

const SymbolName& PartitionWriter::nameAt(std::uint32_t index) {
    const tp::MutexLock lock(m_mutex);
    return m_slots[index].name;
}

std::string PartitionWriter::lastValuesAt(std::uint32_t index) {
    const tp::MutexLock lock(m_mutex);
    const SymbolSlot& slot = m_slots[index];
    if (slot.image.isCut())
        return {};
    return lastMessage(slot.name, slot.number, m_epoch, nameOf(slot.state),
                       timeText(slot.lastUpdate.value_or(std::chrono::system_clock::now())), slot.image);
}

std::optional<tivra::DataState> PartitionWriter::stateOf(int source, std::string_view symbol) const {
    const tp::MutexLock lock(m_mutex);
    const SymbolSlot* const slot = m_slots.find(source, symbol);
    return slot != nullptr ? std::optional(slot->state) : std::nullopt;
}

void PartitionWriter::endTaking() {
    const tp::MutexLock lock(m_mutex);
    m_endOfTaking = timeText();
}

void PartitionWriter::setClosed() {
    const tp::MutexLock lock(m_mutex);
    for (SymbolSlot& slot : m_slots) {
        slot.state = tivra::DataState::Closed;
        noteChange(slot);
    }
}

bool PartitionWriter::makeWay(SymbolSlot& slot) {
    if (m_isFenced || m_isOverflowing || isFull())
        return false;
    if (slot.isLeftOut)
        repair(slot);
    return true;
}

void PartitionWriter::take(const tivra::SubscriptionView& view, const tivra::StateChange& change) {
    const tp::MutexLock lock(m_mutex);
    SymbolSlot& slot = m_slots.of(view);
    slot.state = change.to;
    noteChange(slot);
    // The next image replaces what came before, as it does for whoever reads the hub.
    if (change.to == tivra::DataState::Stale || change.to == tivra::DataState::Recovering)
        slot.hasImage = false;
    if (!makeWay(slot)) {
        leaveOut(slot, 0);
        return;
    }
    const RecordKey key{slot.name.source, slot.name.symbol, slot.number};
    addFitting([&](OpenBatch& batch) { batch.addState(key, nameOf(change.to), change.cause); });
    added(key);
}

void PartitionWriter::take(const tivra::SubscriptionView& view, const tivra::Gap& gap) {
    const tp::MutexLock lock(m_mutex);
    SymbolSlot& slot = m_slots.of(view);
    slot.hasImage = false;
    if (!makeWay(slot)) {
        leaveOut(slot, gap.messages);
        return;
    }
    const RecordKey key{slot.name.source, slot.name.symbol, slot.number};
    addGap(&key, {nameOf(gap.cause), timeText(gap.from), timeText(gap.to), gap.messages, gap.bytes});
}

void PartitionWriter::addGap(const RecordKey* key, const BusGap& gap) {
    addFitting([&](OpenBatch& batch) { batch.addGap(key, gap); });
    m_counters->gaps.fetch_add(1, std::memory_order_relaxed);
    added(key != nullptr ? *key : RecordKey{});
}

void PartitionWriter::added(const RecordKey& key) {
    if (m_open->count() == 1 && m_open->messageBytes() > m_options.maxMessage) {
        // No message can hold it, so a gap stands in its place.
        m_open->removeLast();
        const std::string now = timeText();
        m_counters->dropped.fetch_add(1, std::memory_order_relaxed);
        addGap(&key, {"overflow", now, now, 1, std::nullopt});
        return;
    }
    countOpen();
    if (m_open->count() == 1)
        m_openSince = Clock::now();
    if (m_open->bytes() >= m_options.batchBytes)
        closeBatch();
}

void PartitionWriter::addBytes(std::size_t bytes) {
    m_waitingBytes += bytes;
    m_counters->waitingBytes.fetch_add(bytes, std::memory_order_relaxed);
}

void PartitionWriter::countOpen() {
    const std::size_t bytes = m_open->bytes();
    addBytes(bytes - m_openBytes);
    m_openBytes = bytes;
}

void PartitionWriter::removeBytes(std::size_t bytes) {
    m_waitingBytes -= bytes;
    m_counters->waitingBytes.fetch_sub(bytes, std::memory_order_relaxed);
}

bool PartitionWriter::isFull() const {
    return m_waitingBytes >= m_room.load(std::memory_order_relaxed);
}

void PartitionWriter::leaveOut(SymbolSlot& slot, std::optional<std::uint64_t> messages) {
    if (m_isFenced)
        return;
    if (!std::exchange(m_isOverflowing, true))
        m_leftOutSince = timeText();
    m_counters->dropped.fetch_add(messages.value_or(0), std::memory_order_relaxed);
    if (m_leftOut)
        m_leftOut = messages ? std::optional(*m_leftOut + *messages) : std::nullopt;
    queueRepair(slot);
}

void PartitionWriter::queueRepair(SymbolSlot& slot) {
    slot.isLeftOut = true;
    if (!std::exchange(slot.isQueued, true))
        m_unrepaired.push_back(&slot);
}

void PartitionWriter::endOverflow() {
    m_isOverflowing = false;
    addGap(nullptr, {"overflow", m_leftOutSince, timeText(), std::exchange(m_leftOut, 0), std::nullopt});
}

void PartitionWriter::repair(SymbolSlot& slot) {
    slot.isLeftOut = false;
    const RecordKey key{slot.name.source, slot.name.symbol, slot.number};
    addFitting([&](OpenBatch& batch) { batch.addState(key, nameOf(slot.state), "after an overflow"); });
    added(key);
    if (slot.image.isCut()) {
        // Nor does the engine take all of it in one message.
        const std::string now = timeText();
        addGap(&key, {"overflow", now, now, std::nullopt, std::nullopt});
    } else if (!slot.image.entries().empty()) {
        const ValuesRecord record{RecordType::Image, slot.name, slot.number, slot.image};
        addFitting([&record](OpenBatch& batch) { batch.add(record); });
        added(key);
    }
}

void PartitionWriter::repairSome() {
    for (int i = 0; i < kRepairsAtOnce; ++i) {
        const tp::MutexLock lock(m_mutex);
        if (m_isOverflowing || m_unrepaired.empty() || m_isFenced || isFull())
            return;
        SymbolSlot& slot = *m_unrepaired.front();
        m_unrepaired.pop_front();
        slot.isQueued = false;
        if (slot.isLeftOut)
            repair(slot);
    }
}

PartitionWriter::Closed PartitionWriter::closed(OpenBatch& records, std::uint64_t number) const {
    Closed closed;
    closed.bytes = records.bytes();
    closed.records = records.count();
    closed.number = number;
    BatchHeader header;
    header.partition = m_partition;
    header.epoch = m_epoch;
    header.batch = number;
    header.dictionary = m_dictionary.load(std::memory_order_relaxed);
    header.writer = m_writer;
    // What comes later is missing, however late the batch is closed: the gap after it begins here.
    header.time = m_endOfTaking.empty() ? timeText() : m_endOfTaking;
    closed.batch = std::make_shared<ClosedBatch>(records.close(std::move(header)));
    return closed;
}

void PartitionWriter::closeBatch() {
    countOpen();
    m_openBytes = 0;
    m_closed.push_back(closed(*m_open, ++m_lastBatch));
}

void PartitionWriter::replaceFront() {
    const Closed front = std::move(m_closed.front());
    const std::string now = timeText();
    const std::unique_ptr<OpenBatch> records = openBatch(m_options.payload, 0);
    records->addGap(nullptr, {"overflow", now, now, front.records, std::nullopt});
    m_closed.front() = closed(*records, front.number);
    addBytes(m_closed.front().bytes);
    removeBytes(front.bytes);
    m_counters->dropped.fetch_add(front.records, std::memory_order_relaxed);
    m_counters->gaps.fetch_add(1, std::memory_order_relaxed);
    // Which symbols were in it isn't kept.
    for (SymbolSlot& slot : m_slots)
        queueRepair(slot);
}

PartitionWriter::Sending PartitionWriter::nextToSend(Clock::time_point now) {
    if (m_isSending || m_needsLook || m_closed.empty() || now < m_sendAfter)
        return {};
    m_isSending = true;
    if (m_failures > 0)
        m_counters->resent.fetch_add(1, std::memory_order_relaxed);
    return {m_closed.front().batch, m_closed.front().number, m_position};
}

void PartitionWriter::pump(Clock::time_point now) {
    Sending sending;
    std::vector<LiveRecords::Record> live;
    // What can't be written anywhere would only be kept by the connection, and come late.
    const bool isConnected = m_publisher.isConnected();
    {
        const tp::MutexLock lock(m_mutex);
        if (m_isFenced)
            return;
        if (m_isOverflowing && m_waitingBytes < m_room.load(std::memory_order_relaxed) / 2)
            endOverflow();
        if (m_closed.empty() && m_open->count() > 0 && now - m_openSince >= m_options.linger)
            closeBatch();
        if (isConnected)
            sending = nextToSend(now);
        live = m_live.takeAll();
    }
    repairSome();
    if (sending.batch != nullptr)
        m_publisher.sendBatch(m_partition, sending.batch->message(), sending.expected,
                              {weak_from_this(), sending.number});
    for (const LiveRecords::Record& record : live)
        if (isConnected)
            m_publisher.sendLive(record.source, record.symbol, record.text);
        else
            m_counters->liveDropped.fetch_add(1, std::memory_order_relaxed);
}

void PartitionWriter::stored(std::uint64_t position) {
    Closed& front = m_closed.front();
    m_position = position;
    m_storedBatch = front.number;
    m_counters->batches.fetch_add(1, std::memory_order_relaxed);
    m_counters->records.fetch_add(front.records, std::memory_order_relaxed);
    m_counters->bytes.fetch_add(front.batch->message().size(), std::memory_order_relaxed);
    removeBytes(front.bytes);
    if (front.batch.use_count() == 1)
        m_open->reuse(std::move(front.batch->buffer));
    m_closed.pop_front();
    m_isSending = false;
    m_failures = 0;
    m_trouble.clear();
    m_sendAfter = {};
}

void PartitionWriter::failed(const SendResult& result) {
    m_isSending = false;
    m_trouble = "the engine doesn't take a batch: " + result.cause;
    const milliseconds pause = kFirstPause * (1 << std::min(m_failures++, kMostDoublings));
    m_sendAfter = Clock::now() + pause + pause * static_cast<int>(m_chance() % 50) / 100;
}

void PartitionWriter::sent(std::uint64_t tag, const SendResult& result) {
    bool isMoreWaiting = false;
    {
        const tp::MutexLock lock(m_mutex);
        if (!m_isSending || m_closed.empty() || m_closed.front().number != tag)
            return;
        switch (result.outcome) {
        case SendResult::Outcome::Stored:
            stored(result.position);
            isMoreWaiting = !m_closed.empty();
            break;
        case SendResult::Outcome::Conflict:
            m_counters->conflicts.fetch_add(1, std::memory_order_relaxed);
            m_isSending = false;
            m_needsLook = true;
            break;
        case SendResult::Outcome::TooBig:
            failed(result);
            replaceFront();
            break;
        case SendResult::Outcome::Failed:
            failed(result);
            break;
        }
    }
    if (isMoreWaiting)
        m_bell->ring();
}

bool PartitionWriter::isHeldUp() const {
    const tp::MutexLock lock(m_mutex);
    return m_isSending && m_closed.size() > 1;
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
    const auto isEnd = [&end, this](std::uint64_t batch) {
        return end.epoch == m_epoch && end.writer == m_writer && end.batch == batch;
    };
    if (m_isFenced)
        return;
    if (end.epoch > m_epoch) {
        fence("another bridge writes it");
    } else if (end.epoch == m_epoch && end.writer != m_writer) {
        // Servers of a cluster may have given the lease to both.
        fence("another bridge has begun the same epoch");
    } else if (!wasWaiting) {
        return; // what is on its way is still expected where it belongs
    } else if (!m_closed.empty() && isEnd(m_closed.front().number)) {
        stored(end.position); // its acknowledgement was lost
    } else if (m_storedBatch > 0 && !isEnd(m_storedBatch)) {
        // What was acknowledged is gone, or something else has come after it.
        fence("its stream doesn't end with the batch that was acknowledged last");
    } else {
        m_position = end.position;
    }
}

void PartitionWriter::fence(std::string why) {
    if (std::exchange(m_isFenced, true))
        return;
    m_trouble = std::move(why);
    removeBytes(m_waitingBytes);
    m_closed.clear();
    m_unrepaired.clear();
    m_open = openBatch(m_options.payload, 0);
    m_openBytes = 0;
    (void)m_live.takeAll();
}

bool PartitionWriter::isFenced() const {
    const tp::MutexLock lock(m_mutex);
    return m_isFenced;
}

std::string PartitionWriter::trouble() const {
    const tp::MutexLock lock(m_mutex);
    return m_trouble;
}

bool PartitionWriter::isEstablished() const {
    const tp::MutexLock lock(m_mutex);
    return m_storedBatch > 0 && !m_isFenced;
}

bool PartitionWriter::isDrained() const {
    const tp::MutexLock lock(m_mutex);
    const auto isRepaired = [](const SymbolSlot* slot) { return !slot->isLeftOut; };
    return m_isFenced || (m_closed.empty() && m_open->count() == 0 && !m_isOverflowing &&
                          std::all_of(m_unrepaired.begin(), m_unrepaired.end(), isRepaired));
}

} // namespace tivra_bus
