#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include <feed/Instrument.h>
#include <feed/SubscriptionGroup.h>
#include <reader/BusSubscription.h>
#include <tp/Mutex.h>

#include "Event.h"
#include "StreamSink.h"
#include "bus/BusFields.h"
#include "bus/BusQueue.h"

namespace tivra_python {

/// Takes what comes from the bus for the symbols of one stream, and knows how these are. Handlers of the bus
/// share it. @thread any, without the interpreter's lock
class BusInlet : public std::enable_shared_from_this<BusInlet> {
public:
    BusInlet(StreamSink::Options options, BusFields fields);

    [[nodiscard]] const std::shared_ptr<StreamSink>& sink() const noexcept { return m_sink; }

    /// Those of a group of symbols that is subscribed together.
    [[nodiscard]] tivra::BusHandlers handlers(std::uint64_t group);
    /// @return those that weren't here
    [[nodiscard]] std::vector<tivra::Instrument> enter(const std::vector<tivra::Instrument>& instruments,
                                                       std::uint64_t group) TP_EXCLUDES(m_mutex);
    /// They were never subscribed.
    void forget(const std::vector<tivra::Instrument>& instruments) TP_EXCLUDES(m_mutex);
    /// What has ended, and the groups of which nothing is left.
    struct Left {
        std::size_t count = 0;
        std::vector<std::uint64_t> groups;
    };
    /// They have ended: what still comes for them is passed over, and no delivery for them waits for the
    /// reader.
    Left leave(const std::vector<tivra::Instrument>& instruments) TP_EXCLUDES(m_mutex);
    /// No delivery waits for the reader any more.
    void endWaiting() { m_queue->endWaiting(); }

    [[nodiscard]] std::optional<tivra::DataState> state(const tivra::Instrument& instrument) const
        TP_EXCLUDES(m_mutex);
    [[nodiscard]] std::optional<std::chrono::system_clock::time_point>
    lastUpdate(const tivra::Instrument& instrument) const TP_EXCLUDES(m_mutex);
    [[nodiscard]] tivra::GroupStatistics statistics() const TP_EXCLUDES(m_mutex);
    [[nodiscard]] std::vector<tivra::Instrument> instruments() const TP_EXCLUDES(m_mutex);

private:
    struct Symbol {
        std::uint64_t group = 0;
        std::uint64_t subscription = 0; ///< of its events
        tivra::DataState state = tivra::DataState::Pending;
        std::optional<std::chrono::system_clock::time_point> lastUpdate;
    };

    /// @return whether it was the last of its group
    bool remove(std::map<tivra::Instrument, Symbol>::iterator symbol) TP_REQUIRES(m_mutex);
    void take(std::uint64_t group, const tivra::Instrument& instrument, Event&& event) TP_EXCLUDES(m_mutex);

    const BusFields m_fields;
    BusQueue* const m_queue; ///< of the sink
    const std::shared_ptr<StreamSink> m_sink;
    mutable tp::Mutex m_mutex;
    std::map<tivra::Instrument, Symbol> m_symbols TP_GUARDED_BY(m_mutex);
    std::map<std::uint64_t, std::size_t> m_groups TP_GUARDED_BY(m_mutex); ///< how many symbols each has
    std::uint64_t m_lastSubscription TP_GUARDED_BY(m_mutex) = 0;
    std::uint64_t m_updates TP_GUARDED_BY(m_mutex) = 0;
    std::uint64_t m_gaps TP_GUARDED_BY(m_mutex) = 0;
};

} // namespace tivra_python
