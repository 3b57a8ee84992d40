#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include <feed/Board.h>
#include <reader/BusSubscription.h>
#include <tp/Mutex.h>
#include <tp/Process.h>

#include "Event.h"
#include "bus/BusConnection.h"

namespace tivra_python {

/// The last value of each field of symbols of the bus. @thread any, without the interpreter's lock
class BusBoard {
public:
    /// @param maxSymbols  rows, those that are Closed included
    BusBoard(std::shared_ptr<BusConnection> bus, std::size_t maxSymbols);
    ~BusBoard();
    BusBoard(const BusBoard&) = delete;
    BusBoard& operator=(const BusBoard&) = delete;

    /// @throws tivra::Error as BusReader::subscribe, and above the most symbols. @return how many are new
    std::size_t add(const std::vector<tivra::Instrument>& instruments) TP_EXCLUDES(m_mutex);
    /// Their rows stay, as Closed.
    std::size_t remove(const std::vector<tivra::Instrument>& instruments) TP_EXCLUDES(m_mutex);
    /// Drops the rows that are Closed. @return how many there were
    std::size_t forgetClosed() TP_EXCLUDES(m_mutex);

    [[nodiscard]] std::optional<tivra::BoardRow> find(const tivra::Instrument& instrument) const;
    /// Rows that have changed after `position`. @return the position now
    std::uint64_t changedSince(std::uint64_t position,
                               const std::function<void(const tivra::BoardRow&)>& take) const;
    [[nodiscard]] std::vector<tivra::Instrument> instruments() const;
    [[nodiscard]] tivra::BoardStatistics statistics() const;
    /// Values that had no room: there is a limit for rows alone.
    [[nodiscard]] static std::uint64_t leftOut() { return 0; }

private:
    using Subscriptions = std::map<tivra::Instrument, tivra::BusSubscription>;

    struct Row {
        tivra::BoardRow values;
        std::uint64_t position = 0; ///< of its last change
        bool isClosed = false;
    };
    /// What handlers share.
    struct Rows {
        explicit Rows(BusFields names) : fields(std::move(names)) {}
        void take(Event&& event) TP_EXCLUDES(mutex);
        void changed(Row& row) TP_REQUIRES(mutex);
        /// Has a row of before followed again. @return whether there is one
        bool reopen(const tivra::Instrument& instrument) TP_EXCLUDES(mutex);

        const BusFields fields;
        tp::Mutex mutex{tp::LockRank{890, "BusBoard::Rows::mutex"}};
        std::map<tivra::Instrument, Row> rows TP_GUARDED_BY(mutex);
        /// By the position of their last change.
        std::map<std::uint64_t, Row*> changes TP_GUARDED_BY(mutex);
        std::uint64_t position TP_GUARDED_BY(mutex) = 0;
        std::size_t closed TP_GUARDED_BY(mutex) = 0; ///< rows that are
    };

    [[nodiscard]] tivra::BusHandlers handlers() const;
    [[nodiscard]] bool hasRoom() const TP_REQUIRES(m_mutex);

    const tp::ProcessMark m_process;
    const std::shared_ptr<BusConnection> m_bus;
    const std::size_t m_maxSymbols;
    const std::shared_ptr<Rows> m_rows;
    tp::Mutex m_mutex{tp::LockRank{880, "BusBoard::m_mutex"}};
    std::shared_ptr<Subscriptions> m_subscriptions TP_GUARDED_BY(m_mutex) = std::make_shared<Subscriptions>();
};

} // namespace tivra_python
