#include "hub/handshake/Steps.h"

#include <tp/eprintf.h>

#include "hub/handshake/HandshakeContext.h"
#include "receive/QueueReadHandler.h"

namespace tivra_internal {

int SubscriptionsStep::askHeartbeat() {
    if (m_context.options.readTimeout == 0)
        return 1;
    return m_context.ask(GET_STATUS, "5026=%d|5022=Subscribe|4=922|5=%s", GET_STATUS,
                         QueueReadHandler::HEARTBEAT_SYM);
}

void SubscriptionsStep::takeHeartbeat(const KVNAPI::Message& msg) {
    const MessageField status = m_context.field(msg, "ENUM.QUERY.STATUS");
    const std::string address = m_context.address.dialled();
    if (!status.isDefined()) {
        eprintf(EPF_WARN, "HubClient::process_status: ENUM.QUERY.STATUS not defined!");
    } else if (!status.isPresent()) {
        eprintf(EPF_WARN, "HubClient::process_status: No status received from Subscribe to heartbeats");
    } else if (const long code = status.integer(); code != 0) {
        eprintf(EPF_WARN, "Subscribe to heartbeats failed on %s:%d with return code = %ld: %s",
                address.c_str(), m_context.address.port(), code, m_context.retCodeText(code));
    } else {
        eprintf(EPF_INFO, "API Successfully processed subscribed for heartbeats for %s:%d", address.c_str(),
                m_context.address.port());
        m_context.state.m_haveHeartbeat = true;
        m_context.port.heartbeatSubscribed();
        return;
    }
    countRefusal(m_context.state.m_heartbeatRefusals);
}

int SubscriptionsStep::askHubStatus() {
    return m_context.ask(GET_HUBSTATUS, "5026=%d|5022=Subscribe|4=922|5=%s", GET_HUBSTATUS,
                         QueueReadHandler::HUB_STATUS_SYM);
}

void SubscriptionsStep::takeHubStatus(const KVNAPI::Message& msg) {
    const MessageField status = m_context.field(msg, "ENUM.QUERY.STATUS");
    const std::string address = m_context.address.dialled();
    if (!status.isDefined()) {
        eprintf(EPF_WARN, "HubClient::process_hubStatus: ENUM.QUERY.STATUS not defined!");
    } else if (!status.isPresent()) {
        eprintf(EPF_WARN, "HubClient::process_hubStatus: No status received from Subscribe to %s",
                QueueReadHandler::HUB_STATUS_SYM);
    } else if (const long code = status.integer(); code != 0) {
        eprintf(EPF_WARN, "Subscribe to %s failed on %s:%d with return code = %ld: %s",
                QueueReadHandler::HUB_STATUS_SYM, address.c_str(), m_context.address.port(), code,
                m_context.retCodeText(code));
    } else {
        eprintf(EPF_DBUG, "API Successfully subscribed to %s for %s:%d", QueueReadHandler::HUB_STATUS_SYM,
                address.c_str(), m_context.address.port());
        m_context.state.m_haveHubStatus = true;
        return;
    }
    countRefusal(m_context.state.m_hubStatusRefusals);
}

// A hub that refuses for good would be asked for ever; the close makes it a failed dial, which is limited.
void SubscriptionsStep::countRefusal(long& refusals) {
    if (++refusals > m_context.options.connectionRetryLimit)
        m_context.port.closeConnection();
}

} // namespace tivra_internal
