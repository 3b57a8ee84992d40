#include "session/ResponseBook.h"

#include <algorithm>

#include "receive/LibraryTags.h"
#include "receive/ReadHandlerSession.h"
#include "request/RequestInternal.h"

namespace tivra_internal {

std::vector<AwaitedAnswer>::const_iterator reqResp::find(const HubClient* hub) const {
    return std::find_if(waitingFor.begin(), waitingFor.end(),
                        [hub](const AwaitedAnswer& awaited) { return awaited.hub == hub; });
}

bool reqResp::isLost(const HubClient* hub) const {
    const auto awaited = find(hub);
    return awaited != waitingFor.end() && awaited->state == AwaitedAnswer::State::Lost;
}

void reqResp::setState(const HubClient* hub, AwaitedAnswer next) {
    const auto awaited = find(hub);
    if (awaited != waitingFor.end())
        waitingFor[static_cast<std::size_t>(awaited - waitingFor.begin())] = next;
}

void reqResp::stopWaitingFor(const HubClient* hub) {
    const auto awaited = find(hub);
    if (awaited != waitingFor.end())
        waitingFor.erase(awaited);
}

reqResp ResponseBook::makeEntry(const RequestInternal& request, const std::vector<HubClient*>& hubs,
                                bool isNews, int src) {
    reqResp entry;
    entry.outstandingResponses = hubs.size();
    entry.command = request.getCommand();
    if (!request.altIndex.empty())
        entry.altIndex = std::make_shared<const std::vector<AltIndexInfo>>(request.altIndex);
    entry.isNews = isNews;
    entry.src = src;
    entry.isRepeated = request.isRepeated;
    for (HubClient* hub : hubs)
        entry.waitFor(hub);
    return entry;
}

void ResponseBook::noteWritten(int64_t tag, HubClient* hub) {
    tp::MutexLock lock(m_reqRespMap_mutex);
    const auto found = reqRespMap.find(tag);
    if (found != reqRespMap.end())
        found->second.setState(hub, {hub, AwaitedAnswer::State::Written});
}

std::vector<int64_t> ResponseBook::writtenTo(const HubClient* hub) {
    std::vector<int64_t> tags;
    tp::MutexLock lock(m_reqRespMap_mutex);
    for (const auto& [tag, entry] : reqRespMap) {
        const auto awaited = entry.find(hub);
        if (awaited != entry.waitingFor.end() && awaited->state == AwaitedAnswer::State::Written)
            tags.push_back(tag);
    }
    return tags;
}

bool ResponseBook::lose(int64_t tag, const HubClient* hub, HubClient* owner) {
    tp::MutexLock lock(m_reqRespMap_mutex);
    const auto found = reqRespMap.find(tag);
    if (found == reqRespMap.end() || !found->second.isWaitingFor(hub) || found->second.isLost(hub))
        return false;
    found->second.setState(hub, {owner, AwaitedAnswer::State::Lost});
    return true;
}

bool ResponseBook::countAsAnswered(int64_t tag, const HubClient* hub) {
    tp::MutexLock lock(m_reqRespMap_mutex);
    const auto found = reqRespMap.find(tag);
    if (found == reqRespMap.end())
        return false;
    reqResp& entry = found->second;
    if (entry.outstandingResponses > 1)
        --entry.outstandingResponses;
    entry.stopWaitingFor(hub);
    if (!entry.waitingFor.empty())
        return false;
    entry.mustEnd = entry.src == 0 && !entry.isRepeated && !entry.responseSent;
    if (!entry.mustEnd) {
        reqRespMap.erase(found);
        return false;
    }
    entry.outstandingResponses = 1;
    entry.waitingFor = {{nullptr, AwaitedAnswer::State::Lost}};
    return true;
}

void ResponseBook::disown(const HubClient* hub) {
    tp::MutexLock lock(m_reqRespMap_mutex);
    for (auto& [tag, entry] : reqRespMap)
        if (entry.isLost(hub))
            entry.setState(hub, {nullptr, AwaitedAnswer::State::Lost});
}

bool ResponseBook::settleLost(int64_t tag, const HubClient* hub, bool report, LostRequest& lost) {
    tp::MutexLock lock(m_reqRespMap_mutex);
    const auto found = reqRespMap.find(tag);
    if (found == reqRespMap.end() || !found->second.isLost(hub))
        return false;
    reqResp& entry = found->second;
    lost.command = entry.command;
    lost.status = entry.mustEnd && entry.rc != kNoStatusYet ? entry.rc : kStatusConnectionLost;
    // The library's own question is always merged, which ends it in the log.
    if (entry.src != 0 || entry.mustEnd || (report && !entry.isRepeated))
        return true;
    // The count stays: an end without this hub's share would claim to be whole.
    entry.stopWaitingFor(hub);
    if (entry.waitingFor.empty())
        reqRespMap.erase(found);
    return false;
}

void ResponseBook::noteUnsent(const RequestInternal& request) {
    tp::MutexLock lock(m_reqRespMap_mutex);
    reqRespMap.try_emplace(request.getTag(), makeEntry(request, {}, false, 0));
}

bool ResponseBook::isUnanswered(int64_t tag) {
    tp::MutexLock lock(m_reqRespMap_mutex);
    const auto found = reqRespMap.find(tag);
    return found != reqRespMap.end() && !found->second.isRepeated && !found->second.responseSent;
}

std::vector<int64_t> ResponseBook::tags() {
    std::vector<int64_t> tags;
    tp::MutexLock lock(m_reqRespMap_mutex);
    for (const auto& entry : reqRespMap)
        tags.push_back(entry.first);
    return tags;
}

void ResponseBook::forget(int64_t tag) {
    tp::MutexLock lock(m_reqRespMap_mutex);
    reqRespMap.erase(tag);
}

bool ResponseBook::loseAll(int64_t tag) {
    tp::MutexLock lock(m_reqRespMap_mutex);
    const auto found = reqRespMap.find(tag);
    if (found == reqRespMap.end())
        return false;
    reqResp& entry = found->second;
    if (entry.src != 0 || entry.isRepeated || entry.responseSent) {
        reqRespMap.erase(found);
        return false;
    }
    entry.waitingFor = {{nullptr, AwaitedAnswer::State::Lost}};
    entry.outstandingResponses = 1;
    return true;
}

} // namespace tivra_internal
