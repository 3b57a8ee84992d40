#include "bus/BusInlet.h"

#include <utility>

#include "bus/BusEvents.h"

namespace tivra_python {
namespace {

/// Before those of the sink and of the queue.
constexpr tp::LockRank kLockInlet{890, "BusInlet::m_mutex"};

void count(tivra::GroupStatistics& figures, tivra::DataState state) {
    ++figures.subscriptions;
    switch (state) {
    case tivra::DataState::Pending:
        ++figures.pending;
        break;
    case tivra::DataState::Live:
        ++figures.live;
        break;
    case tivra::DataState::Stale:
        ++figures.stale;
        break;
    case tivra::DataState::Recovering:
        ++figures.recovering;
        break;
    case tivra::DataState::Refused:
        ++figures.refused;
        break;
    case tivra::DataState::Closed:
        break;
    }
}

} // namespace

BusInlet::BusInlet(StreamSink::Options options, BusFields fields)
    : m_fields(std::move(fields))
    , m_queue(new BusQueue(options.queue, m_fields))
    , m_sink(std::make_shared<StreamSink>(std::move(options), std::unique_ptr<EventQueue>(m_queue)))
    , m_mutex(kLockInlet) {}

tivra::BusHandlers BusInlet::handlers(std::uint64_t group) {
    tivra::BusHandlers handlers;
    const std::shared_ptr<BusInlet> self = shared_from_this();
    handlers.onUpdate = [self, group](const tivra::BusUpdate& update) {
        self->take(group, update.instrument(), eventOf(update, self->m_fields));
    };
    handlers.onState = [self, group](const tivra::Instrument& instrument, const tivra::StateChange& change) {
        self->take(group, instrument, eventOf(instrument, change));
    };
    handlers.onGap = [self, group](const tivra::Instrument& instrument, const tivra::BusGap& gap) {
        self->take(group, instrument, eventOf(instrument, gap));
    };
    return handlers;
}

void BusInlet::take(std::uint64_t group, const tivra::Instrument& instrument, Event&& event) {
    const bool isUpdate = !event.state && !event.gap;
    const bool isHeard = m_sink->hears(event);
    std::uint64_t order = 0;
    {
        const tp::MutexLock lock(m_mutex);
        const auto found = m_symbols.find(instrument);
        if (found == m_symbols.end() || found->second.group != group)
            return;
        Symbol& symbol = found->second;
        event.subscription = symbol.subscription;
        if (event.state)
            symbol.state = event.state->to;
        if (isUpdate)
            symbol.lastUpdate = std::chrono::system_clock::now();
        m_updates += isUpdate ? 1U : 0U;
        m_gaps += event.gap ? 1U : 0U;
        // With the lock, so that nothing comes after the end of a symbol.
        // A callback of updates takes them alone.
        if (!isUpdate || !isHeard)
            order = m_queue->push(isHeard ? Event(event) : std::move(event));
    }
    if (isHeard)
        m_sink->call(event);
    m_queue->waitForRoom(order);
}

std::vector<tivra::Instrument> BusInlet::enter(const std::vector<tivra::Instrument>& instruments,
                                               std::uint64_t group) {
    std::vector<tivra::Instrument> entered;
    const tp::MutexLock lock(m_mutex);
    for (const tivra::Instrument& instrument : instruments) {
        Symbol symbol;
        symbol.group = group;
        symbol.subscription = m_lastSubscription + 1;
        if (m_symbols.emplace(instrument, std::move(symbol)).second) {
            ++m_lastSubscription;
            ++m_groups[group];
            entered.push_back(instrument);
        }
    }
    return entered;
}

void BusInlet::forget(const std::vector<tivra::Instrument>& instruments) {
    const tp::MutexLock lock(m_mutex);
    for (const tivra::Instrument& instrument : instruments)
        if (const auto found = m_symbols.find(instrument); found != m_symbols.end())
            remove(found);
}

bool BusInlet::remove(std::map<tivra::Instrument, Symbol>::iterator symbol) {
    const auto group = m_groups.find(symbol->second.group);
    m_symbols.erase(symbol);
    if (--group->second != 0)
        return false;
    m_groups.erase(group);
    return true;
}

BusInlet::Left BusInlet::leave(const std::vector<tivra::Instrument>& instruments) {
    Left left;
    const tp::MutexLock lock(m_mutex);
    for (const tivra::Instrument& instrument : instruments) {
        const auto found = m_symbols.find(instrument);
        if (found == m_symbols.end())
            continue;
        tivra::StateChange change;
        change.from = found->second.state;
        change.to = tivra::DataState::Closed;
        change.cause = "closed by the application";
        change.time = std::chrono::system_clock::now();
        Event event = eventOf(instrument, change);
        event.subscription = found->second.subscription;
        if (change.from != tivra::DataState::Refused && change.from != tivra::DataState::Closed)
            m_queue->push(std::move(event));
        ++left.count;
        const std::uint64_t group = found->second.group;
        if (remove(found))
            left.groups.push_back(group);
    }
    // Whoever ends these subscriptions waits for their handlers, and may be the only one who reads.
    m_queue->letPass();
    return left;
}

std::optional<tivra::DataState> BusInlet::state(const tivra::Instrument& instrument) const {
    const tp::MutexLock lock(m_mutex);
    const auto found = m_symbols.find(instrument);
    return found != m_symbols.end() ? std::optional(found->second.state) : std::nullopt;
}

std::optional<std::chrono::system_clock::time_point>
BusInlet::lastUpdate(const tivra::Instrument& instrument) const {
    const tp::MutexLock lock(m_mutex);
    const auto found = m_symbols.find(instrument);
    return found != m_symbols.end() ? found->second.lastUpdate : std::nullopt;
}

tivra::GroupStatistics BusInlet::statistics() const {
    tivra::GroupStatistics figures;
    const tp::MutexLock lock(m_mutex);
    figures.updates = m_updates;
    figures.gaps = m_gaps;
    for (const auto& [instrument, symbol] : m_symbols)
        count(figures, symbol.state);
    return figures;
}

std::vector<tivra::Instrument> BusInlet::instruments() const {
    std::vector<tivra::Instrument> all;
    const tp::MutexLock lock(m_mutex);
    for (const auto& [instrument, symbol] : m_symbols)
        all.push_back(instrument);
    return all;
}

} // namespace tivra_python
