#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "request/AltIndexInfo.h"
#include "request/RequestContent.h"

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
    [[nodiscard]] tivra::Commands getCommand() const noexcept { return m_content.command; }

    /// The same for requests that say the same in another order, whatever their tags.
    [[nodiscard]] const std::string& getCompareString() const noexcept { return m_compareString; }

    /// By what they say, and of those that say the same the one that was sent first: a tag may have been made
    /// long before.
    struct CompareStringThenAgeLess {
        [[nodiscard]] bool operator()(const StandingRequest* left,
                                      const StandingRequest* right) const noexcept {
            const int order = left->m_compareString.compare(right->m_compareString);
            if (order != 0)
                return order < 0;
            return left->m_age != right->m_age ? left->m_age < right->m_age : left->m_tag < right->m_tag;
        }
    };

private:
    const RequestContent m_content;
    const std::string m_compareString;
    const std::vector<AltIndexInfo> m_altIndex;
    const int64_t m_tag;
    const uint64_t m_age; ///< see RequestInternal::age
    const bool m_resubHB;
    const bool m_resubHubStatus;
    const bool m_isWLRetry;
};

} // namespace tivra_internal
