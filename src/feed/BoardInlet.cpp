#include "feed/BoardInlet.h"

#include "feed/BoardState.h"
#include "feed/FeedItem.h"
#include "feed/SubscriptionState.h"
#include "kvnparse/Message.h"

namespace tivra_internal {

using tivra::DataState;

BoardInlet::BoardInlet(std::shared_ptr<BoardState> board, const tivra::SubscriptionView& subscription)
    : Attachment(board.get())
    , m_isPattern(SubscriptionState::of(subscription).item()->kind() == ItemKind::Pattern)
    , m_source(subscription.source())
    , m_board(std::move(board)) {}

BoardInlet::~BoardInlet() {
    forEachFed([this](Fed& fed) {
        if (!fed.line->removeSubscription())
            return;
        fed.line->setState(DataState::Closed);
        m_board->enterChange(*fed.line);
    });
}

BoardInlet::Fed* BoardInlet::find(std::string_view symbol) {
    if (m_current->line != nullptr && (!m_isPattern || m_current->line->symbol() == symbol))
        return m_current;
    if (m_first.line == nullptr)
        return enter(symbol, m_first) ? m_current = &m_first : nullptr;
    if (m_first.line->symbol() == symbol)
        return m_current = &m_first;
    if (const auto found = m_others.find(symbol); found != m_others.end())
        return m_current = &found->second;
    Fed fed;
    if (!enter(symbol, fed))
        return nullptr;
    const std::string_view name = fed.line->symbol();
    return m_current = &m_others.emplace(name, std::move(fed)).first->second;
}

bool BoardInlet::enter(std::string_view symbol, Fed& fed) {
    fed.line = m_board->join(m_source, symbol);
    if (fed.line != nullptr && !fed.line->isShared())
        fed.line->setState(m_state);
    return fed.line != nullptr;
}

void BoardInlet::update(const UpdateData& data) {
    Fed* const fed = find({data.message.symbol.buf, data.message.symbol.len});
    if (fed == nullptr)
        return;
    const bool isImage = data.kind == tivra::Update::Kind::Image;
    fed->line->update(data, isImage && fed->section != m_section, m_board->room());
    if (isImage)
        fed->section = m_section;
    m_board->enterChange(*fed->line);
}

void BoardInlet::change(const tivra::StateChange& change) {
    m_state = change.to;
    if (change.to == DataState::Stale || change.to == DataState::Recovering)
        ++m_section;
    forEachFed([&](Fed& fed) {
        // An image of its own may be refused to a subscription, while others have theirs.
        if (change.to == DataState::Refused && fed.line->isShared())
            return;
        fed.line->setState(change.to);
        m_board->enterChange(*fed.line);
    });
}

/// A hub's own gap leaves an image that is under way as it is.
void BoardInlet::gap(const tivra::Gap& gap) {
    if (gap.cause == tivra::Gap::Cause::Loss || gap.cause == tivra::Gap::Cause::Withdrawal)
        ++m_section;
    forEachFed([&](Fed& fed) {
        fed.line->countGap();
        m_board->enterChange(*fed.line);
    });
}

} // namespace tivra_internal
