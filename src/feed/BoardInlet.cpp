#include "feed/BoardInlet.h"

#include "feed/BoardState.h"
#include "kvnparse/Message.h"

namespace tivra_internal {

using tivra::DataState;

BoardInlet::BoardInlet(std::shared_ptr<BoardState> board, const tivra::SubscriptionView& subscription)
    : Attachment(board.get()), m_board(std::move(board)), m_source(subscription.source()) {}

BoardInlet::~BoardInlet() {
    for (const auto& [symbol, fed] : m_fed)
        if (fed.line->removeSubscription()) {
            fed.line->setState(DataState::Closed);
            m_board->enterChange(*fed.line);
        }
}

BoardInlet::Fed* BoardInlet::find(std::string_view symbol) {
    if (m_current != nullptr && m_current->line->symbol() == symbol)
        return m_current;
    const auto found = m_fed.find(symbol);
    if (found != m_fed.end())
        return m_current = &found->second;
    std::shared_ptr<BoardLine> line = m_board->join(m_source, symbol);
    if (line == nullptr)
        return nullptr;
    if (!line->isShared())
        line->setState(m_state);
    const std::string_view name = line->symbol();
    return m_current = &m_fed.emplace(name, Fed{std::move(line)}).first->second;
}

void BoardInlet::update(const UpdateData& data) {
    Fed* const fed = find({data.message.symbol.buf, data.message.symbol.len});
    if (fed == nullptr)
        return;
    const bool isImage = data.kind == tivra::Update::Kind::Image;
    fed->line->update(data, isImage && fed->section != m_section);
    if (isImage)
        fed->section = m_section;
    m_board->enterChange(*fed->line);
}

void BoardInlet::change(const tivra::StateChange& change) {
    m_state = change.to;
    if (change.to == DataState::Stale || change.to == DataState::Recovering)
        ++m_section;
    for (const auto& [symbol, fed] : m_fed) {
        // An image of its own may be refused to a subscription, while others have theirs.
        if (change.to == DataState::Refused && fed.line->isShared())
            continue;
        fed.line->setState(change.to);
        m_board->enterChange(*fed.line);
    }
}

void BoardInlet::gap() {
    ++m_section;
    for (const auto& [symbol, fed] : m_fed) {
        fed.line->countGap();
        m_board->enterChange(*fed.line);
    }
}

} // namespace tivra_internal
