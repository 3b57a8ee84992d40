#include "hub/handshake/NextStep.h"

namespace tivra_internal {

HandshakeStep nextHandshakeStep(const HandshakeSituation& situation, const HandshakeState& state,
                                const HubKnowledge& known) {
    const bool isAlone = known.isAlone();

    if (situation.loadsEnum && !situation.sessionHasEnum)
        return HandshakeStep::GetEnum;
    if (!state.m_conflationIntervalSet)
        return HandshakeStep::SetConflationInterval;
    if (!state.m_haveAdmin)
        return state.m_sentGetAdmin ? HandshakeStep::AwaitAdmin : HandshakeStep::GetAdmin;
    // Older hubs don't know the request; for them the flag stays clear.
    if (!state.m_conflationTypeSet && situation.hubVersion.isAbove(7, 3))
        return HandshakeStep::SetConflationType;
    // A client that isn't the first downloads only a version that the session doesn't have.
    if ((situation.isFirst && !known.m_haveDIC) || known.m_dowloadDIC)
        return HandshakeStep::GetDic;
    if (situation.isFirst && !known.m_aggChecked)
        return HandshakeStep::AggCheck;
    if (situation.behindManager && situation.isFirst && !known.m_haveAllPorts)
        return HandshakeStep::GetAllPorts;
    if (!known.split_processed && !isAlone)
        return HandshakeStep::GetSplit;
    if (!state.m_haveBoxEntitlements)
        return HandshakeStep::GetBoxEntitlements;
    // Once established, a first hub that comes back doesn't wait for a sibling that is lost.
    if (situation.isFirst && !state.m_haveEntitlements)
        return isAlone || situation.wasEstablished ? HandshakeStep::GetEntitlements
                                                   : HandshakeStep::AwaitSiblings;
    if (situation.isFirst && !state.m_havePorts && !isAlone)
        return HandshakeStep::GetPort;
    if (!state.m_haveHeartbeat && situation.wantsHeartbeat)
        return HandshakeStep::SubscribeHeartbeat;
    if (!state.m_haveHubStatus)
        return HandshakeStep::SubscribeHubStatus;
    return HandshakeStep::BecomeReady;
}

} // namespace tivra_internal
