#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string_view>
#include <vector>

#include <event/MessageEvent.h>
#include <request/Commands.h>
#include <tp/Clock.h>

#include "config/HandleAccess.h"
#include "kvnparse/Message.h"
#include "kvnparse/Parser.h"
#include "receive/AltIndexTable.h"
#include "receive/FrameHandler.h"
#include "receive/FrameTime.h"
#include "receive/MessageStream.h"
#include "receive/UserEventBase.h"

namespace tivra_internal {

class HostConfigImpl;
class HubClient;
class MessageEventImpl;
class MetaTokenMap;
class Queue;
class ReadHandlerHub;
class ReadHandlerSession;
class UserEventReactor;
struct LostRequest;

/// The decoder at the consumer end of one hub's queue: it parses each frame, keeps the library's housekeeping
/// to itself and hands the rest to the application. It owns its parser and the one message event that every
/// callback sees. Runs under the queue's reset mutex, on one user thread, or with inline delivery on the
/// hub's thread too.
class QueueReadHandler final : public UserEventBase, public FrameHandler, public FrameTime {
public:
    // Records of the system source.
    static constexpr const char* HEARTBEAT_SYM = ".UTC.TIME.DATE"; ///< the hub's clock, used as heartbeat
    static constexpr const char* HUB_STATUS_SYM = ".HUB.STATUS";   ///< the hub's drop and idle counters
    static constexpr const char* QERROR_SYM = "QERROR";            ///< query error
    static constexpr const char* JIT_SYM = ".JIT";                 ///< start or end of JIT conflation
    static constexpr const char* USER_ENT_SYM = ".USER.ENT.ALERT"; ///< change of the user's entitlements

    /// @param hostConfig  null for the dummy
    /// @param parser      bound to the hub's dictionary; null: one is made for the first frame
    QueueReadHandler(Queue* queue, ReadHandlerSession& session, const HostConfigImpl* hostConfig,
                     std::unique_ptr<KVNAPI::Parser> parser, ReadHandlerHub& hub, bool watchlistInUse);
    ~QueueReadHandler() override;

    /// Delivers one frame of the queue.
    void readableEvent(double curtime) override;
    [[nodiscard]] bool isStillReadable() const noexcept override;
    void readableTurn(double curtime, ServeTurn& turn) override;

    unsigned process_kvn_buffer(char* buf, unsigned long len, uint64_t* netMsgs) override;
    /// Classifies one message; true when the application has been called.
    bool process_message(KVNAPI::Message& msg);
    /// The connection is new: what the last one said about JIT conflation and idle time is void. The
    /// alternate indexes stay. @thread hub, under the queue's reset mutex
    void reset() override;

    /// Time of the last heartbeat on the monotonic clock, in seconds; 0 before the first. @thread any
    [[nodiscard]] double getHBTime() const noexcept { return m_HBTime.load(std::memory_order_relaxed); }
    void setHBTime();
    /// The hub's last idle count. @thread any
    [[nodiscard]] uint64_t getHubIdleCount() const noexcept {
        return m_idleCnt.load(std::memory_order_relaxed);
    }
    void setHubIdleCount(uint64_t count) noexcept { m_idleCnt.store(count, std::memory_order_relaxed); }

    [[nodiscard]] double readAt() const override;

    /// True when messages have gone out since the last time. @thread user, at the 100 ms tick
    bool calcStats(double curtime);
    /// The connection is lost: the stream hears of it after everything that has come. @thread hub
    void noteLoss() noexcept { m_losses.fetch_add(1, std::memory_order_relaxed); }
    /// Ends some of the requests whose answer was lost with the hub's connection. True when it has left some
    /// for the next time. @thread user, at the same tick
    bool endLostRequests();

    /// Whether numbers are decoded when they are asked for. Before the first frame.
    void setLazyValues(bool lazy) noexcept { m_lazyValues = lazy; }
    void setParser(std::unique_ptr<KVNAPI::Parser> parser) noexcept { kvnParser = std::move(parser); }
    [[nodiscard]] KVNAPI::Parser* getParser() const noexcept { return kvnParser.get(); }

    /// The hub conflates no more as far as the session is concerned. @thread any
    void endJitConflation();
    /// The reactor that serves this handler, null before its registration. @thread any
    void setUserEventReactor(UserEventReactor* reactor) noexcept { m_userEventReactor.store(reactor); }
    [[nodiscard]] UserEventReactor* getUserEventReactor() const noexcept { return m_userEventReactor.load(); }

private:
    using AltIndexList = std::vector<AltIndexInfo>;

    /// One message on its way through process_message. Status and tag are copies, since steps on the way
    /// rewrite and remove pairs.
    struct Incoming {
        KVNAPI::Message& msg;
        int64_t status = 0;
        int64_t tag = 0;
        bool hasStatus = false;
        bool hasTag = false;
        tivra::Commands command = tivra::SUBSCRIBE; ///< of the request that this answers
    };

