#include "Road.h"
#include "RoadHub.h"

#include <sys/resource.h>

namespace tivra_bench {

double processorSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

namespace {

double wallSeconds() {
    return static_cast<double>(nowNanoseconds()) / 1e9;
}

} // namespace

RoadProgress::RoadProgress(const RoadTask& task) : m_task(task) {
    m_run.latencies.reserve(task.paced ? task.messages : 0);
    if (task.passes == 1)
        beginMeasuring();
}

bool RoadProgress::endPass() {
    if (++m_passesDone == m_task.passes) {
        m_run.cpuSeconds = cpuSeconds() - m_cpu;
        m_run.wallSeconds = wallSeconds() - m_wall;
        return true;
    }
    if (m_passesDone > m_task.passes)
        return false;
    m_count = 0;
    if (m_passesDone + 1 == m_task.passes)
        beginMeasuring();
    m_task.hub.playAgain();
    return false;
}

double RoadProgress::cpuSeconds() const {
    return processorSeconds() + (m_task.beside ? m_task.beside() : 0.0);
}

void RoadProgress::beginMeasuring() {
    m_cpu = cpuSeconds();
    m_wall = wallSeconds();
}

} // namespace tivra_bench
