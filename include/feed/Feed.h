#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "TivraApi.h"
#include "feed/Answer.h"
#include "feed/Board.h"
#include "feed/ConnectionEvent.h"
#include "feed/Enumerations.h"
#include "feed/FeedOptions.h"
#include "feed/Field.h"
#include "feed/HubStatistics.h"
#include "feed/Instrument.h"
#include "feed/LatencySummary.h"
#include "feed/Result.h"
#include "feed/Subscription.h"
#include "feed/SubscriptionGroup.h"
#include "feed/Update.h"
#include "feed/UpdateQueue.h"
#include "feed/Value.h"
#include "request/Commands.h"

namespace tivra_internal {
class FeedImpl;
enum class ItemKind : unsigned char;
} // namespace tivra_internal

namespace tivra {

class Opening;

/// What a feed has counted since it was opened.
struct FeedStatistics {
    std::uint64_t updates = 0;         ///< handed to subscriptions
    std::uint64_t unwanted = 0;        ///< messages for which there is no subscription, or not any more
    std::uint64_t lateAnswers = 0;     ///< parts of answers that came after their request had ended
    std::uint64_t failedCallbacks = 0; ///< exceptions that left a callback
    std::uint64_t slowCallbacks = 0;   ///< callbacks that took longer than FeedOptions::slowCallback
    std::size_t subscriptions = 0;     ///< open now
    std::size_t requests = 0;          ///< waiting for their answer now

    // Of all hubs together; HubStatistics says what they are, and of how many messages.
    LatencySummary socketToDecode;   ///< from the read that completed a message until it was decoded
    LatencySummary decodeToCallback; ///< from there until its first onUpdate was called
    LatencySummary callback;         ///< how long onUpdate took
    LatencySummary
        requestToAnswer; ///< of each request, from the call until its answer is complete or refused
    std::vector<HubStatistics> hubs; ///< each hub that the feed has had, those that have gone included
};

/// What Feed::list can ask for.
enum class ListOf {
    Fields,            ///< the dictionary
    Enumerations,      ///< the values of the enumerated fields
    Sources,           ///< the sources with their details
    Permissions,       ///< those of the user
    SubscribedSymbols, ///< what the hub has subscribed for the user
    Clients,           ///< who is connected to the hub
    Users,             ///< whom the hub knows
    Administration     ///< administration information of the hub
};

/// A connection to the data of one user: it finds the hubs, logs in, keeps the connections up, and brings
/// answers and updates. Any number of feeds may be open in a process.
///
/// Objects that it has given out may be destroyed before or after it, on any thread. A feed that is destroyed
/// closes first.
///
/// In a child that the process forks, calls of a feed and of what it has given out fail, and destructors do
/// nothing; the parent's feeds go on. The child may open feeds of its own.
///
/// @thread any; calls of several threads may overlap
class TIVRA_API Feed {
public:
    /// What a subscription without other handlers calls with what comes: SubscriptionHandlers::onUpdate.
    using UpdateCallback = std::function<void(const Update&)>;
    /// Names and values that tell this feed from others; see StatisticsText::Labels.
    using StatisticsLabels = std::vector<std::pair<std::string, std::string>>;

    /// Connects, logs in and waits until all hubs are ready.
    /// @throws Error with the phase and the hub that it failed at
    static Feed open(FeedOptions options);
    /// The same without exceptions.
    static Result<Feed> tryOpen(FeedOptions options);
    /// The same without waiting.
    /// @throws Error (InvalidOption); whatever fails later comes with the result
    [[nodiscard]] static Opening openAsync(FeedOptions options);

    /// Takes the connections over; callbacks and what the feed has given out go on. On a feed that was moved
    /// from, state() is Closed, close() does nothing, and other calls throw Error (Closed).
    Feed(Feed&&) noexcept;
    /// The same; the feed that was here closes, as in the destructor.
    Feed& operator=(Feed&&) noexcept;
    /// Closes, within FeedOptions::closeTimeout.
    ~Feed();

    /// The state now; Closed in a child that the process has forked. Never waits.
    FeedState state() const;
    /// How the connection to each hub stands: those of FeedOptions::hosts and backups, and those that they
    /// have named. The order stays.
    std::vector<HubStatus> hubs() const;
    /// Dials every hub that isn't connected at once, whatever pause is left.
    void reconnectNow();

    /// The field with this name, "BID" for example.
    /// @throws Error (UnknownField) when no hub knows it; (Closed)
    Field field(std::string_view name) const;
    /// The type of the values of a field with this name, by the first hub that has it; nothing when no hub
    /// that is ready has. Hubs may differ, and a hub may come back with another dictionary.
    std::optional<Value::Type> typeOf(std::string_view name) const;

