#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <request/Commands.h>

#include "receive/MessageStream.h"

namespace KVNAPI {
class Message;
class Token;
class TVPair;
} // namespace KVNAPI

namespace tivra {
class MessageEventHandler;
class Session;
} // namespace tivra

namespace tivra_internal {

class HubClient;
class MetaTokenMap;
struct AltIndexInfo;

/// A request that ends without an answer.
struct LostRequest {
    int64_t tag = 0;
    tivra::Commands command = tivra::SUBSCRIBE;
    int64_t status = 0; ///< that it ends with
};

/// What a read handler (and the message event it fills) may ask of the session. @thread user
class ReadHandlerSession {
public:
    virtual ~ReadHandlerSession() = default;

    [[nodiscard]] virtual tivra::Session& getSession() = 0;
    /// The application's handler at this moment, null when it has taken it back.
    [[nodiscard]] virtual tivra::MessageEventHandler* getMsgEventHandler() const = 0;
    /// The name of a return code, or "Unknown code"; valid until the session ends.
    [[nodiscard]] virtual const char* getRetCodeDesc(int code) const = 0;

    /// True when the tag in flight belongs to a query; `command` receives its command.
    [[nodiscard]] virtual bool isQueryCommand(int64_t tag, HubClient* hub, tivra::Commands& command) = 0;
    /// The alternate indexes that the request with this tag named; null when there are none.
    [[nodiscard]] virtual std::shared_ptr<const std::vector<AltIndexInfo>>
    getAlternateIndexForSubscription(int64_t tag) = 0;
    /// Decides whether one hub's status message for a tag is kept from the application.
    [[nodiscard]] virtual bool suppressResponse(int64_t tag, KVNAPI::Message& msg, KVNAPI::Token* statusTok,
                                                KVNAPI::TVPair* rcPair, MetaTokenMap* dictionary,
                                                HubClient* from) = 0;

    /// The next request whose answer was lost with the hub's connection and whose end is due on this thread;
    /// false when there is none. Without a hub: one whose hub has left the session.
    [[nodiscard]] virtual bool takeLostRequest(HubClient* hub, bool queueIsEmpty, LostRequest& lost) = 0;

    /// The application itself subscribes to the heartbeat symbol.
    [[nodiscard]] virtual bool isHBSubscribed() const = 0;
    [[nodiscard]] virtual bool isCMconnection() const = 0;
    /// The tag went to the default hub because not all cross-reference hubs are connected.
    [[nodiscard]] virtual bool isTagAwaitingXrefHubs(int64_t tag) = 0;

    /// One more (+1) or one fewer (-1) hub conflates just in time.
    virtual void addJitCount(int delta) = 0;

    [[nodiscard]] virtual bool isFirstHub(const HubClient* hub) const = 0;
    virtual void addNewEntitlement(int src, HubClient* hub) = 0;
    virtual void deleteEntitlement(int src, HubClient* hub) = 0;
    virtual void beginAddNewEntitlement(int src) = 0;

    /// Who takes the hub's messages; null for the session's message handler.
    [[nodiscard]] virtual std::unique_ptr<MessageStream> openStream(const MetaTokenMap&, const std::string&,
                                                                    const Queue&) {
        return nullptr;
    }
};

} // namespace tivra_internal
