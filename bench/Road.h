#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tivra_bench {

class RoadHub;

/// The measured pass of a reader.
struct RoadRun {
    double cpuSeconds = 0.0; ///< of the whole reading process
    double wallSeconds = 0.0;
    std::vector<std::int64_t> latencies; ///< nanoseconds, of a paced run
};

/// What a reader is asked for: as many data messages in each pass, with the stamp's age noted when `paced`.
struct RoadTask {
    RoadHub& hub;
    std::size_t messages = 0;
    /// Only the last one is measured: every page of a ring has been touched by then. The hub begins a pass
    /// when the reader has all of the one before, so that no ring overflows and both sides meet the same
    /// burst.
    std::size_t passes = 1;
    bool paced = false;
    bool compressed = false;  ///< ask the hub for a zlib stream
    bool isInline = false;    ///< of the library, to call back on the hub's thread
    bool findsSymbol = false; ///< the library's callback finds out whom a message is for, as a feed does
    std::string issuer{}; ///< file of who vouches for the hub, to have the library encrypt; empty for plain
    bool isTunnelled = false; ///< the hub is reached by its port at 127.0.0.2
    std::function<double()>
        beside{}; ///< processor seconds of what belongs to the reader besides; none without
};

/// The library, from the socket to the application's callback.
[[nodiscard]] RoadRun runLibrary(const RoadTask& task);
/// Whether it can call back on the hub's thread.
[[nodiscard]] bool libraryHasInlineCallbacks();
/// The same through a feed for each hub. At least two passes.
[[nodiscard]] RoadRun runFeeds(const RoadTask& task);
/// The same through a feed and its subscriptions.
[[nodiscard]] RoadRun runFeed(const RoadTask& task);
/// Whether it has feeds.
[[nodiscard]] bool libraryHasFeeds();
/// One thread that reads the socket, another that frames and parses with the library's parser alone.
[[nodiscard]] RoadRun runTwoThreads(const RoadTask& task);
/// A bare loop of blocking reads that only finds where frames end, and the stamps of a paced run.
[[nodiscard]] RoadRun runBareLoop(const RoadTask& task);
/// zlib alone over the bytes that the hub sends to a compressed connection, with nothing read meanwhile.
[[nodiscard]] RoadRun runInflate(const RoadTask& task);
/// What the library's counting adds to the road: the counters of each message, and the ticks of a second.
[[nodiscard]] RoadRun runStatistics(const RoadTask& task);
#ifdef TIVRA_HAVE_ZMQ
/// A ZeroMQ PULL socket that takes the same frames from a PUSH socket in the hub's place, and looks into
/// none.
[[nodiscard]] RoadRun runZmq(const RoadTask& task);
#endif

#ifdef TIVRA_HAVE_NATS
/// A NATS subscriber of the same frames, which a server between carries, and looks into none.
[[nodiscard]] RoadRun runNats(const RoadTask& task);
#endif

/// Of this process, all of its threads.
[[nodiscard]] double processorSeconds();

/// Counts a run's messages, asks for the next pass and measures the last one.
class RoadProgress {
public:
    explicit RoadProgress(const RoadTask& task);

    /// Counts one message; true with the last of all.
    bool count() {
        if (++m_count < m_task.messages)
            return false;
        return endPass();
    }
    void addLatency(std::int64_t nanoseconds) { m_run.latencies.push_back(nanoseconds); }
    [[nodiscard]] const RoadRun& run() const { return m_run; }
    [[nodiscard]] std::size_t passesDone() const { return m_passesDone; }
    [[nodiscard]] std::size_t countInPass() const { return m_count; }

private:
    bool endPass();
    void beginMeasuring();
    [[nodiscard]] double cpuSeconds() const;

    const RoadTask m_task;
    RoadRun m_run;
    std::size_t m_count = 0;
    std::size_t m_passesDone = 0;
    double m_cpu = 0.0;
    double m_wall = 0.0;
};

} // namespace tivra_bench
