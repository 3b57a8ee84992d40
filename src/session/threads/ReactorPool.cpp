#include "session/threads/ReactorPool.h"

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <string>
#include <system_error>
#include <utility>

#include <tp/eprintf.h>

#include "hub/HubClient.h"
#include "hub/HubEventReactor.h"
#include "receive/Queue.h"
#include "receive/QueueReadHandler.h"
#include "receive/UserEventReactor.h"
#include "request/RequestInternal.h"
#include "session/threads/ReactorChoice.h"
#include "session/threads/ReactorPoolOwner.h"

namespace tivra_internal {

ReactorPool::ReactorPool(ReactorPoolOwner& owner) : m_owner(owner) {}
ReactorPool::~ReactorPool() = default;

HubClient* ReactorPool::placeNew(const std::function<HubClient*()>& make) {
    tp::MutexLock placing(m_registerHub_mutex);
    HubClient* const client = make();
    return client != nullptr && registerHub(client) ? client : nullptr;
}

void ReactorPool::placeUnserved(HubClient* client) {
    tp::MutexLock placing(m_registerHub_mutex);
    if (client->getReactor() == nullptr)
        static_cast<void>(registerHub(client));
}

void ReactorPool::placeAgain(HubClient* client, const std::function<bool()>& prepare) {
    tp::MutexLock placing(m_registerHub_mutex);
    if (!isServed(client) && prepare())
        placeHub(client, client->geteventReactorIndex());
}

/// False when there is no thread for it.
bool ReactorPool::registerHub(HubClient* client) {
    const ThreadLimits limits = m_owner.threadLimits();
    ReactorChoice choice =
        chooseReactor(hubLastUsedIndex, hubNextAvailableIndex, limits.multithreaded, limits.maxHubThreads);
    if (choice.create && !createHubReactor(choice.index, client)) {
        if (hubNextAvailableIndex == 0)
            return false;
        choice = {0, false};
    }
    if (!choice.create)
        placeHub(client, choice.index);
    hubLastUsedIndex = choice.index;
    return true;
}

/// A further hub thread, with the client as its first; false when the system refuses one.
bool ReactorPool::createHubReactor(int index, HubClient* client) {
    eprintf(EPF_DBUG, "Creating a new HUB thread for HUB %s", client->getHubAddr().c_str());
    auto reactor = std::make_unique<HubEventReactor>(index, m_owner.threadLimits().maxRequestQueueSize);
    HubEventReactor* const created = reactor.get();
    {
        tp::MutexLock lock(m_hubER_mutex);
        hubEventReactorMap[index] = std::move(reactor);
    }
    // Placed before the thread runs: its first supervision dials at once instead of a second later.
    placeHub(client, index);
    try {
        tp::Thread thread("tivra-hub" + std::to_string(index),
                          [this, created] { m_owner.startHubEventReactor(*created); });
        addThread(std::move(thread));
    } catch (const std::system_error& error) {
        char text[200];
        std::snprintf(text, sizeof text,
                      "Unable to create a new HUB thread (%s); Current number of HUB threads = %d",
                      error.what(), hubNextAvailableIndex);
        removeHubReactor(index, client);
        m_owner.noteThreadRefused(text, hubNextAvailableIndex == 0);
        return false;
    }
    ++hubNextAvailableIndex;
    return true;
}

HubEventReactor* ReactorPool::reactorOf(HubClient* client) {
    tp::MutexLock lock(m_hubER_mutex);
    const auto found = hubToEventReactor.find(client);
    return found == hubToEventReactor.end() ? nullptr : found->second;
}

std::vector<HubClient*> ReactorPool::hubsOf(int reactorIndex) {
    tp::MutexLock lock(m_hubER_mutex);
    const auto found = eventReactorHubList.find(reactorIndex);
    return found == eventReactorHubList.end() ? std::vector<HubClient*>() : found->second;
}

std::vector<QueueReadHandler*> ReactorPool::handlersOf(int reactorIndex) {
    tp::MutexLock lock(m_reqQ_mutex);
    const auto found = eventReactorQueueHandlerList.find(reactorIndex);
    return found == eventReactorQueueHandlerList.end() ? std::vector<QueueReadHandler*>() : found->second;
}

bool ReactorPool::isServed(const HubClient* client) {
    tp::MutexLock lock(m_hubER_mutex);
    return std::any_of(eventReactorHubList.begin(), eventReactorHubList.end(), [client](const auto& entry) {
        return std::find(entry.second.begin(), entry.second.end(), client) != entry.second.end();
    });
}

void ReactorPool::placeHub(HubClient* client, int reactorIndex) {
    HubEventReactor* reactor = nullptr;
    {
        tp::MutexLock lock(m_hubER_mutex);
        reactor = hubEventReactorMap.at(reactorIndex).get();
        hubToEventReactor[client] = reactor;
    }
    // The client has a mutex of its own for it, which comes before this table's.
    client->attachReactor(reactor, reactorIndex);
    {
        tp::MutexLock lock(m_hubER_mutex);
        eventReactorHubList[reactorIndex].push_back(client);
    }
    reactor->ask(HubEventReactor::kSupervise);
}

void ReactorPool::askHubs(unsigned what) {
    tp::MutexLock lock(m_hubER_mutex);
    for (auto& [index, reactor] : hubEventReactorMap)
        reactor->ask(what);
}

void ReactorPool::forgetReactorOf(HubClient* client) {
    tp::MutexLock lock(m_hubER_mutex);
    hubToEventReactor.erase(client);
}

void ReactorPool::removeHub(HubClient* client) {
    tp::MutexLock lock(m_hubER_mutex);
    hubToEventReactor.erase(client);
    for (auto& [index, clients] : eventReactorHubList)
        clients.erase(std::remove(clients.begin(), clients.end(), client), clients.end());
}

/// Takes back a reactor that has no thread, and the one hub placed on it.
void ReactorPool::removeHubReactor(int reactorIndex, HubClient* client) {
    client->attachReactor(nullptr, -1);
    tp::MutexLock lock(m_hubER_mutex);
    hubToEventReactor.erase(client);
    eventReactorHubList.erase(reactorIndex);
    hubEventReactorMap.erase(reactorIndex);
}

void ReactorPool::registerQueueHandler(QueueReadHandler* handler, bool isFirst, HubClient& client) {
    const ThreadLimits limits = m_owner.threadLimits();
    tp::MutexLock lock(m_reqQ_mutex);
    ReactorChoice choice =
        chooseReactor(userLastUsedIndex, userNextAvailableIndex, limits.multithreaded, limits.maxUserThreads);
    UserEventReactor* reactor = nullptr;
    if (choice.create)
        reactor = createUserReactor(choice.index, handler, isFirst);
    if (reactor == nullptr) {
        if (userNextAvailableIndex == 0)
            return;
        if (choice.create)
            choice.index = 0;
        reactor = userEventReactorMap[choice.index].get();
    }
    Queue* const queue = client.getResponseQueue();
    queue->setQueueHandler(handler);
    handler->setUserEventReactor(reactor);
    reactor->regQueue(handler, queue);
    reactor->watchReads(handler);
    reactor->regActivity(handler);
    eventReactorQueueHandlerList[choice.index].push_back(handler);
    eprintf(EPF_DBUG, "registered QueueHandler for %s", client.getHubAddr().c_str());
    userLastUsedIndex = choice.index;
}

/// A further user thread; null when the system refuses one.
UserEventReactor* ReactorPool::createUserReactor(int index, QueueReadHandler* handler, bool isFirst) {
    eprintf(EPF_DBUG, "Creating a new User thread for QueueReadHandler %p",
            static_cast<const void*>(handler));
    auto reactor = std::make_unique<UserEventReactor>(index);
    UserEventReactor* const created = reactor.get();
    userEventReactorMap[index] = std::move(reactor);
    m_userLoops.add(created);
    try {
        tp::Thread thread("tivra-user" + std::to_string(index),
                          [this, created, isFirst] { m_owner.startUserEventReactor(*created, isFirst); });
        addThread(std::move(thread));
    } catch (const std::system_error& error) {
        char text[200];
        std::snprintf(text, sizeof text,
                      "Unable to create a new user thread (%s); Current number of user threads = %d",
                      error.what(), userNextAvailableIndex);
        m_userLoops.remove(created);
        userEventReactorMap.erase(index);
        m_owner.noteThreadRefused(text, userNextAvailableIndex == 0);
        return nullptr;
    }
    ++userNextAvailableIndex;
    return created;
}

void ReactorPool::closeQueueHandler(QueueReadHandler* handler) {
    eprintf(EPF_DBUG, "closeQueueHandler: responseQueueHandler=%p", static_cast<void*>(handler));
    if (handler == nullptr)
        return;
    tp::MutexLock lock(m_reqQ_mutex);
    UserEventReactor* const reactor = handler->getUserEventReactor();
    if (reactor == nullptr)
        return;
    for (auto& [index, handlers] : eventReactorQueueHandlerList)
        handlers.erase(std::remove(handlers.begin(), handlers.end(), handler), handlers.end());
    reactor->unWatchReads(handler);
    reactor->unRegQueue(handler);
    reactor->unRegActivity(handler);
}

void ReactorPool::addThread(tp::Thread thread) {
    tp::MutexLock lock(m_threadVector_mutex);
    thread_vector.push_back(std::move(thread));
}

void ReactorPool::endAll() {
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

void ReactorPool::joinAll() {
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

void ReactorPool::forgetHubs() {
    tp::MutexLock lock(m_hubER_mutex);
    hubToEventReactor.clear();
}

void ReactorPool::deleteAll() {
    {
        tp::MutexLock placing(m_registerHub_mutex);
        hubNextAvailableIndex = 0;
        hubLastUsedIndex = -1;
        tp::MutexLock lock(m_hubER_mutex);
        hubEventReactorMap.clear();
        eventReactorHubList.clear();
    }
    tp::MutexLock lock(m_reqQ_mutex);
    m_userLoops.clear();
    userEventReactorMap.clear();
    eventReactorQueueHandlerList.clear();
    userNextAvailableIndex = 0;
    userLastUsedIndex = -1;
}

} // namespace tivra_internal
