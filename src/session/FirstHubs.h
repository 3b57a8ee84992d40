#pragma once

#include <atomic>
#include <cstddef>
#include <vector>

#include <tp/Mutex.h>

namespace tivra_internal {

class HubClient;

/// The hubs made from the configured list, one after the other: the next is made when all that the former led
/// to are ready. @thread master, first user and hub threads
struct FirstHubs {
    /// The first real client since the last reset.
    std::atomic<HubClient*> firstHubClient{nullptr};
    /// Index of the newest first hub in the list of configured hosts.
    std::atomic<int> m_initIPindex{-1};
    std::atomic<bool> m_allFirstHubschecked{false};
    std::atomic<bool> m_createNextfirstHub{false};

    mutable tp::Mutex firstHubClientLst_mutex;
    std::vector<HubClient*> firstHubClientLst TP_GUARDED_BY(firstHubClientLst_mutex);

    /// Appends a first hub; false when more are made than hosts are configured.
    [[nodiscard]] bool add(HubClient* client, std::size_t configuredHosts) {
        tp::MutexLock lock(firstHubClientLst_mutex);
        const int index = ++m_initIPindex;
        if (index < 0 || static_cast<std::size_t>(index) > configuredHosts)
            return false;
        firstHubClientLst.push_back(client);
        return true;
    }

    /// The newest first hub, which runs the dictionary and port steps of the conversation; null when there is
    /// none.
    [[nodiscard]] HubClient* newest() const {
        tp::MutexLock lock(firstHubClientLst_mutex);
        const int index = m_initIPindex;
        if (index < 0 || static_cast<std::size_t>(index) >= firstHubClientLst.size())
            return nullptr;
        return firstHubClientLst[static_cast<std::size_t>(index)];
    }

    void clear() {
        firstHubClient = nullptr;
        tp::MutexLock lock(firstHubClientLst_mutex);
        firstHubClientLst.clear();
    }

    void reset() {
        clear();
        m_initIPindex = -1;
        m_allFirstHubschecked = false;
        m_createNextfirstHub = false;
    }
};

} // namespace tivra_internal
