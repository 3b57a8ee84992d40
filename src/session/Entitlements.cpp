// Sources that are granted to the user or withdrawn while the session runs.
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
namespace {

constexpr int kMaxSource = 65535;

} // namespace

void SessionImpl::addNewEntitlement(int src, HubClient* hub) {
    if (hub == nullptr) {
        eprintf(EPF_WARN, "No HubClient, so new entitlement for src %d cannot be added", src);
        return;
    }
    if (src < 1 || src > kMaxSource || !m_entitled.add(src, hub))
        return;
    m_hubStatus.addSource(hub, src);
    m_routes.assign(src, hub);
    insertSessionEvent(tivra::SessionEvent::TIVRA_SESSION_SOURCE_ADDED, "", src, 0);
    eprintf(EPF_DBUG, "Entitlement for src %d added to HUB(%s)", src, hub->getHubAddr().c_str());
}

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
    addNewEntitlement(src, hub);
}

void SessionImpl::deleteEntitlement(int src, HubClient* hub) {
    HubClient* const serving = m_routes.find(src);
    const bool counts = serving != nullptr ? serving == hub : m_hubs.getFirstHub() == hub;
    if (!counts)
        return;
    // The route stays: a request for the withdrawn source still gets that hub's answer.
    const bool wasEntitled = m_entitled.remove(src);
    m_hubStatus.removeSource(hub, src);
    if (wasEntitled)
        insertSessionEvent(tivra::SessionEvent::TIVRA_SESSION_SOURCE_REMOVED, "", src, 0);
    else
        eprintf(EPF_DBUG,
                "deleteEntitlement: src %d was not entitled so not sending "
                "SessionEvent::TIVRA_SESSION_SOURCE_REMOVED",
                src);
}

void SessionImpl::beginAddNewEntitlement(int src) {
    if (src >= kFirstNewsSource) {
        eprintf(EPF_DBUG, "Ignore news src %d", src);
        return;
    }
    if (HubClient* const serving = m_routes.find(src)) {
        addNewEntitlement(src, serving);
        return;
    }
    if (!dynEntMap.insert(src))
        return; // asked already; one question per source is enough
    const RequestImpl builder;
    auto request = std::make_unique<RequestInternal>(&builder);
    request->makePortQuestion(getNextTag(), src);
    sendPortQuestion(request, src);
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
