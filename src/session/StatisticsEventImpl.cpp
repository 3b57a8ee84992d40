#include "session/StatisticsEventImpl.h"

#include <algorithm>

#include <tp/eprintf.h>

#include "receive/Queue.h"

namespace tivra_internal {
namespace {

using tivra::StatisticsEvent;

/// Where a statistic comes from: a figure of the counters, which sums up over the queues, or a fill level, of
/// which the highest counts.
struct StatisticRow {
    StatisticsEvent::StatsTypes type;
    uint64_t (QueueStatistics::*figure)() const noexcept;
    int (Queue::*fillLevel)() const noexcept = nullptr;
};

constexpr StatisticRow kStatistics[] = {
    {StatisticsEvent::MSGS_IN, &QueueStatistics::getMsgsIn},
    {StatisticsEvent::MSGS_OUT, &QueueStatistics::getMsgsOut},
    {StatisticsEvent::DROP, &QueueStatistics::getDroppedBytes},
    {StatisticsEvent::HUB_DROP, &QueueStatistics::getHubDroppedBytes},
    {StatisticsEvent::PCT_FULL, nullptr, &Queue::getPctFull},
    {StatisticsEvent::PEAK_PCT_FULL, nullptr, &Queue::getPeakPctFull},
    {StatisticsEvent::IN_MSGS_SEC_100MS, &QueueStatistics::getInputMsgSec_100ms},
    {StatisticsEvent::PEAK_IN_MSGS_SEC_100MS, &QueueStatistics::getPeakInputMsgSec_100ms},
    {StatisticsEvent::IN_MSGS_SEC, &QueueStatistics::getInputMsgSec_1sec},
    {StatisticsEvent::PEAK_IN_MSGS_SEC, &QueueStatistics::getPeakInputMsgSec_1sec},
    {StatisticsEvent::OUT_MSGS_SEC_100MS, &QueueStatistics::getOutputMsgSec_100ms},
    {StatisticsEvent::PEAK_OUT_MSGS_SEC_100MS, &QueueStatistics::getPeakOutputMsgSec_100ms},
    {StatisticsEvent::OUT_MSGS_SEC, &QueueStatistics::getOutputMsgSec_1sec},
    {StatisticsEvent::PEAK_OUT_MSGS_SEC, &QueueStatistics::getPeakOutputMsgSec_1sec},
    {StatisticsEvent::NET_MSGS_OUT, &QueueStatistics::getNetMsgsOut},
    {StatisticsEvent::NET_OUT_MSGS_SEC_100MS, &QueueStatistics::getNetOutputMsgSec_100ms},
    {StatisticsEvent::PEAK_NET_OUT_MSGS_SEC_100MS, &QueueStatistics::getPeakNetOutputMsgSec_100ms},
    {StatisticsEvent::NET_OUT_MSGS_SEC, &QueueStatistics::getNetOutputMsgSec_1sec},
    {StatisticsEvent::PEAK_NET_OUT_MSGS_SEC, &QueueStatistics::getPeakNetOutputMsgSec_1sec},
};

} // namespace

void StatisticsEventImpl::add(const Queue& queue) {
    static_assert(std::size(kStatistics) == kStatCount);
    for (const StatisticRow& row : kStatistics) {
        uint64_t& total = m_stats[static_cast<std::size_t>(row.type)];
        if (row.fillLevel != nullptr)
            total = std::max(total, static_cast<uint64_t>(std::max((queue.*row.fillLevel)(), 0)));
        else
            total += (queue.statistics().*row.figure)();
    }
}

uint64_t StatisticsEventImpl::getStat(StatisticsEvent::StatsTypes type) const {
    const auto index = static_cast<std::size_t>(type);
    if (index < m_stats.size())
        return m_stats[index];
    eprintf(EPF_WARN, "Invalid statistics type (%d) passed to StatisticsEvent::getStat",
            static_cast<int>(type));
    return 0;
}

} // namespace tivra_internal
