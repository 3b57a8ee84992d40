#include "session/routing/HeldRequests.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "request/RequestInternal.h"

namespace tivra_internal {

HeldRequests::HeldRequests() = default;
HeldRequests::~HeldRequests() = default;

void HeldRequests::count(const RequestInternal& request) {
    ++m_sources[request.getSrcid()];
    ++m_size;
}

void HeldRequests::hold(HubClient* hub, std::unique_ptr<RequestInternal> request, double now) {
    count(*request);
    const auto [line, isNew] = m_lines.try_emplace(hub);
    if (isNew)
        line->second.refusedAt = now;
    line->second.requests.push_back(std::move(request));
}

void HeldRequests::putBack(HubClient* hub, std::unique_ptr<RequestInternal> request, double now) {
    count(*request);
    Line& line = m_lines[hub];
    line.refusedAt = now;
    line.requests.push_front(std::move(request));
}

std::unique_ptr<RequestInternal> HeldRequests::takeFirst(HubClient* hub) {
    const auto found = m_lines.find(hub);
    if (found == m_lines.end())
        return nullptr;
    Requests& requests = found->second.requests;
    std::unique_ptr<RequestInternal> request = std::move(requests.front());
    requests.pop_front();
    if (requests.empty())
        m_lines.erase(found);
    --m_size;
    const auto source = m_sources.find(request->getSrcid());
    if (--source->second == 0)
        m_sources.erase(source);
    return request;
}

HeldRequests::Requests HeldRequests::takeAll() {
    Requests all;
    for (auto& [hub, line] : m_lines)
        std::move(line.requests.begin(), line.requests.end(), std::back_inserter(all));
    m_lines.clear();
    m_sources.clear();
    m_size = 0;
    return all;
}

std::vector<HubClient*> HeldRequests::hubsToTry(double now, double pause) const {
    std::vector<HubClient*> hubs;
    for (const auto& [hub, line] : m_lines) {
        if (now < line.refusedAt || now - line.refusedAt >= pause)
            hubs.push_back(hub);
    }
    return hubs;
}

} // namespace tivra_internal
