#include "History.h"

#include <algorithm>

namespace tivra_top {

namespace {

template<class T>
void append(std::deque<T>& queue, T value, std::size_t most) {
    if (queue.size() >= most)
        queue.pop_front();
    queue.push_back(std::move(value));
}

bool isEmpty(const History::Values& values) {
    return std::none_of(values.numbers.begin(), values.numbers.end(),
                        [](const std::optional<double>& number) { return number.has_value(); });
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
    const std::unordered_set<std::string_view> present = namesIn(picture);
    std::erase_if(m_symbols, [&present](const auto& each) { return present.count(each.first) == 0; });
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
    Values values{now, {}};
    for (const Cell& cell : row.cells)
        values.numbers.push_back(cell.number);
    // A gauge changes without a count of its changes.
    const bool isSame =
        symbol.values.empty() ? isEmpty(values) : symbol.values.back().numbers == values.numbers;
    if (row.updates == symbol.updates && isSame)
        return;
    symbol.updates = row.updates;
    append(symbol.values, std::move(values), kMostValues);
}

const std::deque<History::Values>& History::valuesOf(const std::string& name) const {
    static const std::deque<Values> NONE;
    const auto found = m_symbols.find(name);
    return found == m_symbols.end() ? NONE : found->second.values;
}

} // namespace tivra_top
