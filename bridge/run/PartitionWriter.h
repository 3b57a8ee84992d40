#pragma once

#include "bus/BusPublisher.h"
#include "bus/OpenBatch.h"
#include "run/LiveRecords.h"
#include "run/SendBell.h"
#include "run/SlotTable.h"
#include "run/WriterCounters.h"
#include "run/WriterOptions.h"

#include <feed/Subscription.h>
#include <feed/Update.h>

#include <tp/Mutex.h>

#include <atomic>
#include <chrono>
#include <deque>
#include <memory>
#include <random>
#include <string>

namespace tivra_bus {

/// Writes one partition for as long as its lease is held: batches of what a feed delivers, one on its way at
/// a time, each expected directly after the one before. A batch that isn't acknowledged is sent again as it
/// is. What there is no room for is counted, and a gap and the present values stand in its place.
///
/// @thread take(): those that deliver, which only append; pump(): one that sends; looked(): one that may wait
/// for the engine
class PartitionWriter : public SendListener, public std::enable_shared_from_this<PartitionWriter> {
public:
    using Clock = std::chrono::steady_clock;

    /// @param end  of the stream; a gap from there begins what is written
    /// @param names  of the feed's fields
    /// @param bell  rung when the next batch can be sent at once
    PartitionWriter(unsigned partition, std::uint64_t epoch, const StreamEnd& end, BusPublisher& publisher,
                    const WriterOptions& options, std::shared_ptr<WriterCounters> counters,
                    std::shared_ptr<FieldNames> names, std::shared_ptr<SendBell> bell);
    ~PartitionWriter() override;

    /// The handlers of this partition's subscriptions, which keep it alive.
    [[nodiscard]] tivra::SubscriptionHandlers handlers();

    /// The symbols whose values or states have changed since the last call, by the index of their slot. One
    /// that only has a state isn't among them: it has no values that may take the place of others.
    [[nodiscard]] std::vector<std::uint32_t> takeChanged();
    /// It stays.
    [[nodiscard]] const SymbolName& nameAt(std::uint32_t index);
    /// The message with a symbol's last values, as of its last record; empty when they are more than the
    /// engine takes.
    [[nodiscard]] std::string lastValuesAt(std::uint32_t index);
    /// Nothing for a symbol that nothing has come for.
    [[nodiscard]] std::optional<tivra::DataState> stateOf(int source, std::string_view symbol) const;
    /// The subscriptions end: what comes from now on may be missing.
    void endTaking();
    /// The subscriptions have ended: last values say so.
    void setClosed();

    /// Closes and sends what is due.
    void pump(Clock::time_point now);
    void sent(std::uint64_t tag, const SendResult& result) override;

    /// A batch waits for the acknowledgement of the one before it.
    [[nodiscard]] bool isHeldUp() const;

    /// How many bytes may wait, and the dictionary of what is written from now on.
    void setRoom(std::size_t bytes) { m_room.store(bytes, std::memory_order_relaxed); }
    void setDictionary(std::uint64_t revision) { m_dictionary.store(revision, std::memory_order_relaxed); }

    /// Whether it has to be looked where the stream ends.
    [[nodiscard]] bool needsLook() const;
    /// There may be another writer.
    void askForLook();
    /// Where it ends.
    void looked(const StreamEnd& end);

    /// It has given up: the stream isn't as it was left.
    [[nodiscard]] bool isFenced() const;
    /// Why it has given up, or why the engine doesn't take what is sent; empty while all is well.
    [[nodiscard]] std::string trouble() const;
    /// Whether its first batch is stored, so that no writer before it can write.
    [[nodiscard]] bool isEstablished() const;
    [[nodiscard]] bool isDrained() const;
    [[nodiscard]] unsigned partition() const { return m_partition; }
    [[nodiscard]] std::uint64_t epoch() const { return m_epoch; }

private:
    /// A batch that is closed, with how much of the buffer it takes.
    struct Closed {
        std::shared_ptr<ClosedBatch> batch; ///< not changed while anybody else has it
        std::size_t bytes = 0;
        std::size_t records = 0;
        std::uint64_t number = 0;
    };
    /// What has to be sent outside of the lock.
    struct Sending {
        std::shared_ptr<const ClosedBatch> batch; ///< null for nothing
        std::uint64_t number = 0;
        std::uint64_t expected = 0;
    };

