#include "session/sources/SourceRoutes.h"

#include <algorithm>
#include <cstddef>

#include <tp/eprintf.h>

#include "session/routing/RoutingTarget.h"

namespace tivra_internal {
namespace {

// Far above any real list of sources, and a bound on what hostile lists can make the process hold.
constexpr std::size_t kMaxSources = 100000;

void warnOfSource(int src) {
    eprintf(EPF_WARN, "Hubs list more than %zu sources; source %d is ignored", kMaxSources, src);
}

} // namespace

HubClient* SourceRoutes::find(int src) const {
    tp::MutexLock lock(m_srcClientMap_mutex);
    const auto found = srcClientMap.find(src);
    return found == srcClientMap.end() ? nullptr : found->second;
}

void SourceRoutes::addBoxSource(int src, HubClient* client) {
    tp::MutexLock lock(m_srcClientMap_mutex);
    if (srcClientMap.size() >= kMaxSources && srcClientMap.count(src) == 0) {
        warnOfSource(src);
        return;
    }
    srcClientMap.emplace(src, client);
    hubClientSrcMap[client].insert(src);
}

HubClient* SourceRoutes::addUserSource(int src, HubClient* entHub, bool& had) {
    tp::MutexLock lock(m_srcClientMap_mutex);
    const auto found = srcClientMap.find(src);
    had = found != srcClientMap.end();
    if (!had && srcClientMap.size() >= kMaxSources) {
        warnOfSource(src);
        return nullptr;
    }
    if (!had)
        srcClientMap.emplace(src, entHub);
    if (entHub != nullptr)
        hubClientSrcMap[entHub].insert(src);
    return had ? found->second : entHub;
}

bool SourceRoutes::assign(int src, HubClient* client) {
    tp::MutexLock lock(m_srcClientMap_mutex);
    if (srcClientMap.size() >= kMaxSources && srcClientMap.count(src) == 0) {
        warnOfSource(src);
        return false;
    }
    srcClientMap[src] = client;
    return true;
}

void SourceRoutes::forget(HubClient* client) {
    tp::MutexLock lock(m_srcClientMap_mutex);
    hubClientSrcMap.erase(client);
    for (auto entry = srcClientMap.begin(); entry != srcClientMap.end();) {
        if (entry->second != client) {
            ++entry;
            continue;
        }
        const int source = entry->first;
        const auto other = std::find_if(hubClientSrcMap.begin(), hubClientSrcMap.end(),
                                        [source](const auto& hub) { return hub.second.count(source) != 0; });
        if (other == hubClientSrcMap.end())
            entry = srcClientMap.erase(entry);
        else
            (entry++)->second = other->first;
    }
}

int SourceRoutes::nextWithoutHub(int after, HubClient* newsHub, bool& last) {
    tp::MutexLock lock(m_srcClientMap_mutex);
    int found = -1;
    last = true;
    for (auto entry = srcClientMap.upper_bound(after); entry != srcClientMap.end(); ++entry) {
        if (entry->second != nullptr)
            continue;
        if (entry->first >= kFirstNewsSource) {
            entry->second = newsHub;
            continue;
        }
        if (found != -1) {
            last = false;
            break;
        }
        found = entry->first;
    }
    return found;
}

void SourceRoutes::clear() {
    tp::MutexLock lock(m_srcClientMap_mutex);
    srcClientMap.clear();
    hubClientSrcMap.clear();
}

bool EntitledSources::add(int src, HubClient* client) {
    tp::MutexLock lock(m_entitledSrcClientMap_mutex);
    return entitledSrcClientMap.emplace(src, client).second;
}

bool EntitledSources::remove(int src) {
    tp::MutexLock lock(m_entitledSrcClientMap_mutex);
    return entitledSrcClientMap.erase(src) != 0;
}

void EntitledSources::set(int src, HubClient* client) {
    tp::MutexLock lock(m_entitledSrcClientMap_mutex);
    entitledSrcClientMap[src] = client;
}

void EntitledSources::move(int src, const HubClient* from, HubClient* to) {
    tp::MutexLock lock(m_entitledSrcClientMap_mutex);
    const auto found = entitledSrcClientMap.find(src);
    if (found != entitledSrcClientMap.end() && found->second == from)
        found->second = to;
}

std::map<int, HubClient*> EntitledSources::copy() const {
    tp::MutexLock lock(m_entitledSrcClientMap_mutex);
    return entitledSrcClientMap;
}

bool EntitledSources::next(int after, int& src, HubClient*& client) const {
    tp::MutexLock lock(m_entitledSrcClientMap_mutex);
    for (auto entry = entitledSrcClientMap.upper_bound(after); entry != entitledSrcClientMap.end(); ++entry) {
        if (entry->second == nullptr)
            continue;
        src = entry->first;
        client = entry->second;
        return true;
    }
    return false;
}

void EntitledSources::clear() {
    tp::MutexLock lock(m_entitledSrcClientMap_mutex);
    entitledSrcClientMap.clear();
}

} // namespace tivra_internal
