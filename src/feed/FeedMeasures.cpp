#include "feed/FeedMeasures.h"

#include <vector>

namespace tivra_internal {

std::shared_ptr<HubMeasures> FeedMeasures::ofHub(const std::string& address) {
    const tp::MutexLock lock(m_mutex);
    const auto found = m_hubs.find(address);
    if (found != m_hubs.end())
        return found->second;
    const std::string name = m_hubs.size() < kMostHubs ? address : std::string();
    std::shared_ptr<HubMeasures>& hub = m_hubs[name];
    if (hub == nullptr)
        hub = std::make_shared<HubMeasures>(name);
    return hub;
}

void FeedMeasures::describe(tivra::FeedStatistics& figures) const {
    std::vector<const LatencyHistogram*> socketToDecode, decodeToCallback, callback;
    const std::map<std::string, std::shared_ptr<HubMeasures>> hubs = allHubs();
    for (const auto& [address, hub] : hubs) {
        socketToDecode.push_back(&hub->socketToDecode);
        decodeToCallback.push_back(&hub->decodeToCallback);
        callback.push_back(&hub->callback);
        if (address.empty())
            continue;
        tivra::HubStatistics& entry = figures.hubs.emplace_back();
        entry.hub = address;
        entry.socketToDecode = hub->socketToDecode.summary();
        entry.decodeToCallback = hub->decodeToCallback.summary();
        entry.callback = hub->callback.summary();
    }
    figures.socketToDecode = LatencyHistogram::summaryOf(socketToDecode);
    figures.decodeToCallback = LatencyHistogram::summaryOf(decodeToCallback);
    figures.callback = LatencyHistogram::summaryOf(callback);
    figures.requestToAnswer = m_requestToAnswer.summary();
}

std::map<std::string, std::shared_ptr<HubMeasures>> FeedMeasures::allHubs() const {
    const tp::MutexLock lock(m_mutex);
    return m_hubs;
}

} // namespace tivra_internal
