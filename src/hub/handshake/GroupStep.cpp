#include "hub/handshake/Steps.h"

#include <tp/eprintf.h>

#include "config/HostTable.h"
#include "hub/PortAnswer.h"
#include "hub/handshake/HandshakeContext.h"
#include "receive/SystemSource.h"

namespace tivra_internal {

namespace {

/// A lone hub's answer to the check is shorter than this.
constexpr int kMinGroupPairs = 5;

} // namespace

int GroupStep::ask() {
    return m_context.ask(AGG_CHECK, "5026=%d|5022=GetPort|4=%d", AGG_CHECK, kSystemSource);
}

bool GroupStep::take(const KVNAPI::Message& msg) {
    takeAnswer(msg);
    if (m_context.known.m_aggChecked || m_context.port.isSuspended())
        return m_context.known.m_aggChecked;
    static constexpr const char* kReason = "Unable to successfully process AGG check!";
    eprintf(EPF_CRIT, "%s", kReason);
    m_context.port.suspendClient(kReason);
    return false;
}

void GroupStep::takeAnswer(const KVNAPI::Message& msg) {
    const PortAnswer answer(m_context.dictionary, msg);
    if (!answer.isReadable("process_aggCheck"))
        return;
    if (const long code = answer.status.integer(); code != 0) {
        eprintf(EPF_WARN, "HubClient::process_aggCheck: rc=%ld (%s) from GetPort for src=%d", code,
                m_context.retCodeText(code), kSystemSource);
        return;
    }
    if (m_context.managers.isCMconnection()) {
        // The manager's hubs name their group in answer to GetAllPorts; these are candidates for cross
        // references.
        answer.forEachPort(
            msg, [this](const std::string&, uint16_t port) { m_context.managers.setXRefPort(port); });
        m_context.known.m_aggChecked = true;
        return;
    }
    m_otherHubs.clear();
    bool isMember = false;
    bool portSeen = false;
    const std::string ownAddress = m_context.address.own();
    answer.forEachPort(msg, [&](const std::string& host, uint16_t port) {
        portSeen = true;
        if (!host.empty() && port == m_context.address.port() && host == ownAddress) {
            isMember = true;
            return;
        }
        if (host.empty())
            return;
        m_otherHubs.push_back(HostTable::hostInfoOf(host, port));
        eprintf(EPF_DBUG, "HubClient::process_aggCheck: Adding (%s)", m_otherHubs.back().c_str());
    });
    const bool isSingleInstance = isMember && msg.pairCount() > 0 && msg.pairCount() < kMinGroupPairs;
    const std::string response = describe(msg);
    eprintf(EPF_DBUG, "process_aggCheck: response=%s", response.c_str());
    if (!isMember && portSeen) {
        suspendForUnknownAddress(response);
    } else {
        if (isSingleInstance)
            m_context.known.m_kind = HubKind::SingleInstance;
        else
            m_context.known.m_kind = isMember ? HubKind::Member : HubKind::Aggregating;
        joinGroup();
    }
    m_context.known.m_aggChecked = true;
}

// The hub lists members, and none of them is what was dialled.
void GroupStep::suspendForUnknownAddress(const std::string& response) {
    static constexpr const char* kReason =
        "It appears client is using NAT to reach HUB, but did not properly configure NAT pair(s) to API.";
    eprintf(EPF_WARN,
            "HubClient::process_aggCheck: dialled %s:%d, not among the hosts and ports of the answer: %s",
            m_context.address.dialled().c_str(), m_context.address.port(), response.c_str());
    eprintf(EPF_WARN, "%s", kReason);
    m_context.known.m_kind = HubKind::Member;
    m_context.port.suspendClient(kReason);
}

void GroupStep::joinGroup() {
    switch (m_context.known.m_kind.load()) {
    case HubKind::Aggregating:
        eprintf(EPF_INFO, "This client is connected to a AGG");
        break;
    case HubKind::SingleInstance:
        eprintf(EPF_INFO, "This client is connected to a single-instance HUB");
        break;
    case HubKind::Member:
        for (const std::string& other : m_otherHubs)
            if (m_context.options.host != nullptr)
                m_context.sources.createHubForHost(other, *m_context.options.host, "process_aggCheck");
        eprintf(EPF_INFO, "This client is connected to a %zu-way HUB", m_otherHubs.size() + 1);
        break;
    }
}

} // namespace tivra_internal
