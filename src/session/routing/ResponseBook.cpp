#include "session/routing/ResponseBook.h"

#include <algorithm>

#include <tp/eprintf.h>

#include "receive/LibraryTags.h"
#include "receive/ReadHandlerSession.h"
#include "request/RequestInternal.h"

namespace tivra_internal {
namespace {

/// A new entry for a request that goes to `hubs`.
reqResp makeEntry(const RequestInternal& request, const std::vector<HubClient*>& hubs, bool isNews,
                  int32_t src) {
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

MergeQuestion questionFor(const reqResp& entry, int64_t status, int pairCount, bool last) {
    MergeQuestion question;
    question.command = entry.command;
    question.isEntitlementPort = entry.src != 0;
    question.isNews = entry.isNews;
    question.responseSent = entry.responseSent;
    question.last = last;
    question.lowestStatus = entry.rc;
    question.status = status;
    question.pairCount = pairCount;
    return question;
}

} // namespace

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

void ResponseBook::expect(const RequestInternal& request, const std::vector<HubClient*>& hubs, bool isNews) {
    tp::MutexLock lock(m_reqRespMap_mutex);
    reqRespMap[request.getTag()] = makeEntry(request, hubs, isNews, 0);
}

bool ResponseBook::expectNew(const RequestInternal& request, HubClient* hub, int32_t src) {
    tp::MutexLock lock(m_reqRespMap_mutex);
    const auto [entry, isNew] = reqRespMap.try_emplace(request.getTag());
    if (isNew)
        entry->second = makeEntry(request, {hub}, false, src);
    return isNew;
}

void ResponseBook::expectAgain(const RequestInternal& request, HubClient* hub) {
    tp::MutexLock lock(m_reqRespMap_mutex);
    const auto [entry, isNew] = reqRespMap.try_emplace(request.getTag());
    if (isNew) {
        entry->second = makeEntry(request, {hub}, false, 0);
        entry->second.isRepeated = true;
        return;
    }
    if (!entry->second.isWaitingFor(hub)) {
        entry->second.waitFor(hub);
        ++entry->second.outstandingResponses;
    }
}

int32_t ResponseBook::takeBack(int64_t tag) {
    tp::MutexLock lock(m_reqRespMap_mutex);
    const auto found = reqRespMap.find(tag);
    if (found == reqRespMap.end())
        return 0;
    const int32_t src = found->second.src;
    reqRespMap.erase(found);
    return src;
}

std::optional<tivra::Commands> ResponseBook::commandOf(int64_t tag) {
    tp::MutexLock lock(m_reqRespMap_mutex);
    const auto found = reqRespMap.find(tag);
    if (found == reqRespMap.end())
        return std::nullopt;
    return found->second.command;
}

std::shared_ptr<const std::vector<AltIndexInfo>> ResponseBook::altIndexOf(int64_t tag) {
    tp::MutexLock lock(m_reqRespMap_mutex);
    const auto found = reqRespMap.find(tag);
    return found == reqRespMap.end() ? nullptr : found->second.altIndex;
}

std::optional<CountedAnswer> ResponseBook::answer(int64_t tag, const HubClient* from, int64_t status,
                                                  int pairCount) {
    tp::MutexLock lock(m_reqRespMap_mutex);
    const auto found = reqRespMap.find(tag);
    if (found == reqRespMap.end())
        return std::nullopt;
    reqResp& entry = found->second;
    CountedAnswer answer;
    if (!entry.isWaitingFor(from))
        return answer;
    answer.isAwaited = true;
    answer.command = entry.command;
    answer.src = entry.src;
    entry.stopWaitingFor(from);
    answer.isLast = entry.outstandingResponses <= 1;
    if (!answer.isLast)
        --entry.outstandingResponses;
    answer.decision = decideMerge(questionFor(entry, status, pairCount, answer.isLast));
    entry.responseSent = answer.decision.responseSent;
    entry.rc = answer.decision.lowestStatus;
    // After a lost share was dropped, the last answer is not the end; there is no other either.
    if (answer.isLast || entry.waitingFor.empty())
        reqRespMap.erase(found);
    return answer;
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

void ResponseBook::clear() {
    tp::MutexLock lock(m_reqRespMap_mutex);
    reqRespMap.clear();
}

void ResponseBook::logEntries() {
    tp::MutexLock lock(m_reqRespMap_mutex);
    eprintf(EPF_DBUG, "Prior to clear, reqRespMap has %zu entries", reqRespMap.size());
    for (const auto& [tag, entry] : reqRespMap)
        eprintf(EPF_DBUG, "tag=%lld; respSent=%d; respOut=%lu; cmd=%d", static_cast<long long>(tag),
                entry.responseSent ? 1 : 0, static_cast<unsigned long>(entry.outstandingResponses),
                static_cast<int>(entry.command));
}

} // namespace tivra_internal
