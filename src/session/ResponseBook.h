#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include <request/Commands.h>
#include <tp/Mutex.h>

#include "LockOrder.h"
#include "request/AltIndexInfo.h"
#include "session/MergeDecision.h"

namespace tivra_internal {

class HubClient;
class RequestInternal;

/// One request in flight.
struct reqResp {
    uint64_t outstandingResponses = 1;
    bool responseSent = false;
    tivra::Commands command = tivra::SUBSCRIBE;
    std::shared_ptr<const std::vector<AltIndexInfo>> altIndex; ///< null when the request named none
    int64_t rc = kNoStatusYet;                                 ///< the lowest status seen
    bool isNews = false;
    int32_t src = 0; ///< not 0 only on the library's own question for a newly granted source
    std::vector<HubClient*> waitingFor; ///< the hubs whose answer is still to come

    [[nodiscard]] bool isWaitingFor(const HubClient* hub) const;
    void stopWaitingFor(const HubClient* hub);
    /// This hub will not answer. True when there is nobody left who could.
    [[nodiscard]] bool countAsAnswered(const HubClient* hub);
};

/// The requests in flight by tag. Written by routing, emptied by the merging of responses. @thread any
struct ResponseBook {
    tp::Mutex m_reqRespMap_mutex{kLockReqRespMap};
    std::map<int64_t, reqResp> reqRespMap TP_GUARDED_BY(m_reqRespMap_mutex);

    /// A new entry for a request that goes to `hubs`.
    [[nodiscard]] static reqResp makeEntry(const RequestInternal& request, std::vector<HubClient*> hubs,
                                           bool isNews, int src);
};

} // namespace tivra_internal
