#pragma once

#include <iterator>
#include <set>

#include "request/CommandClasses.h"
#include "request/StandingRequest.h"

namespace tivra_internal {

/// Listed requests by what they say. Of those that say the same the newest has taken the place of the others,
/// which stand only until they are answered. Borrows what it holds; guarded by the mutex of its list.
class SameRequests {
public:
    /// What ends with its response replaces nothing.
    void add(const StandingRequest& request) {
        if (!isSnapCommand(request.getCommand()))
            m_requests.insert(&request);
    }
    void remove(const StandingRequest& request) { m_requests.erase(&request); }

    /// A newer one says the same.
    [[nodiscard]] bool isReplaced(const StandingRequest& request) const {
        const auto next = m_requests.upper_bound(&request);
        return next != m_requests.end() && (*next)->saysTheSame(request);
    }
    /// The newest of those that this one has replaced, null when there is none.
    [[nodiscard]] const StandingRequest* replacedBy(const StandingRequest& request) const {
        const auto at = m_requests.lower_bound(&request);
        if (at == m_requests.begin())
            return nullptr;
        const StandingRequest* const before = *std::prev(at);
        return before->saysTheSame(request) ? before : nullptr;
    }

private:
    std::set<const StandingRequest*, StandingRequest::SayingThenAgeLess> m_requests;
};

} // namespace tivra_internal
