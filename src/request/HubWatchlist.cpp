#include "request/HubWatchlist.h"

#include <string>
#include <utility>

#include <tp/eprintf.h>

#include "request/HubName.h"
#include "request/PrintableTag.h"
#include "request/RequestInternal.h"
#include "request/RequestSender.h"
#include "request/Watchlist.h"

namespace tivra_internal {

HubWatchlist::HubWatchlist(HubClient* hub, const HubName& hubName, Watchlist& sessionList,
                           RequestSender& sender)
    : m_hub(hub), m_hubName(hubName), m_sessionList(sessionList), m_sender(sender) {}

HubWatchlist::~HubWatchlist() = default;

void HubWatchlist::add(int64_t tag, std::unique_ptr<RequestInternal> request) {
    const tivra::Commands command = request->getCommand();
    if (isUnsubscribeCommand(command))
        unsubscribe(request->getUnsubtag());
    else if (command != tivra::SETCONFLATIONINTERVAL)
        addNew(tag, {m_sessionList.share(tag, *request), request->reach});
}

void HubWatchlist::addNew(int64_t tag, Entry added) {
    const std::string hubAddr = m_hubName.getHubAddr();
    int64_t replacedTag = -1;
    {
        tp::MutexLock lock(m_watchlist_mutex);
        const auto [entry, isNew] = watchlistMap.try_emplace(tag, std::move(added));
        const StandingRequest& listed = *entry->second.request;
        if (isNew)
            eprintf(EPF_DBUG, "tag %lld added with command %d to watchlist for HUB %s", printable(tag),
                    static_cast<int>(listed.getCommand()), hubAddr.c_str());
        else
            eprintf(EPF_DBUG, "tag %lld already existed in watchlist for HUB %s", printable(tag),
                    hubAddr.c_str());

        m_sameRequests.add(listed);
        const StandingRequest* const old = isNew ? m_sameRequests.replacedBy(listed) : &listed;
        if (old != nullptr)
            eprintf(old == &listed ? EPF_WARN : EPF_DBUG,
                    "Removing tag %lld from watchlist for HUB %s; replaced with dup command from tag %lld",
                    printable(old->getTag()), hubAddr.c_str(), printable(tag));
        // What has not been answered yet must come back with a replay; it goes with its answer. The same tag
        // once more, from a replay, must not take itself off the list.
        if (old != nullptr && old != &listed && watchlistMap.at(old->getTag()).isAnswered)
            replacedTag = old->getTag();
    }
    remove(replacedTag);
    m_sessionList.addHub(tag, m_hub);
}

void HubWatchlist::unsubscribe(int64_t tag) {
    // Nor may those come back whose place it has taken.
    while (tag != -1) {
        int64_t replacedTag = -1;
        {
            tp::MutexLock lock(m_watchlist_mutex);
            const auto entry = watchlistMap.find(tag);
            const StandingRequest* const old =
                entry != watchlistMap.end() ? m_sameRequests.replacedBy(*entry->second.request) : nullptr;
            if (old != nullptr)
                replacedTag = old->getTag();
        }
        remove(tag);
        tag = replacedTag;
    }
}

void HubWatchlist::noteAnswer(int64_t tag) {
    {
        tp::MutexLock lock(m_watchlist_mutex);
        const auto entry = watchlistMap.find(tag);
        if (entry != watchlistMap.end()) {
            const StandingRequest& listed = *entry->second.request;
            entry->second.isAnswered = true;
            if (!isSnapCommand(listed.getCommand()) && !m_sameRequests.isReplaced(listed))
                return;
        }
    }
    remove(tag);
}

void HubWatchlist::remove(int64_t tag) {
    if (tag == -1)
        return;
    {
        tp::MutexLock lock(m_watchlist_mutex);
        const auto entry = watchlistMap.find(tag);
        if (entry == watchlistMap.end()) {
            lock.unlock();
            eprintf(EPF_DBUG, "Unable to remove tag %lld from watchlist for HUB %s; not found",
                    printable(tag), m_hubName.getHubAddr().c_str());
            return;
        }
        m_sameRequests.remove(*entry->second.request);
        watchlistMap.erase(entry);
        m_retryTags.erase(tag);
    }
    eprintf(EPF_DBUG, "tag %lld removed from watchlist for HUB %s", printable(tag),
            m_hubName.getHubAddr().c_str());
    m_sessionList.removeHub(tag, m_hub);
}

bool HubWatchlist::handleResponse(int64_t tag, int64_t status) {
    if (status == kHubBusy)
        return retry(tag);
    // A finished snap leaves the list and a subscription stays; what the hub has refused is forgotten.
    if (status >= 0)
        noteAnswer(tag);
    else
        remove(tag);
    return false;
}

bool HubWatchlist::retry(int64_t tag) {
    std::unique_ptr<RequestInternal> copy;
    {
        tp::MutexLock lock(m_watchlist_mutex);
        const auto entry = watchlistMap.find(tag);
        if (entry == watchlistMap.end()) {
            lock.unlock();
            eprintf(EPF_WARN, "HubWatchlist::handleResponse: request missing for tag %lld; unable to retry",
                    printable(tag));
            return false;
        }
        if (!m_retryTags.insert(tag).second)
            return true;
        copy = makeRequest(entry->second);
        copy->isWLRetry = true;
    }
    if (!m_sender.sendToHub(copy, m_hub, true, 0)) {
        // Nobody will write this retry: the application must see the answer.
        endRetry(tag);
        return false;
    }
    eprintf(EPF_INFO, "HubWatchlist::handleResponse: retrying request for tag %lld; HUB was busy",
            printable(tag));
    return true;
}

bool HubWatchlist::isRetryWanted(int64_t tag) const {
    tp::MutexLock lock(m_watchlist_mutex);
    return m_retryTags.count(tag) != 0;
}

void HubWatchlist::endRetry(int64_t tag) {
    tp::MutexLock lock(m_watchlist_mutex);
    m_retryTags.erase(tag);
}

void HubWatchlist::noteReplay(int64_t tag) {
    tp::MutexLock lock(m_watchlist_mutex);
    m_retryTags.erase(tag);
    const auto entry = watchlistMap.find(tag);
    if (entry != watchlistMap.end())
        entry->second.isAnswered = false;
}

bool HubWatchlist::contains(int64_t tag) const {
    tp::MutexLock lock(m_watchlist_mutex);
    return watchlistMap.count(tag) != 0;
}

std::size_t HubWatchlist::size() const {
    tp::MutexLock lock(m_watchlist_mutex);
    return watchlistMap.size();
}

std::unique_ptr<RequestInternal> HubWatchlist::getNextRequest(int64_t lastTag) const {
    tp::MutexLock lock(m_watchlist_mutex);
    const auto entry = watchlistMap.upper_bound(lastTag);
    if (entry == watchlistMap.end())
        return nullptr;
    return makeRequest(entry->second);
}

std::unique_ptr<RequestInternal> HubWatchlist::makeRequest(const Entry& entry) const {
    auto request = entry.request->makeRequest();
    request->reach = entry.reach;
    request->setHUB(m_hub);
    return request;
}

bool HubWatchlist::getCommand(int64_t tag, tivra::Commands& command) const {
    tp::MutexLock lock(m_watchlist_mutex);
    const auto entry = watchlistMap.find(tag);
    if (entry == watchlistMap.end())
        return false;
    command = entry->second.request->getCommand();
    return true;
}

} // namespace tivra_internal
