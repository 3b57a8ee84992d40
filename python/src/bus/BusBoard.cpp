#include "bus/BusBoard.h"

#include <utility>

#include "bus/BusEvents.h"

namespace tivra_python {

using tivra::BoardRow;
using tivra::Instrument;

BusBoard::BusBoard(std::shared_ptr<BusConnection> bus, std::size_t maxSymbols)
    : m_bus(std::move(bus)), m_maxSymbols(maxSymbols), m_rows(std::make_shared<Rows>(m_bus->fields())) {}

void BusBoard::Rows::changed(Row& row) {
    if (row.position != 0)
        changes.erase(row.position);
    row.position = ++position;
    changes.emplace(position, &row);
}

void BusBoard::Rows::take(Event&& event) {
    const tp::MutexLock lock(mutex);
    const Instrument instrument(event.source, event.symbol);
    Row& row = rows[instrument];
    if (row.position == 0)
        row.values.values = fields.emptyRecord(instrument);
    if (row.isClosed)
        return;
    BoardRow& values = row.values;
    if (event.state) {
        values.state = event.state->to;
    } else if (event.gap) {
        ++values.gaps;
    } else {
        ++values.updates;
        values.lastUpdate = std::chrono::system_clock::now();
        values.values = event.kind == Event::Kind::Image ? std::move(event.record)
                                                         : fields.merged(values.values, event.record);
    }
    changed(row);
}

tivra::BusHandlers BusBoard::handlers() const {
    tivra::BusHandlers handlers;
    handlers.onUpdate = [rows = m_rows](const tivra::BusUpdate& update) {
        rows->take(eventOf(update, rows->fields));
    };
    handlers.onState = [rows = m_rows](const Instrument& instrument, const tivra::StateChange& change) {
        rows->take(eventOf(instrument, change));
    };
    handlers.onGap = [rows = m_rows](const Instrument& instrument, const tivra::BusGap& gap) {
        rows->take(eventOf(instrument, gap));
    };
    return handlers;
}

std::size_t BusBoard::add(const std::vector<Instrument>& instruments) {
    using tivra::Error;
    const tp::MutexLock lock(m_mutex);
    std::size_t count = 0;
    for (const Instrument& instrument : instruments) {
        if (m_subscriptions.find(instrument) != m_subscriptions.end())
            continue;
        if (m_subscriptions.size() >= m_maxSymbols)
            throw Error({Error::Code::QueueFull, Error::Phase::Request,
                         "the board has no room for more symbols", "remove some", "", 0, "", 0});
        {
            const tp::MutexLock rowsLock(m_rows->mutex);
            const auto found = m_rows->rows.find(instrument);
            if (found != m_rows->rows.end())
                found->second.isClosed = false;
        }
        m_subscriptions.emplace(instrument, m_bus->reader().subscribe({instrument}, handlers()));
        ++count;
    }
    return count;
}

std::size_t BusBoard::remove(const std::vector<Instrument>& instruments) {
    std::vector<tivra::BusSubscription> ended;
    const tp::MutexLock lock(m_mutex);
    for (const Instrument& instrument : instruments) {
        const auto found = m_subscriptions.find(instrument);
        if (found == m_subscriptions.end())
            continue;
        {
            const tp::MutexLock rowsLock(m_rows->mutex);
            Row& row = m_rows->rows[instrument];
            row.isClosed = true;
            row.values.state = tivra::DataState::Closed;
            m_rows->changed(row);
        }
        ended.push_back(std::move(found->second));
        m_subscriptions.erase(found);
    }
    // What ends waits for handlers, which take the lock of the rows alone.
    return ended.size();
}

std::optional<BoardRow> BusBoard::find(const Instrument& instrument) const {
    const tp::MutexLock lock(m_rows->mutex);
    const auto found = m_rows->rows.find(instrument);
    return found != m_rows->rows.end() ? std::optional(found->second.values) : std::nullopt;
}

std::uint64_t BusBoard::changedSince(std::uint64_t position,
                                     const std::function<void(const BoardRow&)>& take) const {
    const tp::MutexLock lock(m_rows->mutex);
    for (auto each = m_rows->changes.upper_bound(position); each != m_rows->changes.end(); ++each)
        take(each->second->values);
    return m_rows->position;
}

std::vector<Instrument> BusBoard::instruments() const {
    std::vector<Instrument> all;
    const tp::MutexLock lock(m_rows->mutex);
    for (const auto& [instrument, row] : m_rows->rows)
        all.push_back(instrument);
    return all;
}

tivra::BoardStatistics BusBoard::statistics() const {
    tivra::BoardStatistics figures;
    const tp::MutexLock lock(m_rows->mutex);
    figures.symbols = m_rows->rows.size();
    figures.changes = m_rows->position;
    for (const auto& [instrument, row] : m_rows->rows)
        figures.bytes += sizeof row + BusFields::bytesOf(row.values.values);
    return figures;
}

} // namespace tivra_python
