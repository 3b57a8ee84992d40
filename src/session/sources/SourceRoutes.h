#pragma once

#include <map>
#include <set>

#include <tp/Mutex.h>

namespace tivra_internal {

class HubClient;

/// Which hub serves which source. Written by the hubs' downloads and by entitlement changes, read by routing.
/// @thread any
class SourceRoutes {
public:
    /// The hub that a source is routed to; null when no hub serves it.
    [[nodiscard]] HubClient* find(int src) const;

    /// A source of the hub's own box list. The first hub to offer a source keeps it.
    void addBoxSource(int src, HubClient* client);
    /// A source of the user's list, served by `entHub` (may be null) unless a hub has it. `had` tells whether
    /// it had an entry; the result is the hub that serves it now.
    HubClient* addUserSource(int src, HubClient* entHub, bool& had);
    /// False, with a warning, when that is one source more than a session may have.
    [[nodiscard]] bool assign(int src, HubClient* client);

    /// The hub leaves the session: its sources become another's that offers them too, or nobody's.
    void forget(HubClient* client);

    /// The first source above `after` without a hub, or -1. News sources on the way become `newsHub`'s, since
    /// every hub can answer for them. `last` tells that no further source without a hub follows.
    [[nodiscard]] int nextWithoutHub(int after, HubClient* newsHub, bool& last);

    void clear();

private:
    mutable tp::Mutex m_srcClientMap_mutex;
    std::map<int, HubClient*> srcClientMap TP_GUARDED_BY(m_srcClientMap_mutex);
    std::map<HubClient*, std::set<int>> hubClientSrcMap TP_GUARDED_BY(m_srcClientMap_mutex);
};

/// The sources that the user is entitled to, with their hubs. Part of the order: taken inside
/// `m_hubSourceStatus_mutex`, and event insertion inside it. @thread any
class EntitledSources {
public:
    /// False when the source was there already.
    bool add(int src, HubClient* client);
    /// False when the source was not there.
    bool remove(int src);
    void set(int src, HubClient* client);
    /// Another hub serves the source in place of `from`; no effect when `from` does not have it any more.
    void move(int src, const HubClient* from, HubClient* to);
    [[nodiscard]] std::map<int, HubClient*> copy() const;
    /// The first source above `after` and its hub; false when there is none.
    [[nodiscard]] bool next(int after, int& src, HubClient*& client) const;
    void clear();

private:
    mutable tp::Mutex m_entitledSrcClientMap_mutex;
    std::map<int, HubClient*> entitledSrcClientMap TP_GUARDED_BY(m_entitledSrcClientMap_mutex);
};

} // namespace tivra_internal
