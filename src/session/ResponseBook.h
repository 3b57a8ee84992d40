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
struct LostRequest;

/// An answer that is still to come.
struct AwaitedAnswer {
    enum class State {
        Queued,  ///< the request waits to be written
        Written, ///< the hub has the request
        Lost     ///< the connection was lost before the answer, which doesn't come any more
    };
    HubClient* hub; ///< null once the hub has left the session, when the answer is lost
    State state = State::Queued;
};

/// One request in flight.
struct reqResp {
    uint64_t outstandingResponses = 1;
    bool responseSent = false;
    tivra::Commands command = tivra::SUBSCRIBE;
    std::shared_ptr<const std::vector<AltIndexInfo>> altIndex; ///< null when the request named none
    int64_t rc = kNoStatusYet;                                 ///< the lowest status seen
    bool isNews = false;
    int32_t src = 0;         ///< not 0 only on the library's own question for a newly granted source
    bool isRepeated = false; ///< the application has had an answer, before the request was written again
    bool mustEnd = false;    ///< nobody is left who could answer, and the application waits for the end
    std::vector<AwaitedAnswer> waitingFor;

    [[nodiscard]] bool isWaitingFor(const HubClient* hub) const { return find(hub) != waitingFor.end(); }
    [[nodiscard]] bool isLost(const HubClient* hub) const;
    /// One more answer is expected.
    void waitFor(HubClient* hub) { waitingFor.push_back({hub}); }
    /// One answer of this hub is not expected any more.
    void stopWaitingFor(const HubClient* hub);
    void setState(const HubClient* hub, AwaitedAnswer next);
    [[nodiscard]] std::vector<AwaitedAnswer>::const_iterator find(const HubClient* hub) const;
};

/// The requests in flight by tag. Written by routing, emptied by the merging of responses. @thread any
struct ResponseBook {
    tp::Mutex m_reqRespMap_mutex{kLockReqRespMap};
    std::map<int64_t, reqResp> reqRespMap TP_GUARDED_BY(m_reqRespMap_mutex);

    /// The request is out: its answer would be lost with the connection. @thread hub
    void noteWritten(int64_t tag, HubClient* hub) TP_EXCLUDES(m_reqRespMap_mutex);
    /// The tags that the hub has been asked for and has not answered.
    [[nodiscard]] std::vector<int64_t> writtenTo(const HubClient* hub) TP_EXCLUDES(m_reqRespMap_mutex);
    /// The answer will not come; `owner` is who waits for the end in the hub's place. False when it has come.
    [[nodiscard]] bool lose(int64_t tag, const HubClient* hub, HubClient* owner)
        TP_EXCLUDES(m_reqRespMap_mutex);

    /// A hub that will not get the request counts as having answered. True when it was the last one and the
    /// application still waits for the end, which is due in the name of nobody.
    [[nodiscard]] bool countAsAnswered(int64_t tag, const HubClient* hub) TP_EXCLUDES(m_reqRespMap_mutex);
    /// The hub leaves the session: what it owes ends in the name of nobody.
    void disown(const HubClient* hub) TP_EXCLUDES(m_reqRespMap_mutex);

    /// A lost answer's time has come. True: `lost` is to be merged in its place. False: it came after all, or
    /// its share is dropped because `report` is false or the application has had an answer; what then remains
    /// of the answer never reaches its end.
    [[nodiscard]] bool settleLost(int64_t tag, const HubClient* hub, bool report, LostRequest& lost)
        TP_EXCLUDES(m_reqRespMap_mutex);

    // Before all hubs go.
    /// Enters a request that no hub has got yet.
    void noteUnsent(const RequestInternal& request) TP_EXCLUDES(m_reqRespMap_mutex);
    /// Whether the application waits for its first answer.
    [[nodiscard]] bool isUnanswered(int64_t tag) TP_EXCLUDES(m_reqRespMap_mutex);
    [[nodiscard]] std::vector<int64_t> tags() TP_EXCLUDES(m_reqRespMap_mutex);
    void forget(int64_t tag) TP_EXCLUDES(m_reqRespMap_mutex);
    /// All answers to come are lost, as one. False when nobody waits for that: the entry is gone.
    [[nodiscard]] bool loseAll(int64_t tag) TP_EXCLUDES(m_reqRespMap_mutex);

    /// A new entry for a request that goes to `hubs`.
    [[nodiscard]] static reqResp makeEntry(const RequestInternal& request,
                                           const std::vector<HubClient*>& hubs, bool isNews, int src);
};

} // namespace tivra_internal
