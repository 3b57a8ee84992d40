#pragma once

#include <cstddef>

namespace tivra_bench {

class GroupProcess;

/// What a session with its watchlist on is asked to carry.
struct RequestTask {
    std::size_t requests = 0;   ///< beside one for each hub that opens the road
    bool manyHubThreads = true; ///< a thread for each hub, or one for all of them
};

/// What it took.
struct RequestRun {
    double sendSeconds = 0.0;     ///< of the application's thread, in `send`
    double sendCpu = 0.0;         ///< its processor time
    double answeredSeconds = 0.0; ///< from the first `send` to the last answer
    double answeredCpu = 0.0;     ///< processor time of the process meanwhile
    double replaySeconds = 0.0;   ///< from the loss of all hubs to the last answer of the replay
    double replayCpu = 0.0;
    double idleCpu = 0.0;       ///< in a second in which nothing happens
    double heapBytes = 0.0;     ///< allocated for what stands, once all is answered
    double residentBytes = 0.0; ///< the growth of the process by then
};

/// Subscribes, waits for all answers, has the hubs drop their connections and waits for all answers to the
/// replay: in a process of its own, so that each run finds an empty heap. Throws std::runtime_error when an
/// answer is missing, or is none of success.
[[nodiscard]] RequestRun runRequests(const GroupProcess& group, const RequestTask& task);

} // namespace tivra_bench
