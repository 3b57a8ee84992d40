#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tivra_bench {

/// One run of a reader from the first data message to the last.
struct RoadRun {
    std::size_t messages = 0;
    double cpuSeconds = 0.0; ///< of the whole reading process
    double wallSeconds = 0.0;
    std::vector<std::int64_t> latencies; ///< nanoseconds, of a paced run
};

/// What a reader is asked for: that many data messages, with the stamp's age noted when `paced`.
struct RoadTask {
    std::uint16_t port = 0;
    std::size_t messages = 0;
    bool paced = false;
};

/// The first half of a run is not measured: every buffer has been touched by then.
[[nodiscard]] inline std::size_t warmUp(const RoadTask& task) { return task.messages / 2; }

/// The library, from the socket to the application's callback.
[[nodiscard]] RoadRun runLibrary(const RoadTask& task);
/// One thread that reads the socket, another that frames and parses with the library's parser alone.
[[nodiscard]] RoadRun runTwoThreads(const RoadTask& task);
/// A bare loop that reads and only finds where frames end.
[[nodiscard]] RoadRun runBareLoop(const RoadTask& task);

/// Notes processor and wall time between the first and the last message.
class RoadMeter {
public:
    void begin();
    void end(RoadRun& run) const;

private:
    double m_cpu = 0.0;
    double m_wall = 0.0;
};

} // namespace tivra_bench
