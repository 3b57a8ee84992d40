#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "TivraApi.h"
#include "feed/Field.h"
#include "feed/Instrument.h"
#include "feed/Record.h"
#include "feed/Subscription.h"
#include "feed/Value.h"

namespace tivra_internal {
class BoardState;
} // namespace tivra_internal

namespace tivra {

/// How much a board may keep.
struct BoardOptions {
    /// Symbols that it takes, at least 1. What comes for more is counted and not kept.
    std::size_t maxSymbols = 1'000'000;
};

/// A symbol of a board at one moment: a copy, which may be kept.
struct BoardRow {
    /// Source, symbol, and the last value of each field.
    Record values;
    /// That of the subscriptions that feed the row; Closed once the last of them has ended.
    DataState state = DataState::Pending;
    /// When the last update came, to about a millisecond; nothing before the first.
    std::optional<std::chrono::system_clock::time_point> lastUpdate;
    std::uint64_t updates = 0; ///< images included
    std::uint64_t gaps = 0;    ///< times of which updates of this symbol may have been missed

    /// What values there are are old: after a loss and until the new image has come, or when the subscription
    /// has ended.
    bool isStale() const noexcept { return state != DataState::Pending && state != DataState::Live; }
    /// The last value of a field; nothing where none has come. As Record::get.
    /// @throws Error (WrongType) when the field holds another type
    template<class T>
    std::optional<T> get(const Field& field) const {
        return values.get<T>(field);
    }
};

/// How far somebody has looked at the changes of a board; the beginning, unless it comes from changedSince().
struct BoardCursor {
    std::uint64_t position = 0; ///< of the board's changes, from 0; it means nothing to another board
};

/// How much a board holds, and what has come to it.
struct BoardStatistics {
    std::size_t symbols = 0;   ///< rows, those that are Closed included
    std::size_t bytes = 0;     ///< that they take, some 500 for a symbol of ten fields
    std::uint64_t changes = 0; ///< of values and states
    std::uint64_t refused = 0; ///< updates of symbols above BoardOptions::maxSymbols, and above the bytes
};

/// The last value of each field of each symbol, kept up to date by subscriptions: an image replaces what was
/// there, an update changes the fields that it has, and the state is that of the subscription, so that after
/// a loss the values are stale until the new image comes. Values of a message that repeats a field, and lines
/// of order books, aren't kept apart.
///
/// Subscriptions enter it by Feed::subscribe or with handlers(). A row comes with the first event of its
/// symbol, and becomes Closed once its last subscription has ended. All subscriptions of a board are of one
/// feed. Feed and board may go in any order.
///
/// Readers never hold up the threads that deliver: a read that meets a write is repeated.
///
/// @thread any
class TIVRA_API Board {
public:
    /// What changedSince() calls with each row. What it throws comes out of changedSince().
    using Handler = std::function<void(const BoardRow&)>;

    /// @throws Error (InvalidArgument) for limits that are out of range
    explicit Board(BoardOptions options = {});
    /// The same with another limit than 4 GiB for all rows together.
    ///
    /// @param options   as above
    /// @param maxBytes  as BoardStatistics::bytes counts them; 64 KiB or more. Where one more would be needed
    ///                  a symbol without a row is refused, as above maxSymbols, and a value that a row has no
    ///                  room for is left out, which is a gap of that row, with a warning in the log
    Board(BoardOptions options, std::size_t maxBytes);
    /// Takes the rows over; subscriptions go on into this one. A board that was moved from has no rows and
    /// handlers that do nothing.
    Board(Board&&) noexcept;
    /// The same; what fed the board that was here goes on, to nobody.
    Board& operator=(Board&&) noexcept;
    /// Subscriptions go on, to nobody.
    ~Board();

    /// Handlers that keep the board up to date, for one subscription or, by copies, for many.
    SubscriptionHandlers handlers() const;

    /// The present row of a symbol; nothing when it has none.
    std::optional<BoardRow> find(int source, std::string_view symbol) const;
    /// The same.
    std::optional<BoardRow> find(const Instrument& instrument) const;

    /// Calls the handler, on the calling thread, with each symbol whose values or state have changed since
    /// the cursor was here last: each once, with its present row, in the order of their last changes. Moves
    /// the cursor. It takes time by the changes, or by the symbols where there have been more than 65,536.
    /// @return how many symbols there were
    std::size_t changedSince(BoardCursor& cursor, const Handler& handler) const;

    /// The symbols that have rows, in no particular order. It takes time by their number.
    std::vector<Instrument> instruments() const;
    /// Drops the rows that are Closed. @return how many there were
    std::size_t forgetClosed();
    /// What the board holds now. All zero in a child that the process has forked.
    BoardStatistics statistics() const;
    /// Values that were left out, since there were no bytes for them or since a row had come to its own limit
    /// of 4 MiB; 0 in a child that the process has forked.
    std::uint64_t leftOut() const;

private:
    std::shared_ptr<tivra_internal::BoardState> m_state;
};

} // namespace tivra
