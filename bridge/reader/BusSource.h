#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include <feed/Instrument.h>

namespace tivra_bus {

/// A message of a partition's stream, or a sign of life without one.
struct StreamMessage {
    std::uint64_t position = 0; ///< in the stream, from 1; 0 for a sign of life
    std::uint64_t order = 0;    ///< counts what this consumer was sent, from 1
    std::uint64_t behind = 0;   ///< messages that the stream has after it
    std::string bytes;
};

/// Where a stream stands.
struct StreamSpan {
    std::uint64_t first = 0; ///< the position of its oldest message; after `last` when it holds none
    std::uint64_t last = 0;  ///< of the newest that it has ever had
    std::chrono::system_clock::time_point lastTime{}; ///< when that was stored, by the engine's clock
};

/// Where the reading of a stream begins: at a position, or with what was stored at a time and later.
using StreamStart = std::variant<std::uint64_t, std::chrono::system_clock::time_point>;

/// Reads one partition, in order and from one place on, as long as it lives.
class BusConsumer {
public:
    virtual ~BusConsumer() = default;
    /// Messages that the stream had from the beginning on when this was made.
    [[nodiscard]] virtual std::uint64_t behind() const = 0;
};

/// What a reader asks of an engine. Calls wait for the engine, no longer than its time for answers;
/// Kafka's, where a broker falls silent in the middle of one, up to four times as long.
/// @thread one at a time, isConnected() any
class BusSource {
public:
    /// May wait, so that the engine is read no faster than messages are taken. On a thread of the engine's.
    using OnMessage = std::function<void(StreamMessage&&)>;
    using OnStatus = std::function<void(std::string&&)>;

    virtual ~BusSource() = default;

    /// How the engine is laid out, in the words of the bridge. @throws BusError
    [[nodiscard]] virtual std::string layout() = 0;
    /// The dictionary that batches refer to; empty when there is none. @throws BusError
    [[nodiscard]] virtual std::string dictionary() = 0;
    /// The last values of symbols, in one round; nothing for one that has none, or for which the search takes
    /// longer: then it goes on when they are asked for again. @throws BusError
    [[nodiscard]] virtual std::vector<std::optional<std::string>>
    lastValues(const std::vector<tivra::Instrument>& instruments) = 0;
    /// The last state of a source that was told, if any. @throws BusError
    [[nodiscard]] virtual std::optional<std::string> status(int source) = 0;
    /// Has the states of all sources handed over from now on. @throws BusError
    virtual void followStatus(OnStatus onStatus) = 0;
    /// @throws BusError
    [[nodiscard]] virtual StreamSpan spanOf(unsigned partition) = 0;
    /// @throws BusError
    [[nodiscard]] virtual std::unique_ptr<BusConsumer> follow(unsigned partition, const StreamStart& start,
                                                              OnMessage onMessage) = 0;
    [[nodiscard]] virtual bool isConnected() const = 0;
};

} // namespace tivra_bus
