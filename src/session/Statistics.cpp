// The counters of all receive queues, from the threads that own them to the application.
#include "session/SessionImpl.h"

#include <algorithm>

#include <session/StatisticsEventHandler.h>
#include <tp/Clock.h>
#include <tp/callOut.h>
#include <tp/eprintf.h>

#include "hub/HubClient.h"
#include "hub/HubEventReactor.h"
#include "receive/Queue.h"
#include "receive/QueueReadHandler.h"
#include "receive/UserEventReactor.h"
#include "request/RequestInternal.h"
#include "session/StatisticsEventImpl.h"

namespace tivra_internal {
namespace {

using tivra::StatisticsEvent;

void logTotals(const StatisticsEventImpl& totals) {
    const auto stat = [&totals](StatisticsEvent::StatsTypes type) {
        return static_cast<unsigned long>(totals.getStat(type));
    };
    eprintf(EPF_INFO,
            "MSGS_IN --> %lu; MSGS_OUT --> %lu; NET_MSGS_OUT --> %lu; DROP --> %lu; HUB_DROP --> %lu; "
            "PCT_FULL=%d/%d; "
            "IN_MSGS/SEC(100ms)=%lu/%lu IN_MSGS/SEC(1sec)=%lu/%lu; OUT_MSGS/SEC(100ms)=%lu/%lu "
            "OUT_MSGS/SEC(1sec)=%lu/%lu; NET_OUT_MSGS/SEC(100ms)=%lu/%lu NET_OUT_MSGS/SEC(1sec)=%lu/%lu",
            stat(StatisticsEvent::MSGS_IN), stat(StatisticsEvent::MSGS_OUT),
            stat(StatisticsEvent::NET_MSGS_OUT), stat(StatisticsEvent::DROP), stat(StatisticsEvent::HUB_DROP),
            static_cast<int>(totals.getStat(StatisticsEvent::PCT_FULL)),
            static_cast<int>(totals.getStat(StatisticsEvent::PEAK_PCT_FULL)),
            stat(StatisticsEvent::IN_MSGS_SEC_100MS), stat(StatisticsEvent::PEAK_IN_MSGS_SEC_100MS),
            stat(StatisticsEvent::IN_MSGS_SEC), stat(StatisticsEvent::PEAK_IN_MSGS_SEC),
            stat(StatisticsEvent::OUT_MSGS_SEC_100MS), stat(StatisticsEvent::PEAK_OUT_MSGS_SEC_100MS),
            stat(StatisticsEvent::OUT_MSGS_SEC), stat(StatisticsEvent::PEAK_OUT_MSGS_SEC),
            stat(StatisticsEvent::NET_OUT_MSGS_SEC_100MS), stat(StatisticsEvent::PEAK_NET_OUT_MSGS_SEC_100MS),
            stat(StatisticsEvent::NET_OUT_MSGS_SEC), stat(StatisticsEvent::PEAK_NET_OUT_MSGS_SEC));
}

} // namespace

bool SessionImpl::calc_hub_stats(double curtime, HubEventReactor& reactor) {
    const std::vector<HubClient*> clients = m_reactors.hubsOf(reactor.getIndex());
    if (m_run.isLeavingHubs())
        return false;
    bool isMoving = false;
    for (HubClient* client : clients)
        isMoving |= client->calcStats(curtime);
    return isMoving;
}

bool SessionImpl::calc_hub_queue_full_stats(double now, HubEventReactor& reactor) {
    const std::vector<HubClient*> clients = m_reactors.hubsOf(reactor.getIndex());
    if (m_run.isLeavingHubs())
        return false;
    bool goesOn = false;
    bool holdsData = false;
    for (HubClient* client : clients) {
        goesOn |= client->twentyFiveMsTick(now);
        holdsData |= client->getResponseQueue()->getPctFull() > 0;
    }
    if (holdsData)
        m_reactors.userLoops().askFirst(kCheckDepth);
    return goesOn;
}

bool SessionImpl::calc_user_stats(double curtime, UserEventReactor& reactor) {
    if (m_run.isLeavingHubs())
        return false;
    bool isMoving = false;
    for (QueueReadHandler* handler : m_reactors.handlersOf(reactor.getIndex()))
        isMoving |= handler->calcStats(curtime);
    return isMoving;
}

void SessionImpl::check_statistics_events(double curtime) {
    const double now = tp::Clock::monotonic();
    const bool due = now < lastStatsTime || now - lastStatsTime > statsInterval;
    auto totals = std::make_unique<StatisticsEventImpl>(session);
    for (HubClient* client : m_hubs.copy()) {
        Queue* const queue = client->getResponseQueue();
        if (queue == nullptr || !client->isReady())
            continue;
        queue->printStats(due, true, curtime);
        if (due)
            totals->add(*queue);
    }
    if (!due)
        return;
    logTotals(*totals);
    if (tivra::StatisticsEventHandler* const handler = statsHandler)
        tp::callOut("onStatisticsEvent", [&] {
            handler->onStatisticsEvent(*HandleAccess::make<StatisticsEvent>(std::move(totals)));
        });
    eprintf(EPF_INFO, "RequestQueue size=%zu; Watchlist size=%zu", m_queue.size(), watchlist.size());
    lastStatsTime = now;
}

bool SessionImpl::check_queueDepth_events() {
    const auto fullest = [clients = m_hubs.copy()] {
        int depth = 0;
        for (HubClient* client : clients)
            if (client->isReady())
                depth = std::max(depth, client->getResponseQueue()->getPctFull());
        return depth;
    };
    return m_queueDepthAlarm.look(fullest, m_queueDepthThreshold, tp::Clock::monotonic());
}

void SessionImpl::noteQueueDepth(int percent) {
    m_queueDepthAlarm.raise(percent, m_queueDepthThreshold, tp::Clock::monotonic());
    m_reactors.userLoops().askFirst(kCheckDepth); // for its end
}

} // namespace tivra_internal
