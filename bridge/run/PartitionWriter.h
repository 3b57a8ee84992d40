#pragma once

#include "bus/BatchWriter.h"
#include "bus/BusPublisher.h"
#include "run/WriterCounters.h"
#include "run/WriterOptions.h"

#include <feed/Board.h>
#include <feed/Subscription.h>
#include <feed/Update.h>

#include <tp/Mutex.h>

#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace tivra_bus {

/// Writes one partition for as long as its lease is held: batches of what a feed delivers, one on its way at
/// a time, each expected directly after the one before. A batch that isn't acknowledged is sent again as it
/// is. What there is no room for is counted, and a gap and the present values stand in its place.
///
/// @thread take(): those that deliver; pump(): one that sends; looked(): one that may wait for the engine
class PartitionWriter : public std::enable_shared_from_this<PartitionWriter> {
public:
    using Clock = std::chrono::steady_clock;

    /// @param end  of the stream; a gap begins what is written when there was another writer
    PartitionWriter(unsigned partition, std::uint64_t epoch, const StreamEnd& end, BusPublisher& publisher,
                    const WriterOptions& options, WriterCounters& counters);
    ~PartitionWriter();

    /// The handlers of this partition's subscriptions, which keep it alive.
    [[nodiscard]] tivra::SubscriptionHandlers handlers();
    /// Last values, each with the number of its last record as BoardRow::updates.
    [[nodiscard]] const tivra::Board& board() const { return m_board; }

    /// Closes and sends what is due.
    void pump(Clock::time_point now);

    /// Whether it has to be looked where the stream ends.
    [[nodiscard]] bool needsLook() const;
    /// There may be another writer.
    void askForLook();
    /// Where it ends.
    void looked(const StreamEnd& end);

    /// Another writer has the partition: nothing is sent any more.
    [[nodiscard]] bool isFenced() const;
    /// Whether its first batch is stored, so that no writer before it can write.
    [[nodiscard]] bool isEstablished() const;
    [[nodiscard]] bool isDrained() const;
    [[nodiscard]] unsigned partition() const { return m_partition; }
    [[nodiscard]] std::uint64_t epoch() const { return m_epoch; }

private:
    struct SymbolKey {
        int source;
        std::string symbol;
    };
    struct SymbolLook {
        int source;
        std::string_view symbol;
    };
    struct SymbolHash {
        using is_transparent = void;
        std::size_t operator()(const SymbolKey& key) const {
            return (*this)(SymbolLook{key.source, key.symbol});
        }
        std::size_t operator()(const SymbolLook& key) const {
            return std::hash<std::string_view>()(key.symbol) + static_cast<std::size_t>(key.source);
        }
    };
    struct SymbolEqual {
        using is_transparent = void;
        template<class A, class B>
        bool operator()(const A& a, const B& b) const {
            return a.source == b.source && a.symbol == b.symbol;
        }
    };
    /// A batch that is closed, with how much of the buffer it takes.
    struct Closed {
        std::string message;
        std::size_t bytes = 0;
        std::size_t records = 0;
        std::uint64_t number = 0;
    };

    void take(const tivra::Update& update) TP_EXCLUDES(m_mutex);
    void take(const tivra::SubscriptionView& view, const tivra::StateChange& change) TP_EXCLUDES(m_mutex);
    void take(const tivra::SubscriptionView& view, const tivra::Gap& gap) TP_EXCLUDES(m_mutex);
    [[nodiscard]] std::uint64_t& numberOf(int source, std::string_view symbol) TP_REQUIRES(m_mutex);
    /// After a record was added.
    void added(const RecordKey& key) TP_REQUIRES(m_mutex);
    void addGap(const RecordKey* key, const BusGap& gap) TP_REQUIRES(m_mutex);
    /// Notes what there is no room for.
    void leaveOut(int source, std::string_view symbol) TP_REQUIRES(m_mutex);
    [[nodiscard]] bool isFull() const;
    /// Says what was left out, once there is room again.
    void endOverflow() TP_REQUIRES(m_mutex);
    void closeBatch() TP_REQUIRES(m_mutex);
    void sendNext(Clock::time_point now) TP_REQUIRES(m_mutex);
    void answered(std::uint64_t number, const SendResult& result) TP_EXCLUDES(m_mutex);
    void stored(std::uint64_t position) TP_REQUIRES(m_mutex);
    void fence() TP_REQUIRES(m_mutex);

    const unsigned m_partition;
    const std::uint64_t m_epoch;
    BusPublisher& m_publisher;
    const WriterOptions m_options;
    WriterCounters& m_counters;
    tivra::Board m_board;

    mutable tp::Mutex m_mutex{tp::LockRank{10, "partition writer"}};
    std::unordered_map<SymbolKey, std::uint64_t, SymbolHash, SymbolEqual> m_numbers TP_GUARDED_BY(m_mutex);
    BatchWriter m_open TP_GUARDED_BY(m_mutex);
    Clock::time_point m_openSince TP_GUARDED_BY(m_mutex){};
    std::deque<Closed> m_closed TP_GUARDED_BY(m_mutex); ///< the first may be on its way
    bool m_isSending TP_GUARDED_BY(m_mutex) = false;
    bool m_needsLook TP_GUARDED_BY(m_mutex) = false; ///< nothing may be sent before
    bool m_wantsLook TP_GUARDED_BY(m_mutex) = false; ///< there may be another writer
    bool m_isFenced TP_GUARDED_BY(m_mutex) = false;
    std::uint64_t m_position TP_GUARDED_BY(m_mutex);      ///< of the stream's last message
    std::uint64_t m_lastBatch TP_GUARDED_BY(m_mutex) = 0; ///< the number of the last one closed
    std::uint64_t m_storedBatch TP_GUARDED_BY(m_mutex) = 0;
    int m_failures TP_GUARDED_BY(m_mutex) = 0; ///< of the batch on its way
    Clock::time_point m_sendAfter TP_GUARDED_BY(m_mutex){};
    std::minstd_rand m_chance TP_GUARDED_BY(m_mutex);

    std::uint64_t m_leftOut TP_GUARDED_BY(m_mutex) = 0; ///< updates, since the buffer is full
    std::string m_leftOutSince TP_GUARDED_BY(m_mutex);
    std::set<std::pair<int, std::string>> m_leftOutSymbols TP_GUARDED_BY(m_mutex);
};

} // namespace tivra_bus
