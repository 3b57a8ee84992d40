#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "request/AltIndexInfo.h"
#include "request/PackedContent.h"

namespace tivra_internal {

class RequestInternal;

/// A request as the watchlists remember it: never changed, so that the lists of a session and of its hubs
/// share one. There may be many, and each keeps no more than a replay needs.
class StandingRequest {
public:
    explicit StandingRequest(const RequestInternal& request);

    /// The request once more, alternate indexes included and for no hub yet.
    [[nodiscard]] std::unique_ptr<RequestInternal> makeRequest() const;
    /// Whether a standing request made of this one would be the same.
    [[nodiscard]] bool isMadeOf(const RequestInternal& request) const;

    [[nodiscard]] int64_t getTag() const noexcept { return m_tag; }
    [[nodiscard]] tivra::Commands getCommand() const noexcept { return m_content.command(); }

    /// Whether both say the same, in whatever order, and whatever their tags.
    [[nodiscard]] bool saysTheSame(const StandingRequest& other) const {
        return compareSaying(*this, other) == 0;
    }

    /// By what they say, in no order that means anything, and of those that say the same the one that was
    /// sent first: a tag may have been made long before.
    struct SayingThenAgeLess {
        [[nodiscard]] bool operator()(const StandingRequest* left, const StandingRequest* right) const {
            const int order = compareSaying(*left, *right);
            if (order != 0)
                return order < 0;
            return left->m_age != right->m_age ? left->m_age < right->m_age : left->m_tag < right->m_tag;
        }
    };

private:
    /// Most differ in their hash, so that no text is looked at.
    [[nodiscard]] static int compareSaying(const StandingRequest& left, const StandingRequest& right) {
        if (left.m_compareHash != right.m_compareHash)
            return left.m_compareHash < right.m_compareHash ? -1 : 1;
        return left.m_content.compareString().compare(right.m_content.compareString());
    }

    const std::size_t m_compareHash; ///< of what it says
    const PackedContent m_content;
    const std::unique_ptr<const std::vector<AltIndexInfo>> m_altIndex; ///< null for none
    const int64_t m_tag;
    const uint64_t m_age; ///< see RequestInternal::age
    const bool m_resubHB;
    const bool m_resubHubStatus;
    const bool m_isWLRetry;
};

} // namespace tivra_internal
