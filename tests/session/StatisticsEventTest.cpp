#include "session/StatisticsEventImpl.h"

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "hub/HubPeer.h"
#include "receive/FrameHandler.h"
#include "receive/Queue.h"

using tivra::StatisticsEvent;

namespace tivra_internal {
namespace {

/// One connection's queue on a scripted day: frames of 10,000 bytes, ticks of 100 ms, two seconds.
class ScriptedQueue : public FrameHandler {
public:
    ScriptedQueue() {
        queue.setQueueHandler(this);
        tick("", 20, 18, 17);
        tick("", 30, 20, 10);
        queue.printStats(false, true, m_now);
        tick(std::string(50'000, 'g'), 10, 14, 12);
        tick("", 5, 1, 0);
        queue.updateHubDrops(7);
        queue.printStats(true, true, m_now);
    }
    unsigned process_kvn_buffer(char*, unsigned long, uint64_t* netMsgs) override {
        if (m_wanted > 0) {
            --m_wanted;
            ++*netMsgs;
        }
        return 0;
    }
    void reset() override {}

    Queue queue{1, false, nullptr, 70};

private:
    /// Garbage and frames come in, some are taken out, and of these some reach the application.
    void tick(std::string bytes, int in, int out, int net) {
        for (int i = 0; i < in; ++i)
            bytes += frameOf(std::string(9'993, 'x'));
        EXPECT_FALSE(queue.takeOver({bytes.data(), bytes.size()}));
        queue.calcQueueFullStats();
        m_wanted = net;
        for (int i = 0; i < out; ++i)
            EXPECT_TRUE(queue.PopElement());
        queue.calcQueueFullStats();
        queue.calcStats(m_now);
        queue.calcStatsOut(m_now);
        m_now += 0.1;
    }

    double m_now = 1000.0;
    int m_wanted = 0;
};

} // namespace

/// Counted by hand: the garbage is five messages of the mean size. Counts and rates add up over the
/// connections, fill levels are those of the fullest. Each peak stands on its own.
TEST(StatisticsEvent, ReportsWhatWentThroughTheQueues) {
    const struct {
        StatisticsEvent::StatsTypes type;
        uint64_t ofOne;
    } expected[] = {
        {StatisticsEvent::MSGS_IN, 65 + 5},
        {StatisticsEvent::MSGS_OUT, 18 + 20 + 14 + 1},
        {StatisticsEvent::NET_MSGS_OUT, 17 + 10 + 12},
        {StatisticsEvent::DROP, 50'000},
        {StatisticsEvent::HUB_DROP, 7},
        {StatisticsEvent::IN_MSGS_SEC_100MS, 100 + 50},
        {StatisticsEvent::PEAK_IN_MSGS_SEC_100MS, 300},
        {StatisticsEvent::IN_MSGS_SEC, 15 + 5},
        {StatisticsEvent::PEAK_IN_MSGS_SEC, 50},
        {StatisticsEvent::OUT_MSGS_SEC_100MS, 140},
        {StatisticsEvent::PEAK_OUT_MSGS_SEC_100MS, 200},
        {StatisticsEvent::OUT_MSGS_SEC, 15},
        {StatisticsEvent::PEAK_OUT_MSGS_SEC, 38},
        {StatisticsEvent::NET_OUT_MSGS_SEC_100MS, 120},
        {StatisticsEvent::PEAK_NET_OUT_MSGS_SEC_100MS, 170},
        {StatisticsEvent::NET_OUT_MSGS_SEC, 12},
        {StatisticsEvent::PEAK_NET_OUT_MSGS_SEC, 27},
    };
    int session = 0; // an event knows its session by the address alone
    StatisticsEventImpl event(reinterpret_cast<tivra::Session&>(session));
    const auto first = std::make_unique<ScriptedQueue>(), second = std::make_unique<ScriptedQueue>();
    Queue idle(1, false, nullptr, 70);
    for (const Queue* queue : {&first->queue, &idle, &second->queue, &idle})
        event.add(*queue);
    for (const auto& row : expected)
        EXPECT_EQ(event.getStat(row.type), 2 * row.ofOne) << row.type;
    // 120,000 of 1,048,576 bytes in the end, 320,000 at the fullest.
    EXPECT_EQ(event.getStat(StatisticsEvent::PCT_FULL), 11U);
    EXPECT_EQ(event.getStat(StatisticsEvent::PEAK_PCT_FULL), 31U);
}

} // namespace tivra_internal
