#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include <feed/Board.h>
#include <tp/Mutex.h>
#include <tp/Process.h>

#include "feed/BoardLine.h"
#include "feed/BoardRoom.h"
#include "feed/ChangeRing.h"

namespace tivra_internal {

/// What is behind a Board: its lines by symbol, and their changes in order. The handlers that feed it share
/// it. @thread any
class BoardState : public std::enable_shared_from_this<BoardState>, public tp::OfOneProcess {
public:
    /// @throws tivra::Error (InvalidArgument)
    explicit BoardState(tivra::BoardOptions options, std::size_t maxBytes = kMostBytes);
    BoardState(const BoardState&) = delete;
    BoardState& operator=(const BoardState&) = delete;

    static constexpr std::size_t kMostBytes = std::size_t{4} << 30; ///< unless the application says otherwise

    // --- what handlers bring ---
    [[nodiscard]] bool isClosed() const noexcept { return m_isClosed.load(std::memory_order_relaxed); }
    /// The line of a symbol, with one subscription more; null when there is no room for another.
    [[nodiscard]] std::shared_ptr<BoardLine> join(int source, std::string_view symbol) TP_EXCLUDES(m_mutex);
    /// Where lines count what they take.
    [[nodiscard]] BoardRoom& room() noexcept { return m_room; }
    /// The line has changed, and this comes after the change.
    void enterChange(BoardLine& line) noexcept { line.setChanged(m_changes.add(line.index())); }
    /// The application's object goes.
    void close() noexcept { m_isClosed.store(true, std::memory_order_relaxed); }

    // --- what the application asks; see Board ---
    [[nodiscard]] std::optional<tivra::BoardRow> find(int source, std::string_view symbol)
        TP_EXCLUDES(m_mutex);
    /// The lines that have changed since, in the order of their last changes.
    [[nodiscard]] std::vector<std::shared_ptr<BoardLine>> changedSince(tivra::BoardCursor& cursor)
        TP_EXCLUDES(m_mutex);
    [[nodiscard]] std::vector<tivra::Instrument> instruments() TP_EXCLUDES(m_mutex);
    [[nodiscard]] std::size_t forgetClosed() TP_EXCLUDES(m_mutex);
    [[nodiscard]] tivra::BoardStatistics statistics() TP_EXCLUDES(m_mutex);
    [[nodiscard]] std::uint64_t leftOut() const noexcept {
        return process().isForeign() ? 0 : m_room.leftOut();
    }

private:
    using Lines = std::vector<std::shared_ptr<BoardLine>>;
    using Key = std::pair<int, std::string_view>;
    struct KeyHash {
        [[nodiscard]] std::size_t operator()(const Key& key) const noexcept {
            return std::hash<std::string_view>()(key.second) * 31 + static_cast<std::size_t>(key.first);
        }
    };

    /// False when the ring doesn't have them all any more.
    [[nodiscard]] bool readRing(tivra::BoardCursor& cursor, Lines& lines) TP_EXCLUDES(m_mutex);
    [[nodiscard]] Lines readLines(tivra::BoardCursor& cursor) TP_EXCLUDES(m_mutex);

    const tivra::BoardOptions m_options;
    BoardRoom m_room;
    ChangeRing m_changes;
    std::atomic<bool> m_isClosed{false};
    std::atomic<std::uint64_t> m_refused{0};

    tp::Mutex m_mutex; ///< guards what follows, and no line
    std::unordered_map<Key, std::uint32_t, KeyHash>
        m_indexes TP_GUARDED_BY(m_mutex); ///< names are the lines'
    Lines m_lines TP_GUARDED_BY(m_mutex); ///< by index; null for one that is free
    std::vector<std::uint32_t> m_free TP_GUARDED_BY(m_mutex);
};

} // namespace tivra_internal
