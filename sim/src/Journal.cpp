#include "Journal.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace tivra_sim {

bool HubStatistics::operator==(const HubStatistics& other) const noexcept {
    const auto fields = [](const HubStatistics& of) {
        return std::tie(of.connections, of.loggedIn, of.subscriptions, of.accepted, of.requests,
                        of.protocolErrors, of.framesSent, of.bytesSent, of.updatesSent, of.playbackEvents,
                        of.playbackSent, of.playbackLeftOut, of.playbackDropped, of.playbackRunning,
                        of.playbackFinished);
    };
    return fields(*this) == fields(other);
}

void Journal::record(const Request& request) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_requests.size() >= m_limit) {
            m_requests.pop_front();
            ++m_forgotten;
        }
        m_requests.push_back(request);
        ++m_statistics.requests;
    }
    m_changed.notify_all();
}

void Journal::recordError(std::string text) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_errors.push_back(std::move(text));
        ++m_statistics.protocolErrors;
    }
    m_changed.notify_all();
}

void Journal::publish(HubStatistics statistics) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        statistics.requests = m_statistics.requests;
        statistics.protocolErrors = m_statistics.protocolErrors;
        m_statistics = statistics;
    }
    m_changed.notify_all();
}

HubStatistics Journal::statistics() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_statistics;
}

std::vector<Request> Journal::requests() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return {m_requests.begin(), m_requests.end()};
}

void Journal::clearRequests() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_forgotten += m_requests.size();
    m_requests.clear();
    m_cleared = m_forgotten;
}

bool Journal::waitForRequests(std::size_t count, Hub::Deadline deadline) const {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, deadline,
                              [&] { return m_forgotten + m_requests.size() - m_cleared >= count; });
}

std::vector<std::string> Journal::errors() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_errors;
}

std::optional<Request> Journal::waitForRequest(const std::function<bool(const Request&)>& predicate,
                                               Hub::Deadline deadline) const {
    const auto end = std::chrono::steady_clock::now() + deadline;
    std::unique_lock<std::mutex> lock(m_mutex);
    // Counted over all requests ever, so that a clear or a forgotten one does not hide those that follow.
    std::size_t next = 0;
    for (;;) {
        for (next = std::max(next, m_forgotten); next < m_forgotten + m_requests.size(); ++next) {
            if (predicate(m_requests[next - m_forgotten]))
                return m_requests[next - m_forgotten];
        }
        const bool isLate = m_changed.wait_until(lock, end) == std::cv_status::timeout;
        if (isLate && next >= m_forgotten + m_requests.size())
            return std::nullopt;
    }
}

bool Journal::waitFor(const std::function<bool(const HubStatistics&)>& predicate,
                      Hub::Deadline deadline) const {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, deadline, [&] { return predicate(m_statistics); });
}

} // namespace tivra_sim
