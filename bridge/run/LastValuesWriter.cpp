#include "run/LastValuesWriter.h"

#include "run/StateNames.h"

#include <vector>

namespace tivra_bus {

LastValuesWriter::LastValuesWriter(std::shared_ptr<PartitionWriter> writer, BusPublisher& publisher,
                                   WriterCounters& counters)
    : m_writer(std::move(writer)), m_publisher(publisher), m_counters(counters) {}

bool LastValuesWriter::start(const tivra::Instrument& instrument, std::optional<std::uint64_t>& expected) {
    const tp::MutexLock lock(m_mutex);
    Symbol& symbol = m_symbols[instrument];
    symbol.isChanged = symbol.isSending;
    if (symbol.isSending)
        return false;
    symbol.isSending = true;
    expected = symbol.position;
    return true;
}

void LastValuesWriter::send(const tivra::Instrument& instrument, const tivra::BoardRow& row) {
    std::optional<std::uint64_t> expected;
    if (!start(instrument, expected))
        return;
    std::string time;
    appendTime(time, row.lastUpdate.value_or(std::chrono::system_clock::now()));
    const std::string message = lastMessage({instrument.source, instrument.symbol, row.updates},
                                            m_writer->epoch(), nameOf(row.state), time, row.values);
    m_publisher.sendLast(instrument.source, instrument.symbol, message, expected,
                         [weak = weak_from_this(), instrument](const SendResult& result) {
                             if (const std::shared_ptr<LastValuesWriter> self = weak.lock())
                                 self->answered(instrument, result);
                         });
}

void LastValuesWriter::pump() {
    // Before its own first batch is stored, the writer before may still be writing.
    if (!m_writer->isEstablished() || m_writer->needsLook() || !m_publisher.isConnected())
        return;
    std::vector<tivra::Instrument> changed;
    bool isWaiting = false;
    {
        const tp::MutexLock lock(m_mutex);
        for (const auto& [instrument, symbol] : m_symbols) {
            isWaiting = isWaiting || symbol.isSending;
            if (symbol.isChanged && !symbol.isSending)
                changed.push_back(instrument);
        }
    }
    const tivra::Board& board = m_writer->board();
    for (const tivra::Instrument& instrument : changed)
        if (const std::optional<tivra::BoardRow> row = board.find(instrument))
            send(instrument, *row);
    const std::size_t found = board.changedSince(m_cursor, [this](const tivra::BoardRow& row) {
        send({row.values.source(), std::string(row.values.symbol())}, row);
    });
    const tp::MutexLock lock(m_mutex);
    m_isSettled = m_isSettling && !isWaiting && changed.empty() && found == 0;
}

void LastValuesWriter::settle() {
    const tp::MutexLock lock(m_mutex);
    m_isSettling = true;
    m_isSettled = false;
}

bool LastValuesWriter::isSettling() const {
    const tp::MutexLock lock(m_mutex);
    return m_isSettling;
}

bool LastValuesWriter::isSettled() const {
    const tp::MutexLock lock(m_mutex);
    return m_isSettled;
}

void LastValuesWriter::answered(const tivra::Instrument& instrument, const SendResult& result) {
    const bool isStored = result.outcome == SendResult::Outcome::Stored;
    (isStored ? m_counters.lastValues : m_counters.lastRefused).fetch_add(1, std::memory_order_relaxed);
    {
        const tp::MutexLock lock(m_mutex);
        Symbol& symbol = m_symbols[instrument];
        symbol.isSending = false;
        // One that failed may be stored or not, so the next replaces whatever is there.
        symbol.position = isStored ? std::optional<std::uint64_t>(result.position) : std::nullopt;
        symbol.isChanged = symbol.isChanged || !isStored;
    }
    // Somebody else has written it: if the stream is still ours, ours takes its place again.
    if (result.outcome == SendResult::Outcome::Conflict)
        m_writer->askForLook();
}

} // namespace tivra_bus
