#include "session/sources/SourceRegistry.h"

#include <tp/eprintf.h>

#include "hub/HubClient.h"
#include "session/SessionEventQueue.h"
#include "session/routing/RoutingTarget.h"
#include "session/sources/SourceSession.h"

namespace tivra_internal {

SourceRegistry::SourceRegistry(SourceSession& session, SessionEventQueue& events)
    : m_session(session), m_events(events), m_hubStatus(events) {}

bool SourceRegistry::addUserSource(int src, HubClient* entHub) {
    bool had = false;
    HubClient* const serving = m_routes.addUserSource(src, entHub, had);
    // Only a source with a hub counts as entitled; the others are looked for first.
    if (had && serving != nullptr)
        m_entitled.set(src, serving);
    return had;
}

void SourceRegistry::addNewEntitlement(int src, HubClient* hub) {
    if (hub == nullptr) {
        eprintf(EPF_WARN, "No HubClient, so new entitlement for src %d cannot be added", src);
        return;
    }
    if (src < 1 || src > kLastSource || !m_entitled.add(src, hub))
        return;
    if (!m_routes.assign(src, hub)) {
        m_entitled.remove(src);
        return;
    }
    m_hubStatus.addSource(hub, src);
    m_events.pushSource(tivra::SessionEvent::TIVRA_SESSION_SOURCE_ADDED, src);
    eprintf(EPF_DBUG, "Entitlement for src %d added to HUB(%s)", src, hub->getHubAddr().c_str());
}

void SourceRegistry::deleteEntitlement(int src, HubClient* hub) {
    HubClient* const serving = m_routes.find(src);
    const bool counts = serving != nullptr ? serving == hub : m_session.firstHub() == hub;
    if (!counts)
        return;
    // The route stays: a request for the withdrawn source still gets that hub's answer.
    const bool wasEntitled = m_entitled.remove(src);
    m_hubStatus.removeSource(hub, src);
    if (wasEntitled)
        m_events.pushSource(tivra::SessionEvent::TIVRA_SESSION_SOURCE_REMOVED, src);
    else
        eprintf(EPF_DBUG,
                "deleteEntitlement: src %d was not entitled so not sending "
                "SessionEvent::TIVRA_SESSION_SOURCE_REMOVED",
                src);
}

void SourceRegistry::beginAddNewEntitlement(int src) {
    if (src >= kFirstNewsSource) {
        eprintf(EPF_DBUG, "Ignore news src %d", src);
        return;
    }
    if (HubClient* const serving = m_routes.find(src))
        addNewEntitlement(src, serving);
    else if (dynEntMap.insert(src)) // one question per source is enough
        m_session.askForHubOf(src);
}

void SourceRegistry::forgetRoutes(HubClient* client) {
    m_routes.forget(client);
    // The application is told of the hubs that its sources are served by now.
    for (const auto& [source, hub] : m_entitled.copy()) {
        HubClient* const serving = m_routes.find(source);
        if (hub == client && serving != nullptr)
            m_entitled.move(source, hub, serving);
    }
}

void SourceRegistry::clear() {
    m_routes.clear();
    m_hubStatus.clear();
    m_entitled.clear();
}

} // namespace tivra_internal
