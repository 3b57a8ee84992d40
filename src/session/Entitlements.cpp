// Where a source is served that was granted while the session runs: the question, and what the answer leads
// to.
#include "session/SessionImpl.h"

#include <tp/eprintf.h>

#include "config/ConnectionConfigImpl.h"
#include "config/HostConfigImpl.h"
#include "config/HostTable.h"
#include "dictionary/MetaTokenMap.h"
#include "hub/HubClient.h"
#include "hub/PortAnswer.h"
#include "kvnparse/Message.h"
#include "request/RequestInternal.h"

namespace tivra_internal {

void SessionImpl::addNewEntitlement(int src, const std::string& hostInfo) {
    if (hostInfo.empty())
        return;
    HostConfigImpl* host = m_hosts.find(hostInfo);
    if (host == nullptr) {
        const std::string local = HandleAccess::impl(getConnectionConfig()).getLocalIp(hostInfo);
        host = m_hosts.find(local);
        if (host == nullptr) {
            eprintf(EPF_WARN, "SessionImpl::addNewEntitlement: hostConfig(%s) not found!", local.c_str());
            eprintf(EPF_WARN, "SessionImpl::addNewEntitlement: hostConfig(%s) not found!", hostInfo.c_str());
        }
    }
    HubClient* hub = nullptr;
    if (host != nullptr) {
        hub = m_hubs.find(host->getIndex());
        if (hub == nullptr)
            eprintf(EPF_WARN, "SessionImpl:::addNewEntitlement hubClient not found for %s!",
                    hostInfo.c_str());
    }
    m_sources.addNewEntitlement(src, hub);
}

void SessionImpl::askForHubOf(int source) {
    const RequestImpl builder;
    auto request = std::make_unique<RequestInternal>(&builder);
    request->makePortQuestion(getNextTag(), source);
    sendPortQuestion(request, source);
}

void SessionImpl::sendPortQuestion(std::unique_ptr<RequestInternal>& request, int src) {
    if (!m_router.sendToHub(request, m_hubs.getFirstHub(), true, src))
        eprintf(EPF_WARN, "GetPort request not sent");
}

void SessionImpl::finishAddNewEntitlement(int src, KVNAPI::Message& msg, MetaTokenMap& dictionary) {
    const PortAnswer answer(dictionary, msg);
    if (!answer.host.isDefined()) {
        eprintf(EPF_CRIT, "SessionImpl::finishAddNewEntitlement: HOST.SERVER.IP not defined!");
        return;
    }
    if (!answer.port.isDefined()) {
        eprintf(EPF_CRIT, "SessionImpl::finishAddNewEntitlement: CLIENT.PORT not defined!");
        return;
    }
    // The first port decides.
    answer.walk(msg, [this, src](const std::string& host, int64_t port) {
        if (PortAnswer::isPort(port))
            addNewEntitlement(src, m_managers.m_isCMconnection
                                       ? hostOfGrantedPort(src, static_cast<uint16_t>(port))
                                       : HostTable::hostInfoOf(host, static_cast<std::size_t>(port)));
        else
            eprintf(EPF_WARN, "GetPort failed with port=%lld; dynamic add entitlement for src %d has failed",
                    static_cast<long long>(port), src);
        return false;
    });
}

} // namespace tivra_internal
