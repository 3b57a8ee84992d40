// The sources that a hub carries and the sources that the user may see.
#include "hub/HubClient.h"

#include <tp/Clock.h>
#include <tp/eprintf.h>

#include "config/UserInfoImpl.h"
#include "hub/HubSession.h"
#include "hub/MessageReading.h"
#include "kvnparse/Exchange.h"
#include "receive/SystemSource.h"

namespace tivra_internal {

namespace {

/// No more sources are taken from one answer.
constexpr int kMaxSources = 100'000;

/// The permissions of an answer: the first stands in the message's header, the others before the status.
struct PermissionAnswer {
    MessageField permission;
    MessageField status;

    PermissionAnswer(const KVNAPI::DataMap& dictionary, const KVNAPI::Message& msg)
        : permission(dictionary, msg, "PERMISSION"), status(dictionary, msg, "ENUM.QUERY.STATUS") {}

    [[nodiscard]] bool isReadable(const char* operation) const {
        if (!permission.isDefined())
            eprintf(EPF_WARN, "HubClient::%s: PERMISSION not defined!", operation);
        else if (!status.isDefined())
            eprintf(EPF_WARN, "HubClient::%s: ENUM.QUERY.STATUS not defined!", operation);
        return permission.isDefined() && status.isDefined();
    }

    /// Calls `visit(source)` for the sources among the pairs, up to the status.
    template<class Visit>
    void forEachFurther(const KVNAPI::Message& msg, const Visit& visit) const {
        for (int i = 0; i < msg.pairCount() && i < kMaxSources && !status.isIn(*msg.pair(i)); ++i) {
            if (!permission.isIn(*msg.pair(i)))
                continue;
            const int64_t source = integerOf(*msg.pair(i));
            if (source >= INT32_MIN && source <= INT32_MAX)
                visit(static_cast<int>(source));
        }
    }
};

} // namespace

int HubClient::getBoxEntitlements() {
    return sendStartUpRequest(GET_BOX_ENTITLEMENTS, "5026=%d|5022=ListSystemPermission",
                              GET_BOX_ENTITLEMENTS);
}

int HubClient::getEntitlements() {
    return sendStartUpRequest(GET_ENTITLEMENTS, "5026=%d|5022=ListUserPermission", GET_ENTITLEMENTS);
}

void HubClient::process_box_entitlements(KVNAPI::Message& msg) {
    noteAnswered(GET_BOX_ENTITLEMENTS);
    const PermissionAnswer answer(m_dicMetaMap, msg);
    if (!answer.isReadable("process_box_entitlements"))
        return;
    const std::string address = getHubAddr();
    bool hasSystemSource = false;
    if (msg.permission != nullptr) {
        const int src = msg.permission->id;
        eprintf(EPF_DBUG, "%s: HubClient::process_box_entitlements: Adding src=%d; hub=%p", address.c_str(),
                src, static_cast<void*>(this));
        m_session.addBoxSource(src, this);
        hasSystemSource = src == SYSTEM_SOURCE;
    } else {
        eprintf(EPF_WARN, "No box entitlements for HUB %s", address.c_str());
    }
    answer.forEachFurther(msg, [&](int src) {
        eprintf(EPF_DBUG, "%s: HubClient::process_box_entitlements: Adding src=%ld; hub=%p", address.c_str(),
                long{src}, static_cast<void*>(this));
        m_session.addBoxSource(src, this);
        hasSystemSource = hasSystemSource || src == SYSTEM_SOURCE;
    });
    if (!answer.status.isPresent()) {
        eprintf(EPF_WARN,
                "%s: HubClient::process_box_entitlements: No status received from ListSystemPermission",
                address.c_str());
        return;
    }
    if (const long code = answer.status.integer(); code != 0)
        eprintf(EPF_WARN, "%s: HubClient::process_box_entitlements: rc=%ld (%s) from ListSystemPermission",
                address.c_str(), code, retCodeText(code));
    // The system source carries the heartbeat: it decides, not the status.
    if (hasSystemSource)
        m_step.m_haveBoxEntitlements = true;
    else
        eprintf(EPF_WARN, "HubClient::process_box_entitlements: HUB %s is not entitled for 922/1Cz",
                address.c_str());
}

void HubClient::process_entitlements(KVNAPI::Message& msg) {
    noteAnswered(GET_ENTITLEMENTS);
    const PermissionAnswer answer(m_dicMetaMap, msg);
    if (!answer.isReadable("process_entitlements"))
        return;
    // In a group the hub of a source that no box lists is looked for later.
    HubClient* const entHub = m_known.m_isAgg || m_known.m_isSingleInstanceHUB ? this : nullptr;
    const std::string& user = m_primaryUser.getUserName();
    bool hasSystemSource = false;
    int permsAdded = 0;
    if (msg.permission != nullptr) {
        const int src = msg.permission->id;
        if (m_session.addUserSource(src, entHub))
            eprintf(EPF_DBUG, "HubClient::process_entitlements: src %d is entitled and available on box",
                    src);
        hasSystemSource = src == SYSTEM_SOURCE;
        ++permsAdded;
    } else {
        eprintf(EPF_WARN, "No entitlements for user %s", loggable(user).c_str());
    }
    answer.forEachFurther(msg, [&](int src) {
        if (m_session.addUserSource(src, entHub))
            eprintf(EPF_DBUG, "HubClient::process_entitlements: src %ld is entitled and available on box",
                    long{src});
        hasSystemSource = hasSystemSource || src == SYSTEM_SOURCE;
        ++permsAdded;
    });
    if (!answer.status.isPresent()) {
        eprintf(EPF_WARN, "HubClient::process_entitlements: No status received from ListUserPermission");
        return;
    }
    if (const long code = answer.status.integer(); code != 0)
        eprintf(EPF_WARN, "HubClient::process_entitlements: rc=%ld (%s) from ListUserPermission", code,
                retCodeText(code));
    if (hasSystemSource)
        m_step.m_haveEntitlements = true;
    else
        eprintf(EPF_WARN, "HubClient::process_entitlements: User %s is not entitled for 922/1Cz",
                loggable(user).c_str());
    eprintf(EPF_DBUG, "HubClient::process_entitlements: pairCnt=%d; perms_added=%d; m_haveEntitlements=%d",
            msg.pairCount(), permsAdded, m_step.m_haveEntitlements);
}

// The other hubs have told their sources; the user's can now be matched against them.
void HubClient::continueEntitlements() {
    if (!waitForAllHubsToGetBoxPerms)
        return;
    setInitHBTime();
    m_step.m_beginTime += tp::Clock::monotonic() - m_step.m_waitTime;
    waitForAllHubsToGetBoxPerms = false;
    getEntitlements();
}

} // namespace tivra_internal
