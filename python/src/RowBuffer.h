#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <unordered_set>
#include <vector>

#include <feed/Update.h>

#include "Event.h"
#include "RowFiller.h"

namespace tivra_python {

/// Rows, and the states and gaps that stand among them.
struct RowBlock {
    struct Notice {
        std::size_t row; ///< before which it stands
        Event event;
    };
    /// Rows that were lost before these, because their reader was slow.
    struct Loss {
        std::uint64_t rows = 0;
        std::int64_t from = 0; ///< when the first and the last came, in nanoseconds since 1970
        std::int64_t to = 0;
        std::uint64_t gaps = 0; ///< among them, for which there was no room either
    };
    std::shared_ptr<RowBatch> rows;
    std::vector<Notice> notices;
    std::size_t urgent = 0; ///< notices that a reader has to hear of without any row
    Loss loss;
    std::int64_t first = 0; ///< when the first and the last row came
    std::int64_t last = 0;
};

/// Rows that wait for their reader, in blocks as large as the batches that it wants. When there are too many
/// the oldest block makes room, and its rows are counted. States and gaps are never dropped. One thread at a
/// time, without the interpreter's lock.
class RowBuffer {
public:
    struct Limits {
        std::size_t rows;  ///< that may wait
        std::size_t bytes; ///< that they may take, about
        std::size_t batchRows;
        bool mayDrop; ///< or else whoever adds asks isBatchDue(), and keeps to the limits
    };

    RowBuffer(const RowFields& fields, const Limits& limits);

    void add(const tivra::Update& update);
    /// An event of a queue.
    void add(Event&& event);
    /// What isn't a row.
    void addNotice(Event&& notice);

    [[nodiscard]] std::size_t rows() const noexcept { return m_waiting + m_filler.rows(); }
    /// Rows wait, or something that a reader has to hear of without any.
    [[nodiscard]] bool hasNews() const noexcept { return rows() != 0 || isUrgent(); }
    /// There is nothing at all, states of symbols included.
    [[nodiscard]] bool isEmpty() const noexcept { return !hasNews() && m_noticeCount == 0; }
    /// A batch is complete, or the reader has to hear of something at once.
    [[nodiscard]] bool isBatchDue() const noexcept { return !m_blocks.empty() || isUrgent(); }
    [[nodiscard]] std::size_t blockRows() const noexcept { return m_blockRows; }
    /// Rows that were dropped here.
    [[nodiscard]] std::uint64_t dropped() const noexcept { return m_dropped; }
    /// The oldest rows, perhaps none.
    [[nodiscard]] RowBlock take();

private:
    template<class Values>
    void addRow(const RowHead& head, const Values& values);
    [[nodiscard]] bool isBlockComplete() const noexcept;
    [[nodiscard]] bool isUrgent() const noexcept {
        return m_urgentCount != 0 || m_open.loss.rows != 0 || m_open.loss.gaps != 0;
    }
    [[nodiscard]] bool takeGapMark(std::uint64_t subscription);
    void noteGap(const Event& event);
    [[nodiscard]] RowBlock cut();
    void dropOldest();

    const Limits m_limits;
    const std::size_t m_blockRows;
    RowFiller m_filler;
    RowBlock m_open; ///< what comes with the filler's rows
    std::deque<RowBlock> m_blocks;
    std::size_t m_waiting = 0; ///< rows of the blocks
    std::size_t m_bytes = 0;   ///< that they take
    std::size_t m_noticeCount = 0;
    std::size_t m_urgentCount = 0; ///< of them
    std::uint64_t m_dropped = 0;
    std::unordered_set<std::uint64_t> m_afterGap; ///< subscriptions whose next row has a gap in front of it
    bool m_isAfterLoss = false;                   ///< the next row of any has
};

} // namespace tivra_python
