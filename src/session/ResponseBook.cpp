#include "session/ResponseBook.h"

#include <algorithm>
#include <utility>

#include "request/RequestInternal.h"

namespace tivra_internal {

bool reqResp::isWaitingFor(const HubClient* hub) const {
    return std::find(waitingFor.begin(), waitingFor.end(), hub) != waitingFor.end();
}

void reqResp::stopWaitingFor(const HubClient* hub) {
    waitingFor.erase(std::remove(waitingFor.begin(), waitingFor.end(), hub), waitingFor.end());
}

bool reqResp::countAsAnswered(const HubClient* hub) {
    if (outstandingResponses > 1)
        --outstandingResponses;
    stopWaitingFor(hub);
    return waitingFor.empty();
}

reqResp ResponseBook::makeEntry(const RequestInternal& request, std::vector<HubClient*> hubs, bool isNews,
                                int src) {
    reqResp entry;
    entry.outstandingResponses = hubs.size();
    entry.command = request.getCommand();
    if (!request.altIndex.empty())
        entry.altIndex = std::make_shared<const std::vector<AltIndexInfo>>(request.altIndex);
    entry.isNews = isNews;
    entry.src = src;
    entry.waitingFor = std::move(hubs);
    return entry;
}

} // namespace tivra_internal
