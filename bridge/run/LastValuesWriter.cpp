#include "run/LastValuesWriter.h"

#include <algorithm>
#include <utility>

namespace tivra_bus {

namespace {

using std::chrono::milliseconds;

/// Of a partition: the engine answers them one after the other, and what waits here can still change.
constexpr std::size_t kMostInFlight = 256;
constexpr milliseconds kFirstValuePause{100};
constexpr int kMostValueDoublings = 6;

} // namespace

LastValuesWriter::LastValuesWriter(std::shared_ptr<PartitionWriter> writer, BusPublisher& publisher,
                                   std::shared_ptr<WriterCounters> counters)
    : m_writer(std::move(writer)), m_publisher(publisher), m_counters(std::move(counters)) {}

void LastValuesWriter::wait(std::uint32_t index) {
    if (!m_symbols[index].isBusy)
        m_waiting.push_back(index);
}

void LastValuesWriter::note(std::uint32_t index) {
    if (index >= m_symbols.size())
        m_symbols.resize(index + 1);
    if (!std::exchange(m_symbols[index].isChanged, true))
        wait(index);
}

std::vector<std::uint32_t> LastValuesWriter::start(Clock::time_point now) {
    std::vector<std::uint32_t> started;
    const tp::MutexLock lock(m_mutex);
    // Before its own first batch is stored, the writer before may still be writing.
    if (now < m_sendAfter || !m_writer->isEstablished() || m_writer->needsLook())
        return started;
    for (; m_inFlight < kMostInFlight && !m_waiting.empty(); m_waiting.pop_front()) {
        Symbol& symbol = m_symbols[m_waiting.front()];
        symbol.isBusy = true;
        symbol.isFinding = !symbol.position;
        // What changes from now on is sent once more.
        symbol.isChanged = symbol.isFinding;
        ++m_inFlight;
        started.push_back(m_waiting.front());
    }
    return started;
}

void LastValuesWriter::send(std::uint32_t index) {
    const SymbolName& name = m_writer->nameAt(index);
    std::optional<std::uint64_t> expected;
    {
        const tp::MutexLock lock(m_mutex);
        expected = m_symbols[index].position;
    }
    const SendTicket ticket{weak_from_this(), index};
    if (!expected) {
        m_publisher.findLast(name.source, name.symbol, ticket);
        return;
    }
    const std::string message = m_writer->lastValuesAt(index);
    if (message.empty())
        sent(index, {SendResult::Outcome::TooBig, 0, 0, {}});
    else
        m_publisher.sendLast(name.source, name.symbol, message, *expected, ticket);
}

void LastValuesWriter::pump(Clock::time_point now, bool isDue) {
    if (!m_writer->isEstablished() || !m_publisher.isConnected())
        return;
    bool isSettling = false;
    {
        const tp::MutexLock lock(m_mutex);
        isSettling = m_isSettling;
    }
    if (isDue || isSettling) {
        const std::vector<std::uint32_t> changed = m_writer->takeChanged();
        const tp::MutexLock lock(m_mutex);
        for (const std::uint32_t index : changed)
            note(index);
    }
    for (const std::uint32_t index : start(now))
        send(index);
    const tp::MutexLock lock(m_mutex);
    m_isSettled = isSettling && m_inFlight == 0 && m_waiting.empty();
}

void LastValuesWriter::sent(std::uint64_t tag, const SendResult& result) {
    using Outcome = SendResult::Outcome;
    // If the stream is still this writer's then, what stands there is of a stream that is gone, and is
    // replaced.
    if (result.outcome == Outcome::Stored && result.epoch > m_writer->epoch())
        m_writer->askForLook();
    const tp::MutexLock lock(m_mutex);
    if (tag >= m_symbols.size() || !m_symbols[tag].isBusy)
        return;
    Symbol& symbol = m_symbols[tag];
    symbol.isBusy = false;
    --m_inFlight;
    m_failures = result.outcome == Outcome::Failed ? m_failures + 1 : 0;
    const bool isStored = result.outcome == Outcome::Stored;
    if (isStored)
        symbol.position = result.position;
    else if (result.outcome == Outcome::Conflict)
        symbol.position.reset();                // it is looked at before it is replaced
    else if (result.outcome == Outcome::Failed) // stored or not; if it is, the next one meets a conflict
        m_sendAfter = Clock::now() + kFirstValuePause * (1 << std::min(m_failures - 1, kMostValueDoublings));
    symbol.isChanged = symbol.isChanged || !(isStored || result.outcome == Outcome::TooBig);
    if (symbol.isChanged)
        wait(static_cast<std::uint32_t>(tag));
    if (!isStored)
        m_counters->lastRefused.fetch_add(1, std::memory_order_relaxed);
    else if (!symbol.isFinding)
        m_counters->lastValues.fetch_add(1, std::memory_order_relaxed);
}

void LastValuesWriter::settle() {
    const tp::MutexLock lock(m_mutex);
    m_isSettling = true;
    m_isSettled = false;
}

bool LastValuesWriter::isSettled() const {
    const tp::MutexLock lock(m_mutex);
    return m_isSettled;
}

} // namespace tivra_bus
