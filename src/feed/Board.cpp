#include <feed/Board.h>

#include <utility>

#include "feed/BoardInlet.h"
#include "feed/BoardState.h"
#include "feed/SubscriptionState.h"

namespace tivra {
namespace {

using tivra_internal::BoardInlet;
using tivra_internal::BoardState;
using tivra_internal::SubscriptionState;

/// A handler that keeps a board up to date, for any number of subscriptions.
class BoardFeeder {
public:
    explicit BoardFeeder(std::shared_ptr<BoardState> board) : m_board(std::move(board)) {}

    void operator()(const Update& update) const {
        const tivra_internal::UpdateData& data = tivra_internal::UpdateData::of(update);
        if (!m_board->isClosed())
            inletOf(*data.subscription).update(data);
    }
    void operator()(const SubscriptionView& subscription, const StateChange& change) const {
        if (!m_board->isClosed())
            inletOf(SubscriptionState::of(subscription)).change(change);
    }
    void operator()(const SubscriptionView& subscription, const Gap& gap) const {
        if (!m_board->isClosed())
            inletOf(SubscriptionState::of(subscription)).gap(gap);
    }

private:
    [[nodiscard]] BoardInlet& inletOf(SubscriptionState& subscription) const {
        tivra_internal::Attachment* inlet = subscription.attachmentOf(m_board.get());
        if (inlet == nullptr)
            inlet = &subscription.attach(std::make_unique<BoardInlet>(m_board, subscription.view()));
        return *static_cast<BoardInlet*>(inlet);
    }

    std::shared_ptr<BoardState> m_board;
};

} // namespace

Board::Board(BoardOptions options) : m_state(std::make_shared<BoardState>(options)) {}

Board::Board(BoardOptions options, std::size_t maxBytes)
    : m_state(std::make_shared<BoardState>(options, maxBytes)) {}

Board::Board(Board&&) noexcept = default;

Board& Board::operator=(Board&& other) noexcept {
    if (this != &other) {
        const Board old(std::move(*this));
        m_state = std::move(other.m_state);
    }
    return *this;
}

Board::~Board() {
    if (m_state != nullptr)
        m_state->close();
}

SubscriptionHandlers Board::handlers() const {
    SubscriptionHandlers handlers;
    if (m_state == nullptr)
        return handlers;
    handlers.onUpdate = BoardFeeder(m_state);
    handlers.onState = BoardFeeder(m_state);
    handlers.onGap = BoardFeeder(m_state);
    return handlers;
}

std::optional<BoardRow> Board::find(int source, std::string_view symbol) const {
    return m_state != nullptr ? m_state->find(source, symbol) : std::nullopt;
}

std::optional<BoardRow> Board::find(const Instrument& instrument) const {
    return find(instrument.source, instrument.symbol);
}

std::size_t Board::changedSince(BoardCursor& cursor, const Handler& handler) const {
    if (m_state == nullptr)
        return 0;
    const auto lines = m_state->changedSince(cursor);
    for (const auto& line : lines)
        handler(line->read());
    return lines.size();
}

std::vector<Instrument> Board::instruments() const {
    return m_state != nullptr ? m_state->instruments() : std::vector<Instrument>();
}

std::size_t Board::forgetClosed() {
    return m_state != nullptr ? m_state->forgetClosed() : 0;
}

std::uint64_t Board::leftOut() const {
    return m_state != nullptr ? m_state->leftOut() : 0;
}

BoardStatistics Board::statistics() const {
    return m_state != nullptr ? m_state->statistics() : BoardStatistics();
}

} // namespace tivra
