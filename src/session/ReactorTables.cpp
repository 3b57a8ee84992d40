#include "session/ReactorTables.h"

#include <algorithm>
#include <sstream>
#include <utility>

#include <tp/eprintf.h>

#include "hub/HubClient.h"
#include "hub/HubEventReactor.h"
#include "receive/UserEventReactor.h"
#include "request/RequestInternal.h"

namespace tivra_internal {

ReactorChoice chooseReactor(int lastUsedIndex, int reactorCount, bool multithreaded, long maxThreads) {
    const int following = lastUsedIndex + 1;
    if (following != reactorCount)
        return {following, false};
    const bool mayGrow = multithreaded ? (maxThreads == 0 || maxThreads > reactorCount) : reactorCount == 0;
    if (mayGrow)
        return {following, true};
    return {0, false};
}

ReactorTables::ReactorTables() = default;
ReactorTables::~ReactorTables() = default;

HubEventReactor* ReactorTables::reactorOf(HubClient* client) {
    tp::MutexLock lock(m_hubER_mutex);
    const auto found = hubToEventReactor.find(client);
    return found == hubToEventReactor.end() ? nullptr : found->second;
}

std::vector<HubClient*> ReactorTables::hubsOf(int reactorIndex) {
    tp::MutexLock lock(m_hubER_mutex);
    const auto found = eventReactorHubList.find(reactorIndex);
    return found == eventReactorHubList.end() ? std::vector<HubClient*>() : found->second;
}

std::vector<QueueReadHandler*> ReactorTables::handlersOf(int reactorIndex) {
    tp::MutexLock lock(m_reqQ_mutex);
    const auto found = eventReactorQueueHandlerList.find(reactorIndex);
    return found == eventReactorQueueHandlerList.end() ? std::vector<QueueReadHandler*>() : found->second;
}

bool ReactorTables::isServed(const HubClient* client) {
    tp::MutexLock lock(m_hubER_mutex);
    return std::any_of(eventReactorHubList.begin(), eventReactorHubList.end(), [client](const auto& entry) {
        return std::find(entry.second.begin(), entry.second.end(), client) != entry.second.end();
    });
}

void ReactorTables::placeHub(HubClient* client, int reactorIndex) {
    HubEventReactor* reactor = nullptr;
    {
        tp::MutexLock lock(m_hubER_mutex);
        reactor = hubEventReactorMap.at(reactorIndex).get();
        hubToEventReactor[client] = reactor;
    }
    // The client has a mutex of its own for it, which comes before this table's.
    client->attachReactor(reactor, reactorIndex);
    tp::MutexLock lock(m_hubER_mutex);
    eventReactorHubList[reactorIndex].push_back(client);
}

void ReactorTables::forgetReactorOf(HubClient* client) {
    tp::MutexLock lock(m_hubER_mutex);
    hubToEventReactor.erase(client);
}

void ReactorTables::removeHub(HubClient* client) {
    tp::MutexLock lock(m_hubER_mutex);
    hubToEventReactor.erase(client);
    for (auto& [index, clients] : eventReactorHubList)
        clients.erase(std::remove(clients.begin(), clients.end(), client), clients.end());
}

void ReactorTables::removeHubReactor(int reactorIndex, HubClient* client) {
    client->attachReactor(nullptr, -1);
    tp::MutexLock lock(m_hubER_mutex);
    hubToEventReactor.erase(client);
    eventReactorHubList.erase(reactorIndex);
    hubEventReactorMap.erase(reactorIndex);
}

void ReactorTables::endAll() {
    {
        tp::MutexLock placing(m_registerHub_mutex);
        tp::MutexLock lock(m_hubER_mutex);
        for (auto& [index, reactor] : hubEventReactorMap)
            reactor->end();
    }
    tp::MutexLock lock(m_reqQ_mutex);
    for (auto& [index, reactor] : userEventReactorMap)
        reactor->end();
}

void ReactorTables::joinAll() {
    tp::MutexLock lock(m_threadVector_mutex);
    while (!thread_vector.empty()) {
        tp::Thread thread = std::move(thread_vector.front());
        thread_vector.pop_front();
        lock.unlock();
        std::ostringstream id;
        id << thread.getId();
        thread.join();
        eprintf(EPF_DBUG, "About to delete event reactor thread (%s)", id.str().c_str());
        lock.lock();
    }
}

void ReactorTables::forgetHubs() {
    tp::MutexLock lock(m_hubER_mutex);
    hubToEventReactor.clear();
}

void ReactorTables::deleteAll() {
    {
        tp::MutexLock placing(m_registerHub_mutex);
        hubNextAvailableIndex = 0;
        hubLastUsedIndex = -1;
        tp::MutexLock lock(m_hubER_mutex);
        hubEventReactorMap.clear();
        eventReactorHubList.clear();
    }
    tp::MutexLock lock(m_reqQ_mutex);
    userEventReactorMap.clear();
    eventReactorQueueHandlerList.clear();
    portUserERIndexMap.clear();
    userNextAvailableIndex = 0;
    userLastUsedIndex = -1;
}

} // namespace tivra_internal
