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
    void gap();

private:
    /// A line that it feeds.
    struct Fed {
        std::shared_ptr<BoardLine> line;
        std::uint64_t section = 0; ///< of its last image; 0 before the first
    };

    /// Null when the board is full.
    [[nodiscard]] Fed* find(std::string_view symbol);

    const std::shared_ptr<BoardState> m_board;
    const int m_source;
    std::unordered_map<std::string_view, Fed> m_fed; ///< one, unless the subscription is for a pattern
    Fed* m_current = nullptr;                        ///< the one that was used last
    tivra::DataState m_state = tivra::DataState::Pending;
    std::uint64_t m_section = 1; ///< an image replaces what is from an earlier one
};

} // namespace tivra_internal
