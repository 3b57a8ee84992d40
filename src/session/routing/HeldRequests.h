#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <vector>

namespace tivra_internal {

class HubClient;
class RequestInternal;

/// Requests that the full queues of their hubs have refused, in order for each hub. They let requests for
/// other hubs pass. Guarded by its owner.
class HeldRequests {
public:
    using Requests = std::deque<std::unique_ptr<RequestInternal>>;

    HeldRequests();
    ~HeldRequests();

    /// After what is held for the hub already.
    void hold(HubClient* hub, std::unique_ptr<RequestInternal> request, double now);
    /// The first one that is held for the hub, or null.
    [[nodiscard]] std::unique_ptr<RequestInternal> takeFirst(HubClient* hub);
    /// The hub has refused it once more: it stays the first one.
    void putBack(HubClient* hub, std::unique_ptr<RequestInternal> request, double now);
    [[nodiscard]] Requests takeAll();

    [[nodiscard]] bool isHolding(HubClient* hub) const { return m_lines.count(hub) != 0; }
    /// Whether a request for this source is among them.
    [[nodiscard]] bool isHoldingSource(int source) const { return m_sources.count(source) != 0; }
    /// The hubs that refused theirs at least `pause` seconds ago.
    [[nodiscard]] std::vector<HubClient*> hubsToTry(double now, double pause) const;
    [[nodiscard]] std::size_t size() const { return m_size; }

private:
    struct Line {
        Requests requests; ///< never empty
        double refusedAt = 0.0;
    };

    void count(const RequestInternal& request);

    std::map<HubClient*, Line> m_lines;
    std::map<int, std::size_t> m_sources; ///< how many there are of each
    std::size_t m_size = 0;
};

} // namespace tivra_internal
