#include "hub/ConversationSteps.h"

namespace tivra_internal {

ConversationStep nextConversationStep(const ConversationContext& context, const ConversationState& state,
                                      const HubKnowledge& known) {
    const bool isAlone = known.m_isAgg || known.m_isSingleInstanceHUB;

    if (context.loadsEnum && !context.sessionHasEnum)
        return ConversationStep::GetEnum;
    if (!state.m_conflationIntervalSet)
        return ConversationStep::SetConflationInterval;
    if (!state.m_haveAdmin)
        return state.m_sentGetAdmin ? ConversationStep::AwaitAdmin : ConversationStep::GetAdmin;
    // Older hubs don't know the request; for them the flag stays clear.
    if (!state.m_conflationTypeSet && context.hubVersion.isAbove(7, 3))
        return ConversationStep::SetConflationType;
    // A client that isn't the first downloads only a version that the session doesn't have.
    if ((context.isFirst && !known.m_haveDIC) || known.m_dowloadDIC)
        return ConversationStep::GetDic;
    if (context.isFirst && !known.m_aggChecked)
        return ConversationStep::AggCheck;
    if (context.behindManager && context.isFirst && !known.m_haveAllPorts)
        return ConversationStep::GetAllPorts;
    if (!known.split_processed && !isAlone)
        return ConversationStep::GetSplit;
    if (!state.m_haveBoxEntitlements)
        return ConversationStep::GetBoxEntitlements;
    // Once established, a first hub that comes back doesn't wait for a sibling that is lost.
    if (context.isFirst && !state.m_haveEntitlements)
        return isAlone || context.wasEstablished ? ConversationStep::GetEntitlements
                                                 : ConversationStep::AwaitSiblings;
    if (context.isFirst && !state.m_havePorts && !isAlone)
        return ConversationStep::GetPort;
    if (!state.m_haveHeartbeat && context.wantsHeartbeat)
        return ConversationStep::SubscribeHeartbeat;
    if (!state.m_haveHubStatus)
        return ConversationStep::SubscribeHubStatus;
    return ConversationStep::BecomeReady;
}

} // namespace tivra_internal
