#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "Clock.h"
#include "RoadShapes.h"

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
    enum Through { HUB, ZMQ_PUSH, NATS } through = HUB; ///< who sends; the others only carry the frames
    Shape shape;                                        ///< of messages in place of the day's
    std::size_t shapedBytes = 0; ///< of them in a pass from each hub, sent past the hub's own thread
    std::string certificate{};   ///< with its key, for a hub that encrypts; empty for plain
    std::size_t hubs = 1;        ///< the sources of the others follow `kSource`
};

/// Copies of a block of shaped frames that make a pass.
inline constexpr std::size_t kShapedCopies = 8;
/// The messages of a pass from each hub.
[[nodiscard]] std::size_t shapedMessages(const RoadLoad& load);

/// Hubs in a process of their own, so that their work does not count as the reader's. It ends with its
/// parent.
class RoadHub {
public:
    explicit RoadHub(const RoadLoad& load);

    [[nodiscard]] std::uint16_t port() const { return m_ports.front(); }
    [[nodiscard]] const std::vector<std::uint16_t>& ports() const { return m_ports; }
    /// Plays all events once more.
    void playAgain();

private:
    ChildProcess m_process; ///< a byte plays again
    std::vector<std::uint16_t> m_ports;
};

/// A message of a paced run, with the time as its last value.
[[nodiscard]] std::string stampedFrame();
/// That time.
[[nodiscard]] std::int64_t stampOf(const char* frame, std::size_t length);
/// The first frames of the sample day, as the hub plays them.
[[nodiscard]] std::vector<std::string> framesOfDay(std::size_t events);
/// Calls `send` at each moment when a message of a paced run is due.
void sendPaced(const RoadLoad& load, const std::function<void()>& send);

} // namespace tivra_bench
