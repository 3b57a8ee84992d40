#include "hub/handshake/Steps.h"

#include <tp/eprintf.h>

#include "config/HostTable.h"
#include "hub/ConnectionManagers.h"
#include "hub/PortAnswer.h"
#include "hub/handshake/HandshakeContext.h"

namespace tivra_internal {

namespace {

/// A source that has no hub of its own; nothing to warn of.
constexpr long kNoPortForSource = -46;

} // namespace

bool PortsStep::ask() {
    if (!m_context.state.m_startedPorts) {
        m_context.state.m_src_in_progress = -1;
        m_context.state.m_startedPorts = true;
    }
    const SessionSources::PortCursor next =
        m_context.sources.nextSourceWithoutHub(m_context.state.m_src_in_progress, m_context.port.client());
    m_context.state.m_src_in_progress = next.source;
    if (next.source < 0) {
        m_context.state.m_havePorts = true;
        eprintf(EPF_DBUG, "Finished finding ports for all user entitled sources not entitled on the box");
        return false;
    }
    m_context.ask(GET_PORT, "5026=%d|5022=GetPort|4=%d", GET_PORT, next.source);
    if (next.last)
        m_context.state.m_havePorts = true;
    return true;
}

// One source after the other; the answer to each request asks for the next.
bool PortsStep::take(const KVNAPI::Message& msg) {
    takeAnswer(msg);
    if (!m_context.hubs.isNewestFirstHub(m_context.port.client()) || m_context.state.m_havePorts ||
        m_context.state.m_src_in_progress < 0)
        return true;
    return !ask();
}

void PortsStep::takeAnswer(const KVNAPI::Message& msg) {
    const int src = m_context.state.m_src_in_progress;
    if (src < 0)
        return;
    const PortAnswer answer(m_context.dictionary, msg);
    if (!answer.isReadable("process_port"))
        return;
    if (const long code = answer.status.integer(); code != 0) {
        m_context.sources.assignSource(src, m_context.port.client());
        if (code != kNoPortForSource)
            eprintf(EPF_WARN, "HubClient::process_port: rc=%ld (%s) from GetPort for src=%d", code,
                    m_context.retCodeText(code), src);
        return;
    }
    int portsAdded = 0;
    const std::string ownAddress = m_context.address.own();
    answer.forEachPort(msg, [&](const std::string& host, uint16_t port) {
        if (!host.empty() && port == m_context.address.port() && host == ownAddress) {
            m_context.sources.assignSource(src, m_context.port.client());
            ++portsAdded;
        } else if (assignToMember(src, memberOf(src, host, port))) {
            ++portsAdded;
        }
        eprintf(EPF_DBUG, "HubClient::process_port: src=%d; port=%d", src, port);
    });
    eprintf(EPF_DBUG, "HubClient::process_port: pairCnt=%d; src=%d, ports_added=%d", msg.pairCount(), src,
            portsAdded);
}

// Behind a connection manager the port alone names the member, since the manager chooses its host.
std::string PortsStep::memberOf(int src, const std::string& host, uint16_t port) const {
    if (!m_context.managers.isCMconnection())
        return HostTable::hostInfoOf(host, port);
    const ConnectionManagers& managers = m_context.managers.getConnectionManagers();
    std::string addr = managers.hubOfPort(port);
    if (addr.empty()) {
        eprintf(EPF_WARN,
                "HubClient::process_port: port %d not found in the portHubMap! So assign to HubClient of "
                "different port",
                int{port});
        if (managers.firstHub(port, addr))
            eprintf(EPF_WARN, "HubClient::process_port:  changing the port for src=%d; new port=%d", src,
                    int{port});
    }
    return HostTable::hostInfoOf(addr, port);
}

bool PortsStep::assignToMember(int src, const std::string& host) {
    switch (m_context.sources.assignSourceToHost(src, host)) {
    case SessionSources::HubLookup::Found:
        return true;
    case SessionSources::HubLookup::NoHostConfig:
        eprintf(EPF_WARN, "HubClient::process_port: hostConfig(%s) not found!", host.c_str());
        return false;
    case SessionSources::HubLookup::NoClient:
        eprintf(EPF_WARN, "HubClient::process_port: hubClient not found for %s!", host.c_str());
        return false;
    }
    return false;
}

} // namespace tivra_internal
