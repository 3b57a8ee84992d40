#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <utility>

#include <feed/Subscription.h>

#include "feed/Attachment.h"
#include "feed/BoardLine.h"
#include "feed/UpdateData.h"

namespace tivra_internal {

class BoardState;

/// One subscription's way onto a board. When it goes the subscription has ended. In the item's turn.
class BoardInlet final : public Attachment {
public:
    BoardInlet(std::shared_ptr<BoardState> board, const tivra::SubscriptionView& subscription);
    ~BoardInlet() override;

    void update(const UpdateData& data);
    void change(const tivra::StateChange& change);
    void gap(const tivra::Gap& gap);

private:
    /// A line that it feeds.
    struct Fed {
        std::shared_ptr<BoardLine> line;
        std::uint64_t section = 0; ///< of its last image; 0 before the first
    };

    /// Null when the board is full.
    [[nodiscard]] Fed* find(std::string_view symbol);
    [[nodiscard]] bool enter(std::string_view symbol, Fed& fed);
    template<class Action>
    void forEachFed(Action&& action) {
        if (m_first.line != nullptr)
            action(m_first);
        for (auto& [symbol, fed] : m_others)
            action(fed);
    }

    Fed m_first; ///< the only one, unless the subscription is for a pattern; none before the first
    Fed* m_current = &m_first;   ///< the one that was used last
    std::uint64_t m_section = 1; ///< an image replaces what is from an earlier one
    tivra::DataState m_state = tivra::DataState::Pending;
    const bool m_isPattern;
    const int m_source;
    const std::shared_ptr<BoardState> m_board;
    std::unordered_map<std::string_view, Fed> m_others;
};

} // namespace tivra_internal
