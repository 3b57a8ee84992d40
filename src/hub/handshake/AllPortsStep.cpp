#include "hub/handshake/Steps.h"

#include <tp/eprintf.h>

#include "config/HostTable.h"
#include "hub/ConnectionManagers.h"
#include "hub/PortAnswer.h"
#include "hub/handshake/HandshakeContext.h"

namespace tivra_internal {

int AllPortsStep::ask() {
    return m_context.ask(GET_ALLPORTS, "5026=%d|5022=GetAllPorts", GET_ALLPORTS);
}

void AllPortsStep::take(const KVNAPI::Message& msg) {
    const PortAnswer answer(m_context.dictionary, msg);
    if (!answer.isReadable("process_allPorts", false))
        return;
    m_context.known.m_haveAllPorts = true;
    if (const long code = answer.status.integer(); code != 0) {
        m_context.known.m_kind = HubKind::SingleInstance;
        m_context.managers.removeXRefPort(m_context.address.port());
        eprintf(EPF_WARN, "HubClient::process_allPorts: rc=%ld (%s) from GetAllPort ", code,
                m_context.retCodeText(code));
        return;
    }
    std::set<uint16_t> others;
    bool isMember = false;
    answer.forEachPort(msg, [&](const std::string&, uint16_t port) {
        if (port == m_context.address.port())
            isMember = true;
        else
            others.insert(port);
    });
    if (isMember || others.empty())
        m_context.managers.removeXRefPort(m_context.address.port());
    if (others.empty()) {
        m_context.known.m_kind = HubKind::SingleInstance;
        eprintf(EPF_INFO, "process_allPorts:CM connection success - portList is empty, SingleInstance HUB\n");
        return;
    }
    // A hub that serves no data port itself was only a door.
    if (!isMember)
        m_context.hubs.dropFirstHubLater(m_context.port.client());
    createHubsOfManager(others);
}

void AllPortsStep::createHubsOfManager(const std::set<uint16_t>& ports) {
    ConnectionManagers& managers = m_context.managers.getConnectionManagers();
    const std::string manager = managers.managerAddr();
    if (manager.empty() || m_context.options.host == nullptr) {
        eprintf(EPF_WARN, "HubClient::process_allPorts: no connection manager to ask for the other HUBs");
        return;
    }
    for (const uint16_t port : ports) {
        m_context.managers.removeXRefPort(port);
        if (!managers.hubOfPort(port).empty()) {
            eprintf(EPF_WARN,
                    "process_allPorts:Port already exist in portHubMap, Ports should be different for HUB "
                    "types %d\n",
                    int{port});
            m_context.port.suspendClient("HUB already created, Ports should be different for HUB types ");
            return;
        }
        const std::string host = HostTable::hostInfoOf(manager, port);
        eprintf(EPF_INFO, "process_allPorts: hostString=%s\n", host.c_str());
        if (!m_context.sources.createHubForHost(host, *m_context.options.host, "process_allPorts")) {
            eprintf(EPF_WARN,
                    "process_allPorts:HUB client alread created;  for this port shoud not happen.  "
                    "hostString=%s\n",
                    host.c_str());
            m_context.port.suspendClient("HUB already created - abort connection ");
            return;
        }
    }
}

} // namespace tivra_internal
