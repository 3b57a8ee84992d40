#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <feed/Board.h>
#include <feed/Value.h>

#include "feed/BoardBlock.h"
#include "feed/BoardRoom.h"
#include "feed/FieldTable.h"
#include "feed/ItemTurn.h"
#include "feed/UpdateData.h"

namespace tivra_internal {

/// The values of one symbol of a board. Everything that a reader looks at is an atomic word: it takes a copy
/// and finds by the version, which is odd during a write, whether the words belong together.
class BoardLine {
public:
    BoardLine(int source, std::string symbol, std::uint32_t index);
    ~BoardLine();
    BoardLine(const BoardLine&) = delete;
    BoardLine& operator=(const BoardLine&) = delete;

    [[nodiscard]] int source() const noexcept { return m_source; }
    [[nodiscard]] const std::string& symbol() const noexcept { return m_symbol; }
    [[nodiscard]] std::uint32_t index() const noexcept { return m_index; }

    // --- what subscriptions bring; @thread any, one waits for another ---
    /// @param replaces  what it has
    /// @param room      where what it takes is counted
    /// @throws tivra::Error (InvalidArgument) for the update of another feed
    void update(const UpdateData& data, bool replaces, BoardRoom& room) TP_EXCLUDES(m_turn);
    void setState(tivra::DataState state) noexcept { m_state.store(state, std::memory_order_release); }
    void countGap() noexcept { m_gaps.fetch_add(1, std::memory_order_relaxed); }
    void addSubscription() noexcept { m_subscriptions.fetch_add(1, std::memory_order_relaxed); }
    /// True when nobody is left.
    [[nodiscard]] bool removeSubscription() noexcept {
        return m_subscriptions.fetch_sub(1, std::memory_order_acq_rel) == 1;
    }
    [[nodiscard]] bool hasSubscriptions() const noexcept {
        return m_subscriptions.load(std::memory_order_acquire) != 0;
    }
    [[nodiscard]] bool isShared() const noexcept {
        return m_subscriptions.load(std::memory_order_relaxed) > 1;
    }
    /// The position of its last change is at least that.
    void setChanged(std::uint64_t position) noexcept {
        m_lastChange.store(position, std::memory_order_release);
    }

    // --- what readers ask; @thread any ---
    [[nodiscard]] tivra::BoardRow read() const;
    [[nodiscard]] tivra::DataState state() const noexcept { return m_state.load(std::memory_order_acquire); }
    [[nodiscard]] std::uint64_t lastChange() const noexcept {
        return m_lastChange.load(std::memory_order_acquire);
    }
    [[nodiscard]] std::size_t bytes() const noexcept;

private:
    class Writing;

    void write(const UpdateData& data, bool replaces, BoardRoom& room) TP_REQUIRES(m_turn);
    void put(const FieldEntry& field, const KVNAPI::Message& message, int index, BoardRoom& room)
        TP_REQUIRES(m_turn);
    void putText(std::size_t place, const FieldEntry& field, std::string_view text, BoardRoom& room)
        TP_REQUIRES(m_turn);
    /// kNowhere for a new field that there is no room for.
    [[nodiscard]] std::size_t placeOf(const FieldEntry& field, BoardRoom& room) TP_REQUIRES(m_turn);
    /// Room for so many words more. Texts may move. False when the line would become larger than any may be,
    /// or the board has no more.
    [[nodiscard]] bool makeRoom(std::size_t words, BoardRoom& room) TP_REQUIRES(m_turn);
    [[nodiscard]] bool grow(std::size_t needed, std::size_t size, BoardRoom& room) TP_REQUIRES(m_turn);
    void leaveOut(const FieldEntry& field, BoardRoom& room) TP_REQUIRES(m_turn);
    void store(std::size_t place, std::uint64_t word) noexcept {
        m_block.load(std::memory_order_relaxed)->word(place).store(word, std::memory_order_release);
    }
    [[nodiscard]] std::uint64_t load(std::size_t place) const noexcept {
        return m_block.load(std::memory_order_relaxed)->word(place).load(std::memory_order_relaxed);
    }
    /// False when a write was under way.
    [[nodiscard]] bool copyTo(std::vector<std::uint64_t>& words, tivra::BoardRow& row,
                              std::size_t& count) const;

    // What a write needs stands together, since a line of a large board isn't in the processor's cache.
    ItemTurn m_turn; ///< of writers
    /// The words of the fields: two for each from the beginning, and their texts from the end. A line that
    /// outgrows its block takes a larger one, and keeps this for readers who are in it. Owned.
    std::atomic<BoardBlock*> m_block{nullptr};
    std::atomic<std::uint32_t> m_version{0};
    std::atomic<std::uint32_t> m_count{0};               ///< fields
    std::uint32_t m_next TP_GUARDED_BY(m_turn) = 0;      ///< the field that is looked for first
    std::uint32_t m_textBegin TP_GUARDED_BY(m_turn) = 0; ///< in the block
    /// What the words refer to: set before there are any.
    std::shared_ptr<FieldTable> m_table;
    std::atomic<double> m_lastUpdate{0.0}; ///< seconds since the epoch, 0 before the first
    std::atomic<std::uint64_t> m_updates{0};
    std::atomic<std::uint64_t> m_lastChange{0};
    const std::uint32_t m_index;
    const int m_source;
    const std::string m_symbol;
    std::atomic<std::uint32_t> m_gaps{0};
    std::atomic<std::uint32_t> m_subscriptions{0};
    std::atomic<tivra::DataState> m_state{tivra::DataState::Pending};
};

} // namespace tivra_internal
