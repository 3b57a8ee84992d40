#pragma once

#include <cstdint>

#include "dictionary/MetaTokenMap.h"
#include "hub/HubAddress.h"
#include "hub/HubClientCommands.h"
#include "hub/HubClientOptions.h"
#include "hub/HubSession.h"
#include "hub/MessageReading.h"
#include "hub/handshake/HandshakePort.h"
#include "hub/handshake/HandshakeState.h"

namespace tivra_internal {

class UserInfoImpl;

/// What the steps of one handshake share: whom they may ask, how far they have come, and what they have
/// learnt about the hub. @thread hub
class HandshakeContext {
public:
    HandshakeContext(HandshakePort& connection, HubSession& session, UserInfoImpl& primaryUser,
                     const HubAddress& hubAddress, MetaTokenMap& dicMetaMap, const HubClientOptions& given)
        : port(connection)
        , standing(session)
        , hubs(session)
        , managers(session)
        , dictionaries(session)
        , sources(session)
        , user(primaryUser)
        , address(hubAddress)
        , dictionary(dicMetaMap)
        , options(given) {}
    HandshakeContext(const HandshakeContext&) = delete;
    HandshakeContext& operator=(const HandshakeContext&) = delete;

    /// Sends the request of a step and notes that the answer to its tag is still out. 1 when it has been
    /// sent.
    int ask(int tag, const char* format, ...) __attribute__((format(printf, 3, 4)));
    [[nodiscard]] bool isOutstanding(int tag) const { return (state.m_outstandingTags >> tag & 1U) != 0; }
    void noteAnswered(int tag) { state.m_outstandingTags &= ~(1U << tag); }

    [[nodiscard]] const char* retCodeText(int64_t code) const;
    [[nodiscard]] MessageField field(const KVNAPI::Message& msg, const char* name) const {
        return {dictionary, msg, name};
    }

    HandshakePort& port;
    SessionStanding& standing;
    SessionHubs& hubs;
    SessionManagers& managers;
    SessionDictionaries& dictionaries;
    SessionSources& sources;
    UserInfoImpl& user;
    const HubAddress& address;
    MetaTokenMap& dictionary;
    const HubClientOptions& options;

    HandshakeState state;
    HubKnowledge known;
};

} // namespace tivra_internal
