#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include <request/Commands.h>
#include <tp/Mutex.h>

#include "LockOrder.h"
#include "request/AltIndexInfo.h"
#include "session/routing/MergeDecision.h"

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

/// What one hub's answer means for the request that it belongs to.
struct CountedAnswer {
    bool isAwaited = false; ///< false: the hub has answered already, or was not asked; the rest means nothing
    bool isLast = false;    ///< no other answer is to come
    tivra::Commands command = tivra::SUBSCRIBE;
    int32_t src = 0; ///< see `reqResp`
    MergeDecision decision;
};

/// The requests in flight by tag. Written by routing, emptied by the merging of responses. @thread any
class ResponseBook {
public:
    // A request goes out.
    /// All `hubs` are asked. What the book has said of the tag before is replaced.
    void expect(const RequestInternal& request, const std::vector<HubClient*>& hubs, bool isNews)
        TP_EXCLUDES(m_reqRespMap_mutex);
    /// One hub is asked; `src` is that of the library's own question, else 0. False when the tag is known,
    /// as that of a copy to one of several hubs is: nothing is changed then.
    [[nodiscard]] bool expectNew(const RequestInternal& request, HubClient* hub, int32_t src)
        TP_EXCLUDES(m_reqRespMap_mutex);
    /// A listed request is written again: its hub's answer is expected again.
    void expectAgain(const RequestInternal& request, HubClient* hub) TP_EXCLUDES(m_reqRespMap_mutex);
    /// Nobody will be asked, for now: the entry goes. The source of the library's own question, else 0.
    [[nodiscard]] int32_t takeBack(int64_t tag) TP_EXCLUDES(m_reqRespMap_mutex);

    // What is known of a tag; empty when it is not in flight.
    [[nodiscard]] std::optional<tivra::Commands> commandOf(int64_t tag) TP_EXCLUDES(m_reqRespMap_mutex);
    [[nodiscard]] std::shared_ptr<const std::vector<AltIndexInfo>> altIndexOf(int64_t tag)
        TP_EXCLUDES(m_reqRespMap_mutex);

    /// A hub has answered with a status, in a message of so many pairs. The last answer ends the entry. Empty
    /// when the tag is not in flight.
    [[nodiscard]] std::optional<CountedAnswer> answer(int64_t tag, const HubClient* from, int64_t status,
                                                      int pairCount) TP_EXCLUDES(m_reqRespMap_mutex);

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
    void clear() TP_EXCLUDES(m_reqRespMap_mutex);
    /// One line per entry, for whoever looks for a request that was in flight.
    void logEntries() TP_EXCLUDES(m_reqRespMap_mutex);

private:
    tp::Mutex m_reqRespMap_mutex{kLockReqRespMap};
    std::map<int64_t, reqResp> reqRespMap TP_GUARDED_BY(m_reqRespMap_mutex);
};

} // namespace tivra_internal