    /// The present state of a symbol, once.
    /// @throws Error (InvalidArgument) for a symbol or source that can't be asked for; (QueueFull); (Closed).
    /// What
    ///         the hub has to say against it comes with the answer.
    Answer query(const Instrument& instrument);
    /// The same for many symbols, each with an answer of its own.
    std::vector<Answer> queryMany(const std::vector<Instrument>& instruments);
    /// The order book of a symbol, a record for each line.
    Answer queryDepth(const Instrument& instrument);
    /// The present state of all symbols of a source that match a pattern: "*" for any characters, "?" for
    /// one.
    Answer queryWildcard(int source, const std::string& pattern);
    /// Cross references of a symbol.
    Answer queryXref(const Instrument& instrument);

    /// A list of the hubs, a record for each entry. Hubs may refuse some of them to ordinary users.
    /// @throws Error as query()
    Answer list(ListOf what);

    /// What the numbers of enumerated fields stand for, asked of a hub with two lists at once.
    /// @throws Error as Answer::get of them
    Enumerations enumerations();

    /// The present state of a symbol, and then its updates, until the Subscription goes.
    /// @throws Error as query()
    [[nodiscard]] Subscription subscribe(const Instrument& instrument, UpdateCallback onUpdate);
    /// The same for who wants to hear of states and gaps too.
    [[nodiscard]] Subscription subscribe(const Instrument& instrument, SubscriptionHandlers handlers);
    /// The order book of a symbol, an update of kind Image for each line, and then its changes. A hub doesn't
    /// say which subscription a change is for: who has subscribed the order book and the symbol itself gets
    /// the changes of both in both.
    /// @throws Error as query()
    [[nodiscard]] Subscription subscribeDepth(const Instrument& instrument, SubscriptionHandlers handlers);
    /// All symbols of a source that match a pattern, as in queryWildcard(), with their present state and then
    /// their updates, symbols that the hub lists later included. Update::symbol() says which one it is;
    /// states and gaps are those of the pattern as a whole.
    /// @throws Error as query()
    [[nodiscard]] Subscription subscribeWildcard(int source, const std::string& pattern,
                                                 SubscriptionHandlers handlers);
    /// An empty group whose subscriptions share these handlers: for symbols by the thousand.
    [[nodiscard]] SubscriptionGroup makeGroup(SubscriptionHandlers handlers);
    /// The same with its first symbols.
    /// @throws Error as SubscriptionGroup::add
    [[nodiscard]] SubscriptionGroup subscribeAll(const std::vector<Instrument>& instruments,
                                                 SubscriptionHandlers handlers);
    /// The same into a queue, which is polled.
    [[nodiscard]] Subscription subscribe(const Instrument& instrument, const UpdateQueue& queue);
    /// The same onto a board.
    [[nodiscard]] Subscription subscribe(const Instrument& instrument, const Board& board);

    /// What the feed has counted up to now.
    /// @throws Error (Closed) in a child that the process has forked
    FeedStatistics statistics() const;
    /// The same as a line of JSON without a line break, in the form of StatisticsText::json: "time",
    /// "labels", counters, and times in seconds with the keys "count", "min", "p50", "p90", "p99", "p999" and
    /// "max".
    std::string statisticsText(const StatisticsLabels& labels = StatisticsLabels()) const;
    /// The same in the OpenMetrics 1.0 text form, as StatisticsText::openMetrics gives it: counters of the
    /// feed and of its hubs, which have a label "hub", and times as summaries in seconds, the shortest and
    /// the longest as the quantiles 0 and 1. Labels of the application with the names "hub" and "quantile"
    /// are left out.
    std::string openMetrics(const StatisticsLabels& labels = StatisticsLabels()) const;

    /// Closes: subscriptions end, outstanding answers fail with Closed, callbacks that run are waited for.
    /// Further calls do nothing.
    /// @return false when a callback still ran at the deadline: the rest is done on a thread of the library
    /// once
    ///         it has returned. So it is when this is called inside a callback.
    bool close(std::chrono::milliseconds deadline);
    /// The same within FeedOptions::closeTimeout.
    bool close();

private:
    friend class tivra_internal::FeedImpl;

    explicit Feed(std::shared_ptr<tivra_internal::FeedImpl> impl) noexcept;

    tivra_internal::FeedImpl& impl() const;
    Subscription enter(tivra_internal::ItemKind kind, const Instrument& instrument,
                       SubscriptionHandlers handlers);
    Answer ask(Commands command, const char* what, const Instrument& instrument);

    std::shared_ptr<tivra_internal::FeedImpl> m_impl;
};

} // namespace tivra
