#include "feed/BoardState.h"

#include <algorithm>
#include <string>

#include <feed/Error.h>

namespace tivra_internal {
namespace {

using tivra::Error;

/// What the map of symbols takes for each, and the pointers to its line.
constexpr std::size_t kIndexBytes = 96;
constexpr std::size_t kLeastBytes = std::size_t{64} << 10;

[[nodiscard]] std::size_t bytesOf(const BoardLine& line) noexcept {
    return line.bytes() + kIndexBytes;
}

[[nodiscard]] tivra::BoardOptions checked(tivra::BoardOptions options) {
    if (options.maxSymbols == 0 || options.maxSymbols >= UINT32_MAX)
        throw Error({Error::Code::InvalidArgument, Error::Phase::None,
                     "a board has to have room for some symbols, and for fewer than 2^32",
                     "see BoardOptions::maxSymbols", "", 0, "", 0});
    return options;
}

[[nodiscard]] std::size_t checkedBytes(std::size_t maxBytes) {
    if (maxBytes < kLeastBytes)
        throw Error({Error::Code::InvalidArgument, Error::Phase::None,
                     "a board has to have room for 64 KiB or more", "give it more bytes", "", 0, "", 0});
    return maxBytes;
}

} // namespace

BoardState::BoardState(tivra::BoardOptions options, std::size_t maxBytes)
    : m_options(checked(options)), m_room(checkedBytes(maxBytes)) {}

std::shared_ptr<BoardLine> BoardState::join(int source, std::string_view symbol) {
    const tp::MutexLock lock(m_mutex);
    std::shared_ptr<BoardLine> line;
    if (const auto found = m_indexes.find({source, symbol}); found != m_indexes.end()) {
        line = m_lines[found->second];
    } else if (m_indexes.size() >= m_options.maxSymbols) {
        m_refused.fetch_add(1, std::memory_order_relaxed);
        return nullptr;
    } else {
        const bool isNew = m_free.empty();
        const auto index = isNew ? static_cast<std::uint32_t>(m_lines.size()) : m_free.back();
        line = std::make_shared<BoardLine>(source, std::string(symbol), index);
        if (!m_room.take(bytesOf(*line))) {
            m_refused.fetch_add(1, std::memory_order_relaxed);
            return nullptr;
        }
        if (isNew)
            m_lines.emplace_back();
        else
            m_free.pop_back();
        m_indexes.emplace(Key(source, line->symbol()), index);
        m_lines[index] = line;
    }
    line->addSubscription();
    return line;
}

std::optional<tivra::BoardRow> BoardState::find(int source, std::string_view symbol) {
    if (process().isForeign())
        return std::nullopt;
    std::shared_ptr<BoardLine> line;
    {
        const tp::MutexLock lock(m_mutex);
        const auto found = m_indexes.find({source, symbol});
        if (found == m_indexes.end())
            return std::nullopt;
        line = m_lines[found->second];
    }
    return line->read();
}

std::vector<std::shared_ptr<BoardLine>> BoardState::changedSince(tivra::BoardCursor& cursor) {
    Lines lines;
    if (process().isForeign())
        return lines;
    if (!readRing(cursor, lines))
        lines = readLines(cursor);
    return lines;
}

/// From the last change back, so that a line is found at its last one.
bool BoardState::readRing(tivra::BoardCursor& cursor, Lines& lines) {
    std::uint64_t end = m_changes.end();
    if (cursor.position > end || end - cursor.position > ChangeRing::kPlaces)
        return false;
    std::vector<std::uint32_t> rows;
    std::vector<bool> isKnown;
    for (std::uint64_t position = end; position-- > cursor.position;) {
        std::uint32_t row = 0;
        switch (m_changes.look(position, row)) {
        case ChangeRing::Place::Entered:
            if (row >= isKnown.size())
                isKnown.resize(row + 1);
            if (!isKnown[row])
                rows.push_back(row);
            isKnown[row] = true;
            break;
        case ChangeRing::Place::NotYet: // what is later waits for it
            end = position;
            rows.clear();
            isKnown.clear();
            break;
        case ChangeRing::Place::Gone:
            return false;
        }
    }
    lines.reserve(rows.size());
    const tp::MutexLock lock(m_mutex);
    for (auto row = rows.rbegin(); row != rows.rend(); ++row)
        if (*row < m_lines.size() && m_lines[*row] != nullptr)
            lines.push_back(m_lines[*row]);
    cursor.position = end;
    return true;
}

/// A change that is being entered has a position from here on.
BoardState::Lines BoardState::readLines(tivra::BoardCursor& cursor) {
    const std::uint64_t begin = cursor.position > m_changes.end() ? 0 : cursor.position;
    cursor.position = m_changes.end();
    std::vector<std::pair<std::uint64_t, std::shared_ptr<BoardLine>>> found;
    {
        const tp::MutexLock lock(m_mutex);
        for (const std::shared_ptr<BoardLine>& line : m_lines)
            if (line != nullptr && line->lastChange() >= begin)
                found.emplace_back(line->lastChange(), line);
    }
    std::sort(found.begin(), found.end());
    Lines lines;
    lines.reserve(found.size());
    for (auto& [change, line] : found)
        lines.push_back(std::move(line));
    return lines;
}

std::vector<tivra::Instrument> BoardState::instruments() {
    std::vector<tivra::Instrument> instruments;
    if (process().isForeign())
        return instruments;
    const tp::MutexLock lock(m_mutex);
    instruments.reserve(m_indexes.size());
    for (const std::shared_ptr<BoardLine>& line : m_lines)
        if (line != nullptr)
            instruments.emplace_back(line->source(), line->symbol());
    return instruments;
}

std::size_t BoardState::forgetClosed() {
    Lines dropped; // go without the mutex
    if (process().isForeign())
        return 0;
    const tp::MutexLock lock(m_mutex);
    for (std::shared_ptr<BoardLine>& line : m_lines) {
        if (line == nullptr || line->hasSubscriptions())
            continue;
        m_indexes.erase({line->source(), line->symbol()});
        m_free.push_back(line->index());
        m_room.give(bytesOf(*line));
        dropped.push_back(std::move(line));
    }
    return dropped.size();
}

tivra::BoardStatistics BoardState::statistics() {
    tivra::BoardStatistics figures;
    if (process().isForeign())
        return figures;
    figures.changes = m_changes.end();
    figures.refused = m_refused.load(std::memory_order_relaxed);
    figures.bytes = m_room.used();
    const tp::MutexLock lock(m_mutex);
    figures.symbols = m_indexes.size();
    return figures;
}

} // namespace tivra_internal
