// What the counters of the road cost by themselves.
#include "Road.h"

#include "receive/QueueStatistics.h"

#include <benchmark/benchmark.h>

namespace tivra_bench {

RoadRun runStatistics(const RoadTask& task) {
    // A second of a feed at the speed that the road has been seen to have.
    constexpr std::size_t kPerTick = 100000;
    constexpr std::size_t kFrame = 130;
    constexpr std::size_t kPerRead = 50; // the input side counts what a read has brought
    tivra_internal::QueueStatistics statistics;
    const double from = processorSeconds();
    double now = 1.0;
    for (std::size_t message = 1; message <= task.messages; ++message) {
        if (message % kPerRead == 0) {
            statistics.in.m_bytes_in.add(kPerRead * kFrame);
            statistics.in.m_msgs_in.add(kPerRead);
        }
        statistics.out.m_net_msgs_out.add(1);
        statistics.out.m_bytes_out.add(kFrame);
        statistics.out.m_msgs_out.add(1);
        benchmark::ClobberMemory();
        if (message % kPerTick != 0)
            continue;
        now += 0.1;
        statistics.calcStats(now);
        statistics.calcStatsOut(now);
        if (message % (10 * kPerTick) == 0) {
            statistics.rotateSecond(now);
            benchmark::DoNotOptimize(statistics.rotateInterval(now));
            statistics.sumDrops();
        }
    }
    RoadRun run;
    run.cpuSeconds = run.wallSeconds = processorSeconds() - from;
    return run;
}

} // namespace tivra_bench
