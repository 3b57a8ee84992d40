#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <tp/Mutex.h>

#include "LockOrder.h"

namespace tivra_internal {

class HubClient;

/// All hub clients by the index of their host; the first in this order is the default hub. Owns them. @thread
/// any
class HubTable {
public:
    /// A session never has more hubs than this, whatever a hub lists.
    static constexpr std::size_t kMaxHubs = 256;

    HubTable();
    ~HubTable();

    /// The default hub, which is none of those that are about to be dropped; null while there is none.
    [[nodiscard]] HubClient* getFirstHub() const;
    [[nodiscard]] HubClient* find(std::size_t index) const;
    [[nodiscard]] bool contains(std::size_t index) const { return find(index) != nullptr; }
    /// All hubs in the order of their indexes. They live until the session's worker threads have ended.
    [[nodiscard]] std::vector<HubClient*> copy() const;
    /// Under the mutex, so that none of them goes meanwhile.
    void forEach(const std::function<void(HubClient&)>& visit) const;
    /// Enters the client that `make` yields, which is called under the mutex. Null when there is a hub of
    /// that index, or when the table is full, which `label` reports in the log.
    [[nodiscard]] HubClient* insert(std::size_t index, const std::string& label,
                                    const std::function<std::unique_ptr<HubClient>()>& make);
    /// Takes a hub out of the table.
    void retire(std::size_t index);
    /// Takes one back that has been retired.
    void bringBack(const HubClient* client);
    void deleteAll();

private:
    mutable tp::Mutex m_hubClientsMap_mutex{kLockHubClientsMap};
    std::map<std::size_t, std::unique_ptr<HubClient>> hubClientsMap TP_GUARDED_BY(m_hubClientsMap_mutex);
    /// Hubs that have left the session; other threads may still know them, so they live as long as those.
    std::vector<std::unique_ptr<HubClient>> m_retiredClients TP_GUARDED_BY(m_hubClientsMap_mutex);
};

} // namespace tivra_internal
