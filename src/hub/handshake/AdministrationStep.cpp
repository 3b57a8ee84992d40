#include "hub/handshake/Steps.h"

#include <utility>

#include <tp/eprintf.h>

#include "dictionary/DictionaryCache.h"
#include "hub/handshake/HandshakeContext.h"

namespace tivra_internal {

namespace {

const char* yesNo(bool value) {
    return value ? "true" : "false";
}

} // namespace

int AdministrationStep::ask() {
    return m_context.ask(GET_ADMIN, "5026=%d|5022=ListAdministrationInfo", GET_ADMIN);
}

bool AdministrationStep::take(const KVNAPI::Message& msg) {
    const std::string address = m_context.address.dialled();
    const MessageField version = m_context.field(msg, "DIC.VERSION");
    if (!version.isDefined()) {
        eprintf(EPF_WARN, "HubClient::process_admin: DIC.VERSION not defined!");
        return true;
    }
    if (!version.isPresent())
        eprintf(EPF_WARN, "DIC.VERSION not present in ListAdministrationInfo response");
    const bool goesOn = !version.isPresent() || takeDicVersion(loggable(version.text()));

    const MessageField hubVersion = m_context.field(msg, "HUB.VERSION");
    if (!hubVersion.isDefined()) {
        eprintf(EPF_WARN, "HubClient::process_admin: HUB.VERSION not defined!");
        return goesOn;
    }
    if (hubVersion.isPresent())
        setHubVersion(hubVersion.text());
    else
        eprintf(EPF_WARN, "HUB.VERSION not present in ListAdministrationInfo response");

    DictionaryCache& cache = m_context.dictionaries.getDictionaryCache();
    if (cache.hasInitialDIC()) {
        eprintf(EPF_DBUG, "%s:%d: m_initialDIC=%s; m_useLocalMap=%s ", address.c_str(),
                m_context.address.port(), "true", yesNo(m_context.known.m_useLocalMap));
        if (cache.find(m_context.known.m_dicVersion).rows == nullptr && !m_context.known.m_useLocalMap) {
            m_context.known.m_haveDIC = false;
            m_context.known.m_dowloadDIC = true;
            m_context.state.m_haveAdmin = true;
            return goesOn;
        }
        eprintf(EPF_DBUG, "process_admin: %s:%d: calling loadDic", address.c_str(), m_context.address.port());
        m_dictionary.load();
    }
    m_context.state.m_haveAdmin = true;
    eprintf(EPF_DBUG, "%s:%d: m_dowloadDIC=%s ", address.c_str(), m_context.address.port(),
            yesNo(m_context.known.m_dowloadDIC));
    return goesOn;
}

// False when the dictionary has changed since the last connection: the session then starts all hubs again.
bool AdministrationStep::takeDicVersion(const std::string& newVersion) {
    const std::string previous = std::exchange(m_context.known.m_dicVersion, newVersion);
    const std::string address = m_context.address.dialled();
    const bool isCMconnection = m_context.managers.isCMconnection();
    eprintf(EPF_DBUG, "%s:%d: m_haveDIC=%d; prevDicVersion=%s; newDicVersion=%s; m_isCMconnection=%s ",
            address.c_str(), m_context.address.port(), m_context.known.m_haveDIC, previous.c_str(),
            newVersion.c_str(), yesNo(isCMconnection));
    if (m_context.known.m_haveDIC && previous != newVersion && !isCMconnection) {
        eprintf(EPF_INFO, "New DIC.VERSION (%s) does not match current (%s); new DIC must be downloaded",
                newVersion.c_str(), previous.c_str());
        m_context.dictionaries.startDicReload();
        return false;
    }
    eprintf(EPF_INFO, "DIC.VERSION: (%s) for %s:%d", newVersion.c_str(), address.c_str(),
            m_context.address.port());
    return true;
}

void AdministrationStep::setHubVersion(const std::string& text) {
    const HubVersion version = parseHubVersion(text);
    m_hubMajorVersion.store(version.major, std::memory_order_relaxed);
    m_hubMinorVersion.store(version.minor, std::memory_order_relaxed);
    const std::string shown = loggable(text);
    if (version.major < 0 || version.minor < 0)
        eprintf(EPF_WARN, "HubClient::process_admin: HUB.VERSION value unknown format: %s", shown.c_str());
    else
        eprintf(EPF_INFO, "HUB.VERSION: %s", shown.c_str());
}

} // namespace tivra_internal
