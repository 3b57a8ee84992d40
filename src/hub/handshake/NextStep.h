#pragma once

#include "hub/HubVersion.h"
#include "hub/handshake/HandshakeState.h"

namespace tivra_internal {

/// What a client does on a response of its hub, in the order in which the steps are tried.
enum class HandshakeStep {
    GetEnum,
    SetConflationInterval,
    AwaitAdmin, ///< the administration data has been asked for: nothing to do
    GetAdmin,
    SetConflationType,
    GetDic,
    AggCheck,
    GetAllPorts,
    GetSplit,
    GetBoxEntitlements,
    GetEntitlements,
    AwaitSiblings, ///< the user's sources are asked for once all other hubs have listed theirs
    GetPort,
    SubscribeHeartbeat,
    SubscribeHubStatus,
    BecomeReady
};

/// What the choice of the next step needs to know besides the client's own state.
struct HandshakeSituation {
    bool loadsEnum = false; ///< this is the session's `firstHubClient`
    bool sessionHasEnum = false;
    bool isFirst = false;        ///< this is the newest first hub
    bool wasEstablished = false; ///< the session has been established since its last reset
    bool wantsHeartbeat = false;
    HubVersion hubVersion;
    bool behindManager = false; ///< the session's hubs come from a connection manager
};

/// The first step whose condition holds: each costs one exchange with the hub, whose response asks again.
[[nodiscard]] HandshakeStep nextHandshakeStep(const HandshakeSituation& situation,
                                              const HandshakeState& state, const HubKnowledge& known);

} // namespace tivra_internal
