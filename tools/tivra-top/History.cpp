#include "History.h"

namespace tivra_top {

namespace {

template<class T>
void append(std::deque<T>& queue, T value, std::size_t most) {
    if (queue.size() >= most)
        queue.pop_front();
    queue.push_back(std::move(value));
}

} // namespace

void History::add(const Picture& picture) {
    append(m_figures,
           {picture.time, picture.rate, picture.socketToDecode.p50, picture.socketToDecode.p99,
            picture.decodeToCallback.p99},
           kMostFigures);
    for (const HubLine& hub : picture.hubs) {
        const auto [known, isNew] = m_states.try_emplace(hub.status.hub, hub.status.to);
        if (!isNew && known->second == hub.status.to)
            continue;
        known->second = hub.status.to;
        append(m_changes, {picture.time, hub.status.hub, hub.status.to}, kMostChanges);
    }
    for (const Row& row : picture.rows)
        addRow(row, picture.time);
}

void History::addRow(const Row& row, TimePoint now) {
    auto found = m_symbols.find(row.name);
    if (found == m_symbols.end()) {
        if (m_symbols.size() >= kMostSymbols)
            return;
        found = m_symbols.emplace(row.name, Symbol{}).first;
    }
    Symbol& symbol = found->second;
    if (row.updates == symbol.updates)
        return;
    symbol.updates = row.updates;
    Values values{now, {}};
    for (const Cell& cell : row.cells)
        values.numbers.push_back(cell.number);
    append(symbol.values, std::move(values), kMostValues);
}

const std::deque<History::Values>& History::valuesOf(const std::string& name) const {
    static const std::deque<Values> NONE;
    const auto found = m_symbols.find(name);
    return found == m_symbols.end() ? NONE : found->second.values;
}

} // namespace tivra_top
