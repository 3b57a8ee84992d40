#pragma once

#include "bus/BusPublisher.h"
#include "run/PartitionWriter.h"

#include <feed/Board.h>
#include <feed/Instrument.h>

#include <tp/Mutex.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>

namespace tivra_bus {

/// Publishes the last values of a partition's symbols, each at most once in a time, however often it changes.
/// The first message of a symbol replaces whatever is there; each further one only the one before, so that a
/// writer that has lost the partition without noticing overwrites nothing.
/// @thread pump(): one that sends
class LastValuesWriter : public std::enable_shared_from_this<LastValuesWriter> {
public:
    LastValuesWriter(std::shared_ptr<PartitionWriter> writer, BusPublisher& publisher,
                     WriterCounters& counters);

    /// Sends what has changed since the last call, and what has failed.
    void pump();
    /// Has everything sent at once. isSettled() is true when it is stored, if nothing has come since.
    void settle();
    [[nodiscard]] bool isSettling() const;
    [[nodiscard]] bool isSettled() const;

private:
    struct Symbol {
        std::optional<std::uint64_t> position; ///< of the present message; nothing while it isn't ours
        bool isSending = false;
        bool isChanged = false; ///< since what is on its way
    };

    void send(const tivra::Instrument& instrument, const tivra::BoardRow& row) TP_EXCLUDES(m_mutex);
    void answered(const tivra::Instrument& instrument, const SendResult& result) TP_EXCLUDES(m_mutex);
    /// Whether it may be sent now; notes the change if it may not.
    [[nodiscard]] bool start(const tivra::Instrument& instrument, std::optional<std::uint64_t>& expected)
        TP_EXCLUDES(m_mutex);

    const std::shared_ptr<PartitionWriter> m_writer;
    BusPublisher& m_publisher;
    WriterCounters& m_counters;
    tivra::BoardCursor m_cursor; ///< of the thread that sends

    mutable tp::Mutex m_mutex{tp::LockRank{11, "last values"}};
    std::map<tivra::Instrument, Symbol> m_symbols TP_GUARDED_BY(m_mutex);
    bool m_isSettling TP_GUARDED_BY(m_mutex) = false;
    bool m_isSettled TP_GUARDED_BY(m_mutex) = false;
};

} // namespace tivra_bus
