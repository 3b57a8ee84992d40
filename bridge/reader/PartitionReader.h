#pragma once

#include "bus/BatchReader.h"
#include "bus/BusError.h"
#include "bus/RepeatedTrouble.h"
#include "reader/BusProblem.h"
#include "reader/BusSource.h"
#include "reader/ConsumerPulse.h"
#include "reader/ReaderCounters.h"
#include "reader/SymbolTrack.h"

#include <algorithm>
#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace tivra_bus {

/// Reads a partition for the symbols of it that are subscribed: one consumer, which is started again where it
/// was when it falls silent or the engine was away.
/// @thread reader
class PartitionReader {
public:
    using Clock = std::chrono::steady_clock;

    /// What it needs of the reader around it.
    struct Surroundings {
        BusSource& source;
        ReaderCounters& counters;
        std::chrono::milliseconds lookBack;
        std::function<void(tivra::BusProblem&&)> onProblem;
        /// A batch of that revision of the dictionary comes. @return what it says
        std::function<const FieldTypes&(std::uint64_t revision)> typesOf;
        /// Where what a consumer brings has to go, with the number of that consumer.
        std::function<void(unsigned partition, std::uint64_t generation, StreamMessage&&)> onMessage;
    };

    PartitionReader(unsigned partition, const Surroundings& surroundings)
        : m_partition(partition), m_around(surroundings) {}

    void add(std::unique_ptr<SymbolTrack> track);
    /// Drops the symbols of subscriptions that are closed. @return whether none is left
    [[nodiscard]] bool dropClosed();

    /// What a consumer has brought.
    void take(const StreamMessage& message, std::uint64_t generation, Clock::time_point now);

    /// Does what asks the engine. What it throws is reported, and nothing of the partition is asked until
    /// some time has passed. @return whether it hasn't thrown
    bool attempt(const std::function<void()>& action);

    // The reading begins in this order, so that nothing is between last values and stream: prepare(), last
    // values of wanting(), start().
    [[nodiscard]] bool needsStart(Clock::time_point now) const;
    /// @throws BusError
    void prepare();
    /// Tracks that want last values.
    void addWanting(std::vector<SymbolTrack*>& tracks, Clock::time_point now) const;
    /// @throws BusError
    void start(Clock::time_point now);

    /// Looks how far the stream has to be read until last values that it hasn't come to can't come in it.
    [[nodiscard]] bool needsBound(Clock::time_point now) const;
    /// @throws BusError
    void bound(Clock::time_point now);
    /// Hands out last values that the stream has been read past.
    void settle(Clock::time_point now);
    /// The engine is lost: start() is needed when it is back.
    void lose();
    void forEach(const std::function<void(SymbolTrack&)>& call);

private:
    using Key = std::pair<int, std::string>;
    struct Look {
        int source;
        std::string_view symbol;
    };
    struct Less {
        using is_transparent = void;
        template<class A, class B>
        bool operator()(const A& a, const B& b) const {
            return std::pair<int, std::string_view>(of(a)) < std::pair<int, std::string_view>(of(b));
        }
        static std::pair<int, std::string_view> of(const Key& key) { return {key.first, key.second}; }
        static std::pair<int, std::string_view> of(const Look& key) { return {key.source, key.symbol}; }
    };

    void read(const StreamMessage& message);
    void readRecords(BatchReader& reader, std::uint64_t position);
    void tellUnreadable(const BatchError& error, std::uint64_t position);
    /// Whether the numbers of the header go on from the batch before.
    [[nodiscard]] bool isNew(const BatchHeader& header, std::uint64_t position);
    void dispatch(const BusRecord& record, const BatchHeader& header, std::uint64_t position,
                  const FieldTypes& types);
    void missAll(tivra::BusGap::Cause cause);
    /// Has something of a track changed, and looks at it from then on if it isn't settled.
    template<class Call>
    void change(SymbolTrack& track, const Call& call) {
        call(track);
        const Clock::time_point due = track.dueAt(m_around.lookBack);
        if (due == SymbolTrack::kSettled)
            return;
        m_lookAt = std::min(m_lookAt, due);
        if (track.isLookedAt())
            return;
        track.setLookedAt(true);
        m_unsettled.push_back(&track);
    }
    /// The stream has nothing more up to there.
    void passTo(std::uint64_t position);
    void setBehind(std::uint64_t behind);
    [[nodiscard]] StreamStart startOf(Clock::time_point now);
    /// Notes where the stream ends whose reading begins.
    void beginAt(const StreamSpan& span);

    const unsigned m_partition;
    const Surroundings& m_around;
    std::map<Key, std::vector<std::unique_ptr<SymbolTrack>>, Less> m_tracks;
    std::vector<SymbolTrack*> m_joining; ///< since the consumer was started
    /// The others, of which there may be very many, have nothing due. Some of these have settled meanwhile.
    std::vector<SymbolTrack*> m_unsettled;
    Clock::time_point m_lookAt = SymbolTrack::kSettled; ///< before that nothing of these is due

    std::unique_ptr<BusConsumer> m_consumer;
    std::uint64_t m_generation = 0;
    bool m_needsStart = false;
    std::optional<StreamSpan> m_span;       ///< between prepare() and start()
    std::shared_ptr<ConsumerPulse> m_pulse; ///< of the consumer
    RepeatedTrouble m_trouble;

    StreamStart m_firstStart;      ///< where the reading begins until something has been read
    std::uint64_t m_beginning = 0; ///< where the stream ended when last values were first asked for
    bool m_hasBegun = false;

    std::uint64_t m_order = 0;    ///< of the last message of this consumer
    std::uint64_t m_position = 0; ///< of the last that was read; 0 before the first
    std::uint64_t m_highest = 0;  ///< that was ever read
    std::uint64_t m_epoch = 0;    ///< of the batch there
    std::uint64_t m_batch = 0;
    bool m_hasMissed = false; ///< batches, which has been told, so that numbers may be left out once
    std::deque<std::pair<Clock::time_point, std::uint64_t>> m_recent; ///< when positions were read, of late
    bool m_isBehind = false; ///< after a loss, until the end of the stream
    BodyDecoder m_decoder;
    FieldTypes m_noTypes;
    const FieldTypes* m_types = &m_noTypes;
};

} // namespace tivra_bus
