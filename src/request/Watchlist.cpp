#include "request/Watchlist.h"

#include <utility>

#include <tp/eprintf.h>

#include "request/PrintableTag.h"
#include "request/RequestInternal.h"

namespace tivra_internal {

namespace {

constexpr int kSymbolToken = 5;

} // namespace

Watchlist::Watchlist() = default;
Watchlist::~Watchlist() = default;

void Watchlist::add(int64_t tag, RequestInternal& request) {
    if (isUnsubscribeCommand(request.getCommand())) {
        unsubscribe(request);
        return;
    }
    if (request.getCommand() == tivra::SETCONFLATIONINTERVAL)
        return;

    tp::MutexLock lock(m_watchlist_mutex);
    const auto [entry, isNew] = watchlistMap.try_emplace(tag);
    if (!isNew) {
        eprintf(EPF_WARN, "tag %lld already existed in watchlist", printable(tag));
        return;
    }
    request.age = ++m_lastAge;
    entry->second.request = std::make_shared<const StandingRequest>(request);
    entry->second.outstandingResponses = request.outstandingResponses;
    eprintf(EPF_DBUG, "tag %lld added to watchlist", printable(tag));

    const StandingRequest& listed = *entry->second.request;
    m_sameRequests.add(listed);
    // It goes when its hubs have answered it, which may be long ago or still to come.
    if (const StandingRequest* const old = m_sameRequests.replacedBy(listed))
        eprintf(EPF_DBUG, "Removing tag %lld from watchlist; replaced with dup command from tag %lld",
                printable(old->getTag()), printable(tag));
}

std::shared_ptr<const StandingRequest> Watchlist::share(int64_t tag, const RequestInternal& request) const {
    {
        tp::MutexLock lock(m_watchlist_mutex);
        const auto entry = watchlistMap.find(tag);
        if (entry != watchlistMap.end() && entry->second.request->isMadeOf(request))
            return entry->second.request;
    }
    return std::make_shared<const StandingRequest>(request);
}

void Watchlist::unsubscribe(RequestInternal& request) {
    const int64_t tag = request.getTag();
    const int64_t unsubTag = request.getUnsubtag();
    eprintf(EPF_DBUG, "Watchlist::unsubscribe(ENTRY): tag=%lld; unsubTag=%lld", printable(tag),
            printable(unsubTag));
    request.clearRequest();

    // Held to the end of the copy: the last answer of a hub may take the entry off the list meanwhile.
    tp::MutexLock lock(m_watchlist_mutex);
    const Entry* const entry = findCurrent(unsubTag);
    if (entry != nullptr && isSubscribeCommand(entry->request->getCommand())) {
        request.cloneRequest(makeRequest(*entry).get());
        request.modifyCommand(unsubscribeOf(entry->request->getCommand()));
        request.modifyTag(tag, true);
        // Nor may those come back whose place it has taken.
        for (const StandingRequest* old = entry->request.get(); old != nullptr;
             old = m_sameRequests.replacedBy(*old))
            m_unsubscribed.insert(old->getTag());
        return;
    }

    const char* refusal = "UNSUBTAGNOTFOUNDWATCHLIST";
    if (entry != nullptr) {
        refusal = "UNSUBOFNONSUBNOTALLOWEDWITHWATCHLIST";
        eprintf(EPF_WARN,
                "tag %lld requested unsubscribe of tag %lld, which was not a subscribe command (command=%d)",
                printable(tag), printable(unsubTag), static_cast<int>(entry->request->getCommand()));
    } else {
        eprintf(EPF_WARN, "tag %lld requested unsubscribe of tag %lld, which was not found in watchlist",
                printable(tag), printable(unsubTag));
    }
    request.modifyCommand(tivra::UNSUBSCRIBE);
    request.modifyTag(tag, false);
    request.add(kSymbolToken, std::string(refusal));
}

const Watchlist::Entry* Watchlist::findCurrent(int64_t tag) const {
    const auto entry = watchlistMap.find(tag);
    if (entry == watchlistMap.end() || m_sameRequests.isReplaced(*entry->second.request))
        return nullptr;
    return &entry->second;
}

void Watchlist::remove(int64_t tag) {
    const auto entry = watchlistMap.find(tag);
    if (entry == watchlistMap.end()) {
        eprintf(EPF_DBUG, "Unable to remove tag %lld from watchlist; not found", printable(tag));
        return;
    }
    m_sameRequests.remove(*entry->second.request);
    watchlistMap.erase(entry);
    m_unsubscribed.erase(tag);
    eprintf(EPF_DBUG, "tag %lld removed from watchlist", printable(tag));
}

void Watchlist::addHub(int64_t tag, HubClient* hubClient) {
    tp::MutexLock lock(m_watchlist_mutex);
    const auto entry = watchlistMap.find(tag);
    if (entry != watchlistMap.end() && entry->second.hub == nullptr && tagHubMap.count({tag, hubClient}) == 0)
        entry->second.hub = hubClient;
    else if (entry == watchlistMap.end() || entry->second.hub != hubClient)
        tagHubMap.emplace(tag, hubClient);
}

bool Watchlist::isHeld(int64_t tag) const {
    const auto entry = watchlistMap.find(tag);
    if (entry != watchlistMap.end() && entry->second.hub != nullptr)
        return true;
    const auto first = tagHubMap.lower_bound({tag, nullptr});
    return first != tagHubMap.end() && first->first == tag;
}

void Watchlist::removeHub(int64_t tag, HubClient* hubClient) {
    tp::MutexLock lock(m_watchlist_mutex);
    if (!isHeld(tag)) {
        eprintf(EPF_WARN, "Unable to find tag %lld in watchlist while trying to remove HUB %p",
                printable(tag), static_cast<void*>(hubClient));
        return;
    }
    const auto entry = watchlistMap.find(tag);
    if (entry != watchlistMap.end() && entry->second.hub == hubClient)
        entry->second.hub = nullptr;
    else
        tagHubMap.erase({tag, hubClient});
    if (countResponse(tag) && !isHeld(tag))
        remove(tag);
}

bool Watchlist::countResponse(int64_t tag) {
    const auto entry = watchlistMap.find(tag);
    if (entry == watchlistMap.end()) {
        eprintf(EPF_DBUG, "Watchlist::removeHub: Unable to find tag %lld in watchlist", printable(tag));
        return true;
    }
    uint64_t& outstanding = entry->second.outstandingResponses;
    // A restart leaves 0 behind: the tag has been queued again and nobody has counted its hubs yet.
    const bool isLast = outstanding <= 1;
    if (outstanding > 0)
        --outstanding;
    eprintf(EPF_DBUG, "tag %lld: set outstandingResponses to %lu", printable(tag),
            static_cast<unsigned long>(outstanding));
    return isLast;
}

void Watchlist::forgetUnsubscribed() {
    tp::MutexLock lock(m_watchlist_mutex);
    for (const int64_t tag : std::exchange(m_unsubscribed, {})) {
        releaseAll(tag);
        remove(tag);
    }
}

void Watchlist::releaseAll(int64_t tag) {
    if (const auto entry = watchlistMap.find(tag); entry != watchlistMap.end())
        entry->second.hub = nullptr;
    while (isHeld(tag))
        tagHubMap.erase(tagHubMap.lower_bound({tag, nullptr}));
}

void Watchlist::forgetQuestions() {
    tp::MutexLock lock(m_watchlist_mutex);
    std::vector<int64_t> questions;
    for (const auto& [tag, entry] : watchlistMap)
        if (isSnapCommand(entry.request->getCommand()))
            questions.push_back(tag);
    for (const int64_t tag : questions) {
        releaseAll(tag);
        remove(tag);
    }
}

std::set<int64_t> Watchlist::unsubscribedTags() const {
    tp::MutexLock lock(m_watchlist_mutex);
    return m_unsubscribed;
}

void Watchlist::removeAllHubs() {
    tp::MutexLock lock(m_watchlist_mutex);
    tagHubMap.clear();
    for (auto& [tag, entry] : watchlistMap)
        entry.hub = nullptr;
}

void Watchlist::setExpectedResponses(int64_t tag, unsigned long expectedResponses) {
    tp::MutexLock lock(m_watchlist_mutex);
    const auto entry = watchlistMap.find(tag);
    if (entry != watchlistMap.end())
        entry->second.outstandingResponses = expectedResponses;
}

void Watchlist::lowerExpectedResponses(int64_t tag) {
    tp::MutexLock lock(m_watchlist_mutex);
    const auto entry = watchlistMap.find(tag);
    if (entry != watchlistMap.end() && entry->second.outstandingResponses > 1)
        --entry->second.outstandingResponses;
}

std::size_t Watchlist::size() const {
    tp::MutexLock lock(m_watchlist_mutex);
    return watchlistMap.size();
}

bool Watchlist::contains(int64_t tag) const {
    tp::MutexLock lock(m_watchlist_mutex);
    return watchlistMap.count(tag) != 0;
}

int64_t Watchlist::highestTag() const {
    tp::MutexLock lock(m_watchlist_mutex);
    return watchlistMap.empty() ? 0 : watchlistMap.rbegin()->first;
}

std::unique_ptr<RequestInternal> Watchlist::getNextRequest(int64_t lastTag) const {
    tp::MutexLock lock(m_watchlist_mutex);
    const auto entry = watchlistMap.upper_bound(lastTag);
    return entry != watchlistMap.end() ? makeRequest(entry->second) : nullptr;
}

std::unique_ptr<RequestInternal> Watchlist::makeRequest(const Entry& entry) {
    auto request = entry.request->makeRequest();
    request->outstandingResponses = entry.outstandingResponses;
    return request;
}

} // namespace tivra_internal
