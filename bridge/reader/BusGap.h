#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace tivra {

/// A time of which a subscription of a BusReader has missed what was sent. It stands in the stream: it comes
/// after the last update before it, and before what makes up for it.
struct BusGap {
    /// Why data was missed.
    enum class Cause : unsigned char {
        Loss,       ///< a bridge had lost the connection to its hub; an image follows
        Withdrawal, ///< a bridge's user was not entitled to the source for a time; an image follows
        Overrun,    ///< the hub has dropped data for want of room; no image follows
        Conflation, ///< the hub has merged updates for want of room; no image follows
        Takeover,   ///< another bridge writes the symbol now; an image follows
        Overflow,   ///< the engine was too slow for the bridge; a refresh of what is concerned follows
        Expired,    ///< the stream has dropped messages, by age or size, before this reader came to them
        Unreadable, ///< the stream has messages that aren't batches
        Missing     ///< the numbers of the records show that some aren't in the stream
    };
    Cause cause = Cause::Loss;                  ///< why data was missed
    std::chrono::system_clock::time_point from; ///< when it began, by the clock of the bridge
    std::chrono::system_clock::time_point to;   ///< when it was over
    /// How many updates of the symbol are missing, where that can be known: exactly for Expired, Unreadable
    /// and Missing while one bridge writes. It may be 0: of the symbol's updates none is missing, though
    /// states and gaps may be.
    std::optional<std::uint64_t> messages;
    std::optional<std::uint64_t> bytes; ///< of the hub's data in all, where that can be known
};

/// "loss", "takeover" and so on.
const char* nameOf(BusGap::Cause cause);

} // namespace tivra
