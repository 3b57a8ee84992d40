#pragma once

#include <cstdint>

#include "TivraApi.h"

namespace tivra_internal {
class HandleAccess;
class StatisticsEventImpl;
} // namespace tivra_internal

namespace tivra {

class Session;

/// The counters of all ready hubs of a session taken together, handed to
/// StatisticsEventHandler::onStatisticsEvent and valid during that call only.
///
/// Counters run from the connection of each hub. Rates are messages per second. A peak is the sum of the
/// peaks of the hubs, so an upper bound and not an instant that happened; the two fill levels are the maximum
/// over the hubs.
///
/// @thread user
class TIVRA_API StatisticsEvent {
public:
    /// What can be asked for.
    enum StatsTypes : int {
        MSGS_IN = 0,                      ///< messages put into the receive queues
        MSGS_OUT = 1,                     ///< messages taken out of them
        DROP = 2,                         ///< bytes dropped here because a queue was full or a frame was bad,
                                          ///< or left in the queue of a connection that was dialled again
        HUB_DROP = 3,                     ///< bytes dropped at the hubs
        PCT_FULL = 4,                     ///< percent full, the fullest queue
        PEAK_PCT_FULL = 5,                ///< its peak
        IN_MSGS_SEC_100MS = 6,            ///< rate in, over the last 100 ms
        PEAK_IN_MSGS_SEC_100MS = 7,       ///< its peak
        IN_MSGS_SEC = 8,                  ///< rate in, over the last second
        PEAK_IN_MSGS_SEC = 9,             ///< its peak
        OUT_MSGS_SEC_100MS = 10,          ///< rate out, over the last 100 ms
        PEAK_OUT_MSGS_SEC_100MS = 11,     ///< its peak
        OUT_MSGS_SEC = 12,                ///< rate out, over the last second
        PEAK_OUT_MSGS_SEC = 13,           ///< its peak
        NET_MSGS_OUT = 14,                ///< messages handed to the application
        NET_OUT_MSGS_SEC_100MS = 15,      ///< rate handed to the application, over the last 100 ms
        PEAK_NET_OUT_MSGS_SEC_100MS = 16, ///< its peak
        NET_OUT_MSGS_SEC = 17,            ///< rate handed to the application, over the last second
        PEAK_NET_OUT_MSGS_SEC = 18        ///< its peak
    };

    StatisticsEvent(const StatisticsEvent&) = delete;
    StatisticsEvent& operator=(const StatisticsEvent&) = delete;

    /// One counter. A value outside the enumeration is logged at the warning level and gives 0.
    uint64_t getStat(StatsTypes type) const;
    /// The session that the counters belong to.
    Session& getSession() const;

private:
    friend class tivra_internal::HandleAccess;

    explicit StatisticsEvent(tivra_internal::StatisticsEventImpl* impl) noexcept;
    ~StatisticsEvent();

    tivra_internal::StatisticsEventImpl* statisticsEventImpl;
};

} // namespace tivra
