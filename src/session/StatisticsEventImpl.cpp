#include "session/StatisticsEventImpl.h"

#include <algorithm>

#include <tp/eprintf.h>

#include "receive/Queue.h"

namespace tivra_internal {
namespace {

using tivra::StatisticsEvent;

struct StatisticRow {
    StatisticsEvent::StatsTypes type;
    uint64_t (*read)(const Queue& queue);
    bool isFillLevel;
};

uint64_t percent(int value) {
    return static_cast<uint64_t>(std::max(value, 0));
}

constexpr StatisticRow kStatistics[] = {
    {StatisticsEvent::MSGS_IN, [](const Queue& q) { return q.getMsgsIn(); }, false},
    {StatisticsEvent::MSGS_OUT, [](const Queue& q) { return q.getMsgsOut(); }, false},
    {StatisticsEvent::DROP, [](const Queue& q) { return q.getDroppedBytes(); }, false},
    {StatisticsEvent::HUB_DROP, [](const Queue& q) { return q.getHubDroppedBytes(); }, false},
    {StatisticsEvent::PCT_FULL, [](const Queue& q) { return percent(q.getPctFull()); }, true},
    {StatisticsEvent::PEAK_PCT_FULL, [](const Queue& q) { return percent(q.getPeakPctFull()); }, true},
    {StatisticsEvent::IN_MSGS_SEC_100MS, [](const Queue& q) { return q.getInputMsgSec_100ms(); }, false},
    {StatisticsEvent::PEAK_IN_MSGS_SEC_100MS, [](const Queue& q) { return q.getPeakInputMsgSec_100ms(); },
     false},
    {StatisticsEvent::IN_MSGS_SEC, [](const Queue& q) { return q.getInputMsgSec_1sec(); }, false},
    {StatisticsEvent::PEAK_IN_MSGS_SEC, [](const Queue& q) { return q.getPeakInputMsgSec_1sec(); }, false},
    {StatisticsEvent::OUT_MSGS_SEC_100MS, [](const Queue& q) { return q.getOutputMsgSec_100ms(); }, false},
    {StatisticsEvent::PEAK_OUT_MSGS_SEC_100MS, [](const Queue& q) { return q.getPeakOutputMsgSec_100ms(); },
     false},
    {StatisticsEvent::OUT_MSGS_SEC, [](const Queue& q) { return q.getOutputMsgSec_1sec(); }, false},
    {StatisticsEvent::PEAK_OUT_MSGS_SEC, [](const Queue& q) { return q.getPeakOutputMsgSec_1sec(); }, false},
    {StatisticsEvent::NET_MSGS_OUT, [](const Queue& q) { return q.getNetMsgsOut(); }, false},
    {StatisticsEvent::NET_OUT_MSGS_SEC_100MS, [](const Queue& q) { return q.getNetOutputMsgSec_100ms(); },
     false},
    {StatisticsEvent::PEAK_NET_OUT_MSGS_SEC_100MS,
     [](const Queue& q) { return q.getPeakNetOutputMsgSec_100ms(); }, false},
    {StatisticsEvent::NET_OUT_MSGS_SEC, [](const Queue& q) { return q.getNetOutputMsgSec_1sec(); }, false},
    {StatisticsEvent::PEAK_NET_OUT_MSGS_SEC, [](const Queue& q) { return q.getPeakNetOutputMsgSec_1sec(); },
     false},
};

} // namespace

void StatisticsEventImpl::add(const Queue& queue) {
    static_assert(std::size(kStatistics) == kStatCount);
    for (const StatisticRow& row : kStatistics) {
        uint64_t& total = m_stats[static_cast<std::size_t>(row.type)];
        const uint64_t value = row.read(queue);
        total = row.isFillLevel ? std::max(total, value) : total + value;
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