    void take(const tivra::Update& update) TP_EXCLUDES(m_mutex);
    /// Values that the slot has got already.
    void add(RecordType type, SymbolSlot& slot, const tivra::Update& update) TP_REQUIRES(m_mutex);
    void take(const tivra::SubscriptionView& view, const tivra::StateChange& change) TP_EXCLUDES(m_mutex);
    void take(const tivra::SubscriptionView& view, const tivra::Gap& gap) TP_EXCLUDES(m_mutex);
    /// Calls add(batch), which adds one record; again for the next batch where this one has no room for it.
    template<class Add>
    void addFitting(const Add& add) TP_REQUIRES(m_mutex);
    /// The record that was added last, to be read by itself.
    [[nodiscard]] std::string aloneText(const ValuesRecord& record) const TP_REQUIRES(m_mutex);
    /// Whether a record of the symbol can be written now; if not, that is noted.
    [[nodiscard]] bool makeWay(SymbolSlot& slot) TP_REQUIRES(m_mutex);
    [[nodiscard]] bool isFull() const TP_REQUIRES(m_mutex);
    void queueRepair(SymbolSlot& slot) TP_REQUIRES(m_mutex);
    void leaveOut(SymbolSlot& slot, std::optional<std::uint64_t> messages) TP_REQUIRES(m_mutex);
    /// Says what was left out.
    void endOverflow() TP_REQUIRES(m_mutex);
    /// Writes state and present values of a symbol that was left out.
    void repair(SymbolSlot& slot) TP_REQUIRES(m_mutex);
    void repairSome() TP_EXCLUDES(m_mutex);
    void noteChange(SymbolSlot& slot) TP_REQUIRES(m_mutex);
    /// After a record was added.
    void added(const RecordKey& key) TP_REQUIRES(m_mutex);
    void addGap(const RecordKey* key, const BusGap& gap) TP_REQUIRES(m_mutex);
    void closeBatch() TP_REQUIRES(m_mutex);
    [[nodiscard]] Closed closed(OpenBatch& records, std::uint64_t number) const TP_REQUIRES(m_mutex);
    /// A gap in the place of a batch that the engine never takes.
    void replaceFront() TP_REQUIRES(m_mutex);
    [[nodiscard]] Sending nextToSend(Clock::time_point now) TP_REQUIRES(m_mutex);
    void addBytes(std::size_t bytes) TP_REQUIRES(m_mutex);
    /// Counts what the open batch has got since the last time.
    void countOpen() TP_REQUIRES(m_mutex);
    void removeBytes(std::size_t bytes) TP_REQUIRES(m_mutex);
    void stored(std::uint64_t position) TP_REQUIRES(m_mutex);
    void failed(const SendResult& result) TP_REQUIRES(m_mutex);
    void fence(std::string why) TP_REQUIRES(m_mutex);

    const unsigned m_partition;
    const std::uint64_t m_epoch;
    const std::string m_writer;
    BusPublisher& m_publisher;
    const WriterOptions m_options;
    // The publisher may still call when nobody else has the writer.
    const std::shared_ptr<WriterCounters> m_counters;
    const std::shared_ptr<FieldNames> m_names;
    const std::shared_ptr<SendBell> m_bell;
    std::atomic<std::size_t> m_room;
    std::atomic<std::uint64_t> m_dictionary{0};

    mutable tp::Mutex m_mutex{tp::LockRank{10, "partition writer"}};
    SlotTable m_slots TP_GUARDED_BY(m_mutex);
    std::vector<std::uint32_t>
        m_changed TP_GUARDED_BY(m_mutex);                ///< slots, in the order of their first change
    SymbolImage::Change m_change TP_GUARDED_BY(m_mutex); ///< of the update at hand
    std::unique_ptr<OpenBatch> m_open TP_GUARDED_BY(m_mutex) TP_PT_GUARDED_BY(m_mutex);
    std::size_t m_openBytes TP_GUARDED_BY(m_mutex) = 0; ///< of it in m_waitingBytes
    Clock::time_point m_openSince TP_GUARDED_BY(m_mutex){};
    std::deque<Closed> m_closed TP_GUARDED_BY(m_mutex);    ///< the first may be on its way
    std::size_t m_waitingBytes TP_GUARDED_BY(m_mutex) = 0; ///< of records that aren't acknowledged
    LiveRecords m_live TP_GUARDED_BY(m_mutex);

    bool m_isSending TP_GUARDED_BY(m_mutex) = false;
    bool m_needsLook TP_GUARDED_BY(m_mutex) = false; ///< nothing may be sent before
    bool m_wantsLook TP_GUARDED_BY(m_mutex) = false; ///< there may be another writer
    bool m_isFenced TP_GUARDED_BY(m_mutex) = false;
    std::uint64_t m_position TP_GUARDED_BY(m_mutex);      ///< of the stream's last message
    std::uint64_t m_lastBatch TP_GUARDED_BY(m_mutex) = 0; ///< the number of the last one closed
    std::uint64_t m_storedBatch TP_GUARDED_BY(m_mutex) = 0;
    int m_failures TP_GUARDED_BY(m_mutex) = 0; ///< of the batch on its way
    std::string m_trouble TP_GUARDED_BY(m_mutex);
    Clock::time_point m_sendAfter TP_GUARDED_BY(m_mutex){};
    std::minstd_rand m_chance TP_GUARDED_BY(m_mutex);

    bool m_isOverflowing TP_GUARDED_BY(m_mutex) = false;
    /// Left out since the buffer was full; nothing when that isn't known.
    std::optional<std::uint64_t> m_leftOut TP_GUARDED_BY(m_mutex) = 0;
    std::string m_endOfTaking TP_GUARDED_BY(m_mutex); ///< empty while there is none
    std::string m_leftOutSince TP_GUARDED_BY(m_mutex);
    std::deque<SymbolSlot*> m_unrepaired TP_GUARDED_BY(m_mutex); ///< some of them may have been repaired
};

} // namespace tivra_bus
