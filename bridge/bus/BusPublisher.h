#pragma once

#include "bus/SendResult.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tivra_bus {

/// What has to be there on the engine.
struct BusLayout {
    unsigned partitions = 16;
    int replicas = 1;
    std::chrono::seconds maxAge{24 * 3600}; ///< of the messages of a partition
    std::int64_t maxBytes = 1LL << 30;      ///< of a partition
};

/// Where the stream of a partition ends.
struct StreamEnd {
    std::uint64_t position = 0; ///< of its last message; 0 for none
    std::uint64_t epoch = 0; ///< that the last batch was written in; 0 where the last message isn't a batch
    std::uint64_t batch = 0;
    std::string writer; ///< of the last batch
    std::string time;   ///< when the last batch was closed; empty for none
};

/// Writes to an engine. What is sent with a ticket is answered later, once, on a thread of the publisher or
/// the one that flushes.
/// Sending may wait for as long as a write to the engine's socket may take, so no callback of a feed sends.
/// @thread any
class BusPublisher {
public:
    virtual ~BusPublisher() = default;

    /// Creates what is missing and checks what is there. Waits for the engine.
    /// @throws BusError where it can't be had, or is laid out for something else
    virtual void prepare(const BusLayout& layout) = 0;
    /// Waits for the engine. @throws BusError
    [[nodiscard]] virtual StreamEnd endOf(unsigned partition) = 0;

    /// Sends a batch, of a partition that was prepared, that has to come directly after `expected`, the
    /// position of the stream's last message.
    virtual void sendBatch(unsigned partition, std::string_view batch, std::uint64_t expected,
                           SendTicket ticket) = 0;
    /// Asks for position and epoch of a symbol's last values, as SendResult has them: Stored with position 0
    /// when there are none.
    virtual void findLast(int source, std::string_view symbol, SendTicket ticket) = 0;
    /// Sends a symbol's last values in place of those at `expected`; 0 when there may be none.
    virtual void sendLast(int source, std::string_view symbol, std::string_view message,
                          std::uint64_t expected, SendTicket ticket) = 0;
    /// Sends the state of a source, which stays to be read.
    virtual void sendStatus(int source, std::string_view message) = 0;
    /// Sends a single record to whoever listens now.
    virtual void sendLive(int source, std::string_view symbol, std::string_view record) = 0;
    /// Puts what is sent on its way, and ends what is answered or has waited too long. One thread at a time.
    virtual void flush() = 0;
    /// Waits for an answer to a batch of the partition, so long at most, and ends it. The thread that
    /// flushes.
    /// @return false, at once, where answers are ended without that
    [[nodiscard]] virtual bool awaitAnswer(unsigned /*partition*/, std::chrono::milliseconds /*longest*/) {
        return false;
    }

    /// Stores what the hubs' dictionary says. @return its revision. @throws BusError
    [[nodiscard]] virtual std::uint64_t storeDictionary(const std::string& text) = 0;

    /// Whether there is a connection to the engine now. It never waits.
    [[nodiscard]] virtual bool isConnected() const = 0;
    /// The largest message that the engine takes.
    [[nodiscard]] virtual std::size_t maxMessage() const = 0;
};

} // namespace tivra_bus
