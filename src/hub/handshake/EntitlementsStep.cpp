#include "hub/handshake/Steps.h"

#include <tp/Clock.h>
#include <tp/eprintf.h>

#include "config/UserInfoImpl.h"
#include "hub/handshake/HandshakeContext.h"
#include "hub/handshake/PermissionAnswer.h"
#include "kvnparse/Exchange.h"
#include "receive/SystemSource.h"

namespace tivra_internal {

int EntitlementsStep::ask() {
    return m_context.ask(GET_ENTITLEMENTS, "5026=%d|5022=ListUserPermission", GET_ENTITLEMENTS);
}

bool EntitlementsStep::take(const KVNAPI::Message& msg) {
    takeAnswer(msg);
    if (m_context.state.m_haveEntitlements || !m_context.hubs.isNewestFirstHub(m_context.port.client()))
        return true;
    static constexpr const char* kReason = "Unable to successfully process entitlements!";
    eprintf(EPF_CRIT, "%s", kReason);
    m_context.port.suspendClient(kReason);
    return false;
}

void EntitlementsStep::takeAnswer(const KVNAPI::Message& msg) {
    m_context.noteAnswered(GET_ENTITLEMENTS);
    const PermissionAnswer answer(m_context.dictionary, msg);
    if (!answer.isReadable("process_entitlements"))
        return;
    // In a group the hub of a source that no box lists is looked for later.
    HubClient* const entHub = m_context.known.isAlone() ? m_context.port.client() : nullptr;
    const std::string& user = m_context.user.getUserName();
    bool hasSystemSource = false;
    int permsAdded = 0;
    if (msg.permission != nullptr) {
        const int src = msg.permission->id;
        if (m_context.sources.addUserSource(src, entHub))
            eprintf(EPF_DBUG, "HubClient::process_entitlements: src %d is entitled and available on box",
                    src);
        hasSystemSource = src == kSystemSource;
        ++permsAdded;
    } else {
        eprintf(EPF_WARN, "No entitlements for user %s", loggable(user).c_str());
    }
    answer.forEachFurther(msg, [&](int src) {
        if (m_context.sources.addUserSource(src, entHub))
            eprintf(EPF_DBUG, "HubClient::process_entitlements: src %ld is entitled and available on box",
                    long{src});
        hasSystemSource = hasSystemSource || src == kSystemSource;
        ++permsAdded;
    });
    if (!answer.status.isPresent()) {
        eprintf(EPF_WARN, "HubClient::process_entitlements: No status received from ListUserPermission");
        return;
    }
    if (const long code = answer.status.integer(); code != 0)
        eprintf(EPF_WARN, "HubClient::process_entitlements: rc=%ld (%s) from ListUserPermission", code,
                m_context.retCodeText(code));
    if (hasSystemSource)
        m_context.state.m_haveEntitlements = true;
    else
        eprintf(EPF_WARN, "HubClient::process_entitlements: User %s is not entitled for 922/1Cz",
                loggable(user).c_str());
    eprintf(EPF_DBUG, "HubClient::process_entitlements: pairCnt=%d; perms_added=%d; m_haveEntitlements=%d",
            msg.pairCount(), permsAdded, m_context.state.m_haveEntitlements);
}

void EntitlementsStep::awaitSiblings() {
    eprintf(EPF_DBUG, "Waiting get box perms from all other HUBs");
    Siblings before = Siblings::NotAwaited;
    if (m_siblings.compare_exchange_strong(before, Siblings::Awaited))
        m_context.state.m_waitTime = tp::Clock::monotonic();
}

void EntitlementsStep::siblingsAreReady() {
    Siblings before = Siblings::Awaited;
    m_siblings.compare_exchange_strong(before, Siblings::Ready);
}

// The other hubs have listed their sources; the user's can now be matched against them.
void EntitlementsStep::tick() {
    if (m_siblings != Siblings::Ready)
        return;
    m_context.port.setInitHBTime();
    m_context.state.m_beginTime += tp::Clock::monotonic() - m_context.state.m_waitTime;
    m_siblings = Siblings::NotAwaited;
    ask();
}

} // namespace tivra_internal
