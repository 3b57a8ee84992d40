#pragma once

#include "tivra_sim/Hub.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tivra_sim {

/// What a hub has seen and done, written by its thread and read, or waited for, by any.
class Journal {
public:
    explicit Journal(std::size_t limit) : m_limit(limit) {}

    void record(const Request& request);
    void recordError(std::string text);
    /// Takes over the statistics but for the number of requests, which the journal counts.
    void publish(HubStatistics statistics);

    [[nodiscard]] HubStatistics statistics() const;
    [[nodiscard]] std::vector<Request> requests() const;
    void clearRequests();
    /// Waits until `count` requests have come since the start or the last clearRequests.
    bool waitForRequests(std::size_t count, Hub::Deadline deadline) const;
    [[nodiscard]] std::vector<std::string> errors() const;

    std::optional<Request> waitForRequest(const std::function<bool(const Request&)>& predicate,
                                          Hub::Deadline deadline) const;
    bool waitFor(const std::function<bool(const HubStatistics&)>& predicate, Hub::Deadline deadline) const;

private:
    const std::size_t m_limit;
    /// Guards everything below.
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    std::deque<Request> m_requests;
    /// Requests that are no longer remembered.
    std::size_t m_forgotten = 0;
    /// Requests that had come when the list was last cleared.
    std::size_t m_cleared = 0;
    std::vector<std::string> m_errors;
    HubStatistics m_statistics;
};

} // namespace tivra_sim