    // QueueReadHandler.cpp
    [[nodiscard]] KVNAPI::Token* requireToken(const char* name) const;
    [[nodiscard]] bool ensureParser();
    [[nodiscard]] unsigned pullMessages(KVNAPI::bufref bytes, uint64_t* netMsgs);
    void readStatus(Incoming& in) const noexcept;
    void readTag(Incoming& in) const noexcept;
    void countAnsweredQuery(Incoming& in);
    [[nodiscard]] bool deliver(Incoming& in);
    void deliverToStream(const Incoming& in);
    /// Tells the stream that another connection begins, unless that has been told.
    void beginConnection();
    void reportLosses(uint32_t losses);
    [[nodiscard]] double heard() const;
    /// When the frame was read that is being delivered.
    [[nodiscard]] double readOrNow() const;

    // SystemRecords.cpp: each returns true when the record is not for the application.
    [[nodiscard]] bool consumeSystemRecord(KVNAPI::Message& msg);
    [[nodiscard]] bool consumeHeartbeat();
    void noteRefusal(const Incoming& in);
    void takeHubStatus(const KVNAPI::Message& msg);
    void reportEarlierLosses();
    /// @param sum  bytes that the hub has dropped since the connection began
    void takeHubDrops(uint64_t sum);
    void takeJit(const KVNAPI::Message& msg);
    void takeEntitlementAlert(const KVNAPI::Message& msg);

    // ResponseStatus.cpp: each returns false when the message is not for the application.
    [[nodiscard]] bool settleStatus(Incoming& in);
    [[nodiscard]] bool settleResponse(Incoming& in);
    void translateStatus(Incoming& in) noexcept;
    void rewriteStatus(Incoming& in, int64_t status) noexcept;

    // LostAnswers.cpp
    [[nodiscard]] bool endLostRequestsOfTurn();
    void endLostRequest(const LostRequest& lost, HubClient* hub);

    // AlternateIndexes.cpp
    [[nodiscard]] bool applyAlternateIndexes(Incoming& in);
    void takeIndexesOfSource(const Incoming& in, const AltIndexList& list);
    [[nodiscard]] bool applyRequestedIndexes(Incoming& in, const AltIndexList& list);
    [[nodiscard]] bool answerMatches(const Incoming& in, const AltIndexList& list) const;
    [[nodiscard]] bool isIndexOfSource(int source, const KVNAPI::Token* token) const;
    void rememberIndexes(Incoming& in, const AltIndexList& list);
    void liftIndexesOfSource(KVNAPI::Message& msg);
    void attachIndexes(Incoming& in);
    void removeKnownIndexes(KVNAPI::Message& msg, const AltIndexList& known) const;

    // Built with.
    std::atomic<UserEventReactor*> m_userEventReactor{nullptr};
    Queue* const m_responseQueue;
    ReadHandlerSession& m_session;
    ReadHandlerHub& m_hubClient;
    MetaTokenMap& MetaMap;
    const bool m_watchlistInUse;
    bool m_lazyValues = false;
    std::unique_ptr<KVNAPI::Parser> kvnParser;
    std::string_view m_body{}; ///< see StreamMessage::body
    KVNAPI::Message m_message; ///< the one being delivered, and then of no use until the next parse
    MessageEventImpl* m_event; ///< behind `msgEvent`
    HandlePtr<tivra::MessageEvent> msgEvent;
    // Null when the dictionary lacks them, which the bootstrap table rules out.
    KVNAPI::Token* const m_statusTok;
    KVNAPI::Token* const m_tagTok;
    const KVNAPI::Token* const m_hubDropTok;
    const KVNAPI::Token* const m_idleCntTok;
    const KVNAPI::Token* const m_conflationTok;

    // The stream in place of a message handler, or null, and what it has heard of the connection.
    const std::unique_ptr<MessageStream> m_stream;
    std::atomic<uint32_t> m_losses{0};
    uint32_t m_lossesReported = 0;
    uint32_t m_lossesBefore = 0;                   ///< of the connections before the one that is delivered
    double m_heardBefore = 0.0;                    ///< of the last of those connections; see heard()
    uint64_t m_hubDropsBefore = 0;                 ///< the hub's count when it was seen last
    double m_dropsToldAt = tp::Clock::monotonic(); ///< when that was
    bool m_isNewConnection = true;                 ///< and nothing of it has been delivered

    // What the hub has said about itself.
    std::atomic<int32_t> m_lastJitStatus{0};
    std::atomic<double> m_HBTime{0.0};
    std::atomic<uint64_t> m_idleCnt{0};

    // Alternate indexes.
    AltIndexTable m_altIndexes;
    std::map<int, std::vector<const KVNAPI::Token*>> SrcIdAltIdMap; ///< by source
    AltIndexList m_altids;                                          ///< of the present message alone
};

} // namespace tivra_internal
