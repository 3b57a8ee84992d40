#include "bus/BusBoard.h"

#include <utility>

#include <feed/LeaveAlive.h>

#include "bus/BusEvents.h"

namespace tivra_python {

using tivra::BoardRow;
using tivra::Instrument;

BusBoard::BusBoard(std::shared_ptr<BusConnection> bus, std::size_t maxSymbols)
    : m_bus(std::move(bus)), m_maxSymbols(maxSymbols), m_rows(std::make_shared<Rows>(m_bus->fields())) {}

BusBoard::~BusBoard() {
    // A child that was forked has none of the threads that may be in their handlers.
    if (m_process.isForeign())
        tivra_internal::leaveAlive(m_subscriptions);
}

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

bool BusBoard::Rows::reopen(const Instrument& instrument) {
    const tp::MutexLock lock(mutex);
    const auto found = rows.find(instrument);
    if (found == rows.end())
        return false;
    closed -= std::exchange(found->second.isClosed, false) ? 1U : 0U;
    return true;
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

bool BusBoard::hasRoom() const {
    const tp::MutexLock lock(m_rows->mutex);
    return m_subscriptions->size() + m_rows->closed < m_maxSymbols;
}

std::size_t BusBoard::add(const std::vector<Instrument>& instruments) {
    using tivra::Error;
    const tp::MutexLock lock(m_mutex);
    std::size_t count = 0;
    for (const Instrument& instrument : instruments) {
        if (m_subscriptions->find(instrument) != m_subscriptions->end())
            continue;
        if (!m_rows->reopen(instrument) && !hasRoom())
            throw Error({Error::Code::QueueFull, Error::Phase::Request,
                         "the board has no room for more symbols",
                         "remove some, and forget those that are closed", "", 0, "", 0});
        m_subscriptions->emplace(instrument, m_bus->reader().subscribe({instrument}, handlers()));
        ++count;
    }
    return count;
}

std::size_t BusBoard::remove(const std::vector<Instrument>& instruments) {
    const tp::MutexLock lock(m_mutex);
    // What ends waits for handlers, which take the lock of the rows alone. With this one, so that none of
    // them makes a row again that has been forgotten.
    std::vector<tivra::BusSubscription> ended;
    for (const Instrument& instrument : instruments) {
        const auto found = m_subscriptions->find(instrument);
        if (found == m_subscriptions->end())
            continue;
        {
            const tp::MutexLock rowsLock(m_rows->mutex);
            Row& row = m_rows->rows[instrument];
            if (row.position == 0)
                row.values.values = m_rows->fields.emptyRecord(instrument);
            m_rows->closed += std::exchange(row.isClosed, true) ? 0U : 1U;
            row.values.state = tivra::DataState::Closed;
            m_rows->changed(row);
        }
        ended.push_back(std::move(found->second));
        m_subscriptions->erase(found);
    }
    return ended.size();
}

std::size_t BusBoard::forgetClosed() {
    const tp::MutexLock lock(m_mutex);
    const tp::MutexLock rowsLock(m_rows->mutex);
    for (auto each = m_rows->rows.begin(); each != m_rows->rows.end();) {
        if (each->second.isClosed) {
            m_rows->changes.erase(each->second.position);
            each = m_rows->rows.erase(each);
        } else {
            ++each;
        }
    }
    return std::exchange(m_rows->closed, 0);
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
