#pragma once

#include "bus/BatchReader.h"
#include "reader/FieldTypes.h"
#include "reader/SubscriptionState.h"

#include <algorithm>
#include <chrono>
#include <compare>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace tivra_bus {

/// The place of a record among all of its symbol.
struct RecordPlace {
    std::uint64_t epoch = 0;
    std::uint64_t number = 0;

    friend bool operator==(const RecordPlace& a, const RecordPlace& b) = default;
    friend auto operator<=>(const RecordPlace& a, const RecordPlace& b) {
        return std::pair(a.epoch, a.number) <=> std::pair(b.epoch, b.number);
    }
};

/// A symbol of a subscription: it brings last values and stream together, so that nothing between them is
/// lost or doubled, and knows whether the values are complete.
///
/// Last values that are ahead of the stream are kept until the stream has come to their place.
/// @thread reader
class SymbolTrack {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr Clock::time_point kSettled = Clock::time_point::max();

    SymbolTrack(tivra::Instrument instrument, std::shared_ptr<SubscriptionState> subscription);

    [[nodiscard]] bool isClosed() const { return m_subscription->isClosed(); }
    [[nodiscard]] const std::shared_ptr<SubscriptionState>& subscription() const { return m_subscription; }
    [[nodiscard]] const tivra::Instrument& instrument() const { return m_instrument; }

    /// From when on last values may have to be asked for or to be handed out; kSettled for never, as long as
    /// nothing comes.
    [[nodiscard]] Clock::time_point dueAt(std::chrono::milliseconds lookBack) const;
    /// Whether whoever looks at those that aren't settled has this one among them.
    [[nodiscard]] bool isLookedAt() const { return m_isLookedAt; }
    void setLookedAt(bool isLookedAt) { m_isLookedAt = isLookedAt; }

    /// Whether last values would be of use now. @param lookBack  how late they may be behind the stream
    [[nodiscard]] bool wantsLastValues(std::chrono::milliseconds lookBack, Clock::time_point now) const;
    /// The answer; null when there are none.
    void takeLastValues(const LastValues* last, const FieldTypes& types, Clock::time_point now);
    /// A record of the symbol, or a gap of all symbols.
    void take(const BusRecord& record, const BatchHeader& header, std::uint64_t position,
              const FieldTypes& types);
    /// Something of the stream that hasn't been told can't be read.
    void miss(tivra::BusGap::Cause cause);
    /// The same of one message, if this track hasn't read it before.
    void missAt(tivra::BusGap::Cause cause, std::uint64_t position) {
        if (position > m_readTo)
            miss(cause);
    }
    /// Whether last values are kept for so long that the stream has their place by now, if it ever has it.
    [[nodiscard]] bool wantsBound(std::chrono::milliseconds lookBack, Clock::time_point now) const {
        return m_kept && !m_keptTo && now - m_keptSince >= lookBack;
    }
    /// Where the stream ends now.
    void boundAt(std::uint64_t end) { m_keptTo = end; }
    /// The stream has been read up to there: last values that it hasn't come to are handed out.
    void settle(std::uint64_t position, const FieldTypes& types);
    /// What the stream has up to there was written before last values were asked for.
    void joinAt(std::uint64_t end) { m_joinEnd = end; }
    /// What the stream has up to there has been read by this track, and may come again.
    void hasRead(std::uint64_t position) { m_readTo = std::max(m_readTo, position); }
    /// The stream isn't the one that was read: all begins again, with last values.
    void beginAnew();
    /// Nothing of the stream has been read by this track.
    void beginReading() { m_readTo = 0; }

    /// The values can't be followed, for a reason; empty: they can.
    void setStale(const std::string& cause);
    /// The stream is behind what has been written in the meantime.
    void setBehind(bool isBehind);

private:
    struct Content {
        const BusFields& fields;
        const std::string& time;
    };

    void takeGap(const BusRecord& record, const RecordPlace& place, std::uint64_t position);
    void takeValues(const BusRecord& record, const RecordPlace& place, const BatchHeader& header,
                    const FieldTypes& types);
    /// Hands out what is kept, if the stream has come to it.
    void reach(const FieldTypes& types);
    void replaceByLast(const LastValues& last, tivra::Update::Kind kind, const FieldTypes& types);
    void deliver(tivra::Update::Kind kind, const RecordPlace& place, const Content& content,
                 const FieldTypes& types);
    void tell(const tivra::BusGap& gap);
    void tellMissing(const RecordPlace& next, std::optional<std::uint64_t> messages);
    void want(bool isWanted);
    void show(const std::string& cause);
    [[nodiscard]] tivra::DataState shown() const;

    const tivra::Instrument m_instrument;
    const std::shared_ptr<SubscriptionState> m_subscription;
    RecordPlace m_place;                   ///< of the last that was handed out
    std::uint64_t m_readTo = 0;            ///< positions up to it have been seen
    std::uint64_t m_joinEnd = 0;           ///< see joinAt()
    bool m_isJoined = false;               ///< an image was handed out
    bool m_isPartial = false;              ///< values may be missing until an image
    bool m_isExcused = false;              ///< a gap was told since the last values
    std::optional<tivra::BusGap> m_missed; ///< not told yet, since its count isn't known
    Clock::time_point m_missedSince{};
    std::optional<LastValues> m_kept; ///< ahead of the stream
    Clock::time_point m_keptSince{};
    std::optional<std::uint64_t> m_keptTo; ///< see boundAt()

    tivra::DataState m_told = tivra::DataState::Live; ///< by the bridge
    bool m_isBehind = false;
    std::string m_staleCause;
    tivra::DataState m_shown = tivra::DataState::Pending;

    Clock::time_point m_askAfter{}; ///< the next time for last values
    std::chrono::milliseconds m_pause;
    bool m_isLookedAt = false; ///< see setLookedAt()
};

} // namespace tivra_bus
