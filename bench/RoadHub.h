#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "ChildProcess.h"

namespace tivra_bench {

inline constexpr int kSource = 100;
inline constexpr const char* kSymbols[] = {"AIG", "BAC", "IBM", "SPY"};
/// The field that carries the hub's monotonic clock in nanoseconds in a paced run.
inline constexpr int kStampToken = 30;
/// The symbol of a paced run.
inline constexpr const char* kPacedSymbol = "IBM";

/// What the hub sends once the road is open.
struct RoadLoad {
    std::size_t events = 0; ///< of the sample day at full speed; 0: a paced run
    unsigned repeat = 1;    ///< how often these are played in a pass
    std::size_t paced = 0;  ///< messages of a paced run
    std::size_t perSecond = 10000;
    bool zmq = false; ///< from a ZeroMQ PUSH socket
};

/// A hub in a process of its own, so that its work does not count as the reader's. It ends with its parent.
class RoadHub {
public:
    explicit RoadHub(const RoadLoad& load);

    [[nodiscard]] std::uint16_t port() const { return m_port; }
    /// Plays all events once more.
    void playAgain();

private:
    ChildProcess m_process; ///< a byte plays again
    std::uint16_t m_port = 0;
};

[[nodiscard]] std::int64_t nowNanoseconds();

/// A message of a paced run, with the time as its last value.
[[nodiscard]] std::string stampedFrame();
/// Calls `send` at each moment when a message of a paced run is due.
void sendPaced(const RoadLoad& load, const std::function<void()>& send);

} // namespace tivra_bench
