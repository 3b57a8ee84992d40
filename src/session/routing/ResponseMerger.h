#pragma once

#include <cstdint>

#include <request/Commands.h>

#include "session/LockedSet.h"

namespace KVNAPI {
class Message;
class Token;
class TVPair;
} // namespace KVNAPI

namespace tivra_internal {

class HubClient;
class LostRequests;
class MergerSession;
class MetaTokenMap;
class ResponseBook;
class Watchlist;
struct LostRequest;

/// Makes one answer of many hubs' answers to one tag, and an end of those that a lost connection leaves out:
/// what is listed comes back with a replay, the rest ends. @thread any, unless a line says otherwise
class ResponseMerger {
public:
    /// What it reads and writes; all borrowed.
    struct Tables {
        ResponseBook& responses;
        LostRequests& lost;
        const Watchlist& watchlist;
    };

    ResponseMerger(MergerSession& session, const Tables& tables) : m_session(session), m_tables(tables) {}

    // --- what comes from a hub; @thread user ---
    /// True when the tag in flight belongs to a query; `command` receives its command.
    [[nodiscard]] bool isQueryCommand(int64_t tag, const HubClient* hub, tivra::Commands& command);
    /// Decides whether one hub's status message for a tag is kept from the application.
    [[nodiscard]] bool suppressResponse(int64_t tag, KVNAPI::Message& msg, const KVNAPI::Token* statusTok,
                                        KVNAPI::TVPair* rcPair, MetaTokenMap& dictionary, HubClient* from);
    /// The default hub answers in the place of hubs that are missing.
    [[nodiscard]] bool isAwaitingXrefHubs(int64_t tag) const { return m_reqTagLst.contains(tag); }
    void noteSentWithoutXrefHubs(int64_t tag) { m_reqTagLst.insert(tag); }

    // --- what doesn't come any more ---
    /// The hub's connection is gone. @thread hub
    void endOutstanding(HubClient* client);
    /// One request can't be written to the hub. @thread hub
    void loseRequest(int64_t tag, HubClient* client);
    /// The next one whose end is due, in the name of this hub; see ReadHandlerSession. @thread user
    [[nodiscard]] bool takeLostRequest(HubClient* hub, bool queueIsEmpty, LostRequest& lost);
    /// All hubs go. What isn't queued again ends on the side that comes next; a stop ends everything without
    /// a word. @thread master
    void abandonResponses(bool isStop);

private:
    [[nodiscard]] bool isReplayed(int64_t tag, const HubClient& client);

    MergerSession& m_session;
    const Tables m_tables;
    /// Tags that the default hub answers in the place of hubs that are missing.
    LockedSet<int64_t> m_reqTagLst;
};

} // namespace tivra_internal
