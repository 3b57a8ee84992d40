#pragma once

#include "reader/BusOptions.h"
#include "reader/BusSubscription.h"

#include <feed/ConnectionEvent.h>
#include <feed/Error.h>
#include <feed/Instrument.h>
#include <feed/Result.h>
#include <feed/Value.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tivra_bus {
class BusSource;
class ReaderThread;
} // namespace tivra_bus

namespace tivra {

/// What a reader has counted since it was opened.
struct BusStatistics {
    std::uint64_t batches = 0;    ///< read, those that were read again included
    std::uint64_t duplicates = 0; ///< batches and records that the numbers show to be there twice
    std::uint64_t updates = 0;    ///< handed to subscriptions
    std::uint64_t gaps = 0;       ///< reported to them
    std::uint64_t problems = 0;   ///< see BusOptions::onProblem
    std::uint64_t restarts = 0;   ///< of the reading of a partition: after losses, and to join it
    std::size_t partitions = 0;   ///< that are read now: those with symbols that are subscribed
    std::size_t waitingBytes = 0; ///< of batches that have come and wait for the handlers
};

/// Reads what bridges have published on an engine: a symbol's last values, and then everything that comes, in
/// order and each once, with the states and gaps of a feed's subscription.
///
/// What differs from a Feed: there are no queries and lists, no patterns and order books, no Field objects
/// (fields go by their names) and no permission numbers; a symbol that no bridge publishes stays Pending,
/// since nobody is there to refuse it; a gap has causes of the bus too.
///
/// A handler that is slow holds up the reading, not the engine: nothing is lost until the stream drops, by
/// age or size, what hasn't been read, and then the gap says how many updates that were. Up to 64 MB of
/// batches wait in the process.
///
/// @thread any
class BusReader {
public:
    /// Connects, and looks how the engine is laid out.
    /// @throws Error (InvalidOption) for a URL or a file that can't be meant; (OpenFailed) when no server can
    /// be reached, or no bridge has published there
    static BusReader open(BusOptions options);
    /// The same without exceptions.
    static Result<BusReader> tryOpen(BusOptions options);
    /// On an engine that the caller reaches. @throws Error (OpenFailed)
    static BusReader open(BusOptions options, std::unique_ptr<tivra_bus::BusSource> source);

    /// Takes the connection over; subscriptions go on.
    BusReader(BusReader&&) noexcept;
    /// The same; the reader that was here closes.
    BusReader& operator=(BusReader&&) noexcept;
    /// Closes.
    ~BusReader();

    /// Last values of these symbols as images, and then what comes for them. Doesn't wait.
    /// @param fields  names of the fields that are handed out, and what has none of them isn't; empty for all
    /// @throws Error (InvalidArgument) for a symbol or source that can't be meant; (Closed)
    [[nodiscard]] BusSubscription subscribe(int source, const std::vector<std::string>& symbols,
                                            BusHandlers handlers, std::vector<std::string> fields = {});
    /// The same for symbols of several sources.
    [[nodiscard]] BusSubscription subscribe(const std::vector<Instrument>& instruments, BusHandlers handlers,
                                            std::vector<std::string> fields = {});

    /// Established while the engine is connected, Recovering while it is lost, Closed after close().
    FeedState state() const;
    /// How many partitions the engine is laid out with.
    unsigned partitions() const;
    /// What a field holds, as the dictionary of the bridges' hubs has it; nothing for one that isn't in it.
    std::optional<Value::Type> typeOf(const std::string& field) const;
    /// What has been counted up to now.
    BusStatistics statistics() const;

    /// Ends all subscriptions and the connection. A callback that runs is waited for, unless this is called
    /// in it.
    void close();

private:
    explicit BusReader(std::shared_ptr<tivra_bus::ReaderThread> thread) noexcept;

    tivra_bus::ReaderThread& thread() const;

    std::shared_ptr<tivra_bus::ReaderThread> m_thread;
};

} // namespace tivra
