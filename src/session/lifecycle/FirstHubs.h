#pragma once

#include <atomic>
#include <vector>

#include <tp/Mutex.h>

#include "config/HostPair.h"

namespace tivra_internal {

class ChangeOver;
class ConnectionManagers;
class FirstHubSession;
class HostLists;
class HubClient;
struct HubCounts;

/// The hubs made from the configured list, one after the other: the next is made when all that the former led
/// to are ready. @thread first user, unless a line says otherwise
class FirstHubs {
public:
    /// All are borrowed.
    FirstHubs(FirstHubSession& session, const HostLists& hosts, const ChangeOver& side,
              ConnectionManagers& managers);

    // --- the hubs; @thread any ---
    /// The client becomes the first real one since the last reset, unless there is one.
    void claim(HubClient* client);
    /// So is any while there is none.
    [[nodiscard]] bool isFirst(const HubClient* client) const {
        const HubClient* const first = firstHubClient;
        return first == client || first == nullptr;
    }
    /// The client has failed: the next one becomes the first.
    void disclaim(HubClient* client);
    /// It is one of the hubs made from the list.
    [[nodiscard]] bool contains(const HubClient* client) const;
    /// The newest first hub, which runs the dictionary and port steps of the handshake; null when there is
    /// none.
    [[nodiscard]] HubClient* newest() const;
    /// Appends a first hub; false when more are made than hosts are configured.
    [[nodiscard]] bool add(HubClient* client);

    // --- the list of hosts ---
    /// All hosts of the list have had their turn. @thread any
    [[nodiscard]] bool areAllMade() const { return m_allFirstHubschecked; }
    void endList() { m_allFirstHubschecked = true; }
    /// All hubs are ready: the next check makes the next one, unless that was the last.
    void stepToNext(const HubCounts& counts);
    /// The next one is due.
    [[nodiscard]] bool isNextDue() const { return m_createNextfirstHub; }
    /// Makes it. False when the configured host leads to a hub that exists already.
    [[nodiscard]] bool createNext();

    // --- before the threads begin; @thread master ---
    void clear();
    void reset();

private:
    [[nodiscard]] int index() const;
    [[nodiscard]] bool createAt(const HostPair& pair);

    FirstHubSession& m_session;
    const HostLists& m_hosts;
    const ChangeOver& m_side;
    ConnectionManagers& m_managers;

    std::atomic<HubClient*> firstHubClient{nullptr};
    std::atomic<bool> m_allFirstHubschecked{false};
    bool m_createNextfirstHub = false;

    mutable tp::Mutex firstHubClientLst_mutex;
    std::vector<HubClient*> firstHubClientLst TP_GUARDED_BY(firstHubClientLst_mutex);
    /// Index of the newest first hub in the list of configured hosts.
    int m_initIPindex TP_GUARDED_BY(firstHubClientLst_mutex) = -1;
};

} // namespace tivra_internal
