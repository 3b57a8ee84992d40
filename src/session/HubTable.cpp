#include "session/HubTable.h"

#include <algorithm>
#include <utility>

#include <tp/eprintf.h>

#include "hub/HubClient.h"

namespace tivra_internal {

HubTable::HubTable() = default;
HubTable::~HubTable() = default;

HubClient* HubTable::getFirstHub() const {
    tp::MutexLock lock(m_hubClientsMap_mutex);
    for (const auto& [index, client] : hubClientsMap)
        if (!client->getInitialHubDisconnected())
            return client.get();
    return nullptr;
}

HubClient* HubTable::find(std::size_t index) const {
    tp::MutexLock lock(m_hubClientsMap_mutex);
    const auto found = hubClientsMap.find(index);
    return found == hubClientsMap.end() ? nullptr : found->second.get();
}

std::vector<HubClient*> HubTable::copy() const {
    tp::MutexLock lock(m_hubClientsMap_mutex);
    std::vector<HubClient*> clients;
    clients.reserve(hubClientsMap.size());
    for (const auto& [index, client] : hubClientsMap)
        clients.push_back(client.get());
    return clients;
}

void HubTable::forEach(const std::function<void(HubClient&)>& visit) const {
    tp::MutexLock lock(m_hubClientsMap_mutex);
    for (const auto& [index, client] : hubClientsMap)
        visit(*client);
}

HubClient* HubTable::insert(std::size_t index, const std::string& label,
                            const std::function<std::unique_ptr<HubClient>()>& make) {
    tp::MutexLock lock(m_hubClientsMap_mutex);
    if (hubClientsMap.count(index) != 0)
        return nullptr;
    if (hubClientsMap.size() >= kMaxHubs) {
        eprintf(EPF_WARN, "A session can have no more than %zu HUBs; %s is left out", kMaxHubs,
                label.c_str());
        return nullptr;
    }
    return hubClientsMap.emplace(index, make()).first->second.get();
}

void HubTable::retire(std::size_t index) {
    tp::MutexLock lock(m_hubClientsMap_mutex);
    const auto found = hubClientsMap.find(index);
    if (found == hubClientsMap.end())
        return;
    m_retiredClients.push_back(std::move(found->second));
    hubClientsMap.erase(found);
}

void HubTable::bringBack(const HubClient* client) {
    tp::MutexLock lock(m_hubClientsMap_mutex);
    const auto found =
        std::find_if(m_retiredClients.begin(), m_retiredClients.end(),
                     [client](const std::unique_ptr<HubClient>& retired) { return retired.get() == client; });
    if (found == m_retiredClients.end() || hubClientsMap.count(client->getIndex()) != 0)
        return;
    hubClientsMap.emplace(client->getIndex(), std::move(*found));
    m_retiredClients.erase(found);
}

void HubTable::deleteAll() {
    std::vector<std::unique_ptr<HubClient>> retired;
    std::map<std::size_t, std::unique_ptr<HubClient>> clients;
    tp::MutexLock lock(m_hubClientsMap_mutex);
    clients.swap(hubClientsMap);
    retired.swap(m_retiredClients);
    lock.unlock();
    // Deleted outside the lock: a client's end takes locks of its own and of the user.
}

} // namespace tivra_internal
