#include "request/StandingRequest.h"

#include <functional>
#include <string>

#include "request/RequestInternal.h"

namespace tivra_internal {

StandingRequest::StandingRequest(const RequestInternal& request)
    : m_compareHash(std::hash<std::string>()(request.getCompareString()))
    , m_content(request.getContent())
    , m_altIndex(request.altIndex.empty()
                     ? nullptr
                     : std::make_unique<const std::vector<AltIndexInfo>>(request.altIndex))
    , m_tag(request.getTag())
    , m_age(request.age)
    , m_resubHB(request.resubHB)
    , m_resubHubStatus(request.resubHubStatus)
    , m_isWLRetry(request.isWLRetry) {}

std::unique_ptr<RequestInternal> StandingRequest::makeRequest() const {
    auto request = std::make_unique<RequestInternal>(m_content.unpack(), m_tag);
    if (m_altIndex != nullptr)
        request->altIndex = *m_altIndex;
    request->resubHB = m_resubHB;
    request->resubHubStatus = m_resubHubStatus;
    request->isWLRetry = m_isWLRetry;
    request->age = m_age;
    return request;
}

bool StandingRequest::isMadeOf(const RequestInternal& request) const {
    return m_tag == request.getTag() && m_altIndex == nullptr && request.altIndex.empty() &&
           m_resubHB == request.resubHB && m_resubHubStatus == request.resubHubStatus &&
           m_isWLRetry == request.isWLRetry && m_content.isPackOf(request.getContent());
}

} // namespace tivra_internal
