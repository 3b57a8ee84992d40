#include "hub/handshake/Steps.h"

#include <tp/eprintf.h>

#include "hub/handshake/HandshakeContext.h"
#include "hub/handshake/PermissionAnswer.h"
#include "kvnparse/Exchange.h"
#include "receive/SystemSource.h"

namespace tivra_internal {

int BoxEntitlementsStep::ask() {
    return m_context.ask(GET_BOX_ENTITLEMENTS, "5026=%d|5022=ListSystemPermission", GET_BOX_ENTITLEMENTS);
}

bool BoxEntitlementsStep::take(const KVNAPI::Message& msg) {
    takeAnswer(msg);
    if (m_context.state.m_haveBoxEntitlements)
        return true;
    eprintf(EPF_CRIT, "Unable to successfully process box entitlements for HUB %s!",
            m_context.address.shown().c_str());
    m_context.port.suspendClient("Unable to successfully process box entitlements!");
    return false;
}

void BoxEntitlementsStep::takeAnswer(const KVNAPI::Message& msg) {
    m_context.noteAnswered(GET_BOX_ENTITLEMENTS);
    const PermissionAnswer answer(m_context.dictionary, msg);
    if (!answer.isReadable("process_box_entitlements"))
        return;
    const std::string address = m_context.address.shown();
    bool hasSystemSource = false;
    if (msg.permission != nullptr) {
        const int src = msg.permission->id;
        eprintf(EPF_DBUG, "%s: HubClient::process_box_entitlements: Adding src=%d; hub=%p", address.c_str(),
                src, static_cast<void*>(m_context.port.client()));
        m_context.sources.addBoxSource(src, m_context.port.client());
        hasSystemSource = src == kSystemSource;
    } else {
        eprintf(EPF_WARN, "No box entitlements for HUB %s", address.c_str());
    }
    answer.forEachFurther(msg, [&](int src) {
        eprintf(EPF_DBUG, "%s: HubClient::process_box_entitlements: Adding src=%ld; hub=%p", address.c_str(),
                long{src}, static_cast<void*>(m_context.port.client()));
        m_context.sources.addBoxSource(src, m_context.port.client());
        hasSystemSource = hasSystemSource || src == kSystemSource;
    });
    if (!answer.status.isPresent()) {
        eprintf(EPF_WARN,
                "%s: HubClient::process_box_entitlements: No status received from ListSystemPermission",
                address.c_str());
        return;
    }
    if (const long code = answer.status.integer(); code != 0)
        eprintf(EPF_WARN, "%s: HubClient::process_box_entitlements: rc=%ld (%s) from ListSystemPermission",
                address.c_str(), code, m_context.retCodeText(code));
    // The system source carries the heartbeat: it decides, not the status.
    if (hasSystemSource)
        m_context.state.m_haveBoxEntitlements = true;
    else
        eprintf(EPF_WARN, "HubClient::process_box_entitlements: HUB %s is not entitled for 922/1Cz",
                address.c_str());
}

} // namespace tivra_internal
