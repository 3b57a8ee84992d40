// How a hub client finds its hub's address through a connection manager.
#include "hub/HubClient.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <tp/Clock.h>
#include <tp/eprintf.h>

#include "LibraryVersion.h"

#include "config/HostConfigImpl.h"
#include "config/HostTable.h"
#include "config/UserInfoImpl.h"
#include "hub/ConnectionManagers.h"
#include "hub/HubSession.h"
#include "hub/LnkApi.h"
#include "hub/LnkApiErrors.h"
#include "receive/Queue.h"

namespace tivra_internal {

namespace {

constexpr const char* kProgramName = "tivraApi";
constexpr size_t kMaxHubAddr = 255;
constexpr int kMillisecondsPerSecond = 1000;

/// The outage of a manager is logged once: beyond so many look-ups without success each is one like the
/// others.
auto levelOf(long lookups, long told) {
    return lookups > told ? EPF_DBUG : EPF_INFO;
}

LnkApplicationVersion applicationVersion() {
    LnkApplicationVersion version{};
    std::strncpy(version.szProgramName, kProgramName, sizeof version.szProgramName - 1);
    // The date is written YYYYMMDD, the version begins with a letter and the number of the build.
    const int date = std::atoi(kVersionDate);
    version.sDate.nYear = static_cast<uint16_t>(date / 10'000);
    version.sDate.nMonth = static_cast<uint8_t>(date / 100 % 100);
    version.sDate.nDay = static_cast<uint8_t>(date % 100);
    version.wBuildNumber = static_cast<uint16_t>(std::atoi(kVersion + 1));
    return version;
}

} // namespace

// The first connect of a session asks whether its host is a manager; with one, every connect that wants
// another hub asks again.
HubClient::Lookup HubClient::askManager() {
    ConnectionManagers& managers = m_session.getConnectionManagers();
    const bool isKnownManager = managers.m_isCMconnection;
    // A host that has answered as a manager is no hub, though it had none to hand out.
    const bool isManagerItself = !isKnownManager && managers.isManager(m_original_ipaddr);
    if ((isKnownManager || managers.m_CMcheckDone) && !isManagerItself && !m_requestHUBFromCM)
        return Lookup::Dial;
    if (!LnkApi::instance().load())
        return managerLibraryMissing(managers);
    // What can't be asked is dialled itself: its dials alone decide when it has failed.
    if (!managers.m_isLnkapiInitialized && !initializeManagerLibrary(managers))
        return Lookup::Dial;

    std::string cmAddr;
    std::string hubIp;
    const int rc = getHUBFromCM(cmAddr, hubIp, isKnownManager ? getHubPort() : 0);
    // A walk that a stop has cut short says nothing about the hosts.
    if (rc == LNKAPI_ERROR_NOTCONNECTED && m_session.isStopping())
        return giveUpLookup(rc);
    m_requestHUBFromCM = false;
    m_CMconnectionRetries += 1;
    if (rc == LNKAPI_SUCCESS)
        return takeHubOfManager(managers, cmAddr, hubIp);
    if (!isKnownManager && (rc == LNKAPI_ERROR_WRONG_USERNAMEPASSWORD || rc == LNKAPI_ERROR_NOT_ENTITLED)) {
        eprintf(EPF_INFO,
                "connectHost:CM connection valid but LnkGetServerIPFromCM returned rc=%d (%s) CM_addr= %s\n",
                rc, getLnkAPIErrorString(rc).c_str(), cmAddr.c_str());
        return giveUpLookup(rc);
    }
    if (!isKnownManager && rc == LNKAPI_ERROR_WINSOCK)
        managers.m_enableCMRetry = true;
    if (isKnownManager)
        return lookupFailed(cmAddr, rc);
    // The other managers' answers don't make a hub of this one.
    return firstLookupFailed(managers, cmAddr,
                             managers.isManager(m_original_ipaddr) ? LNKAPI_ERROR_SERVER_NOT_AVAILABLE : rc);
}

HubClient::Lookup HubClient::managerLibraryMissing(ConnectionManagers& managers) {
    if (managers.m_isCMconnection)
        return giveUpLookup(LNKAPI_ERROR_NOT_INITIALIZED);
    eprintf(EPF_INFO, "Connection manager library not found; connecting to HUB directly");
    managers.m_CMcheckDone = true;
    m_requestHUBFromCM = false;
    return Lookup::Dial;
}

bool HubClient::initializeManagerLibrary(ConnectionManagers& managers) {
    LnkApi& library = LnkApi::instance();
    eprintf(EPF_INFO, "Initiallaize Lnkapi - LnkInitializeEx2\n");
    library.setLogListener();
    LnkApplicationVersion application = applicationVersion();
    LnkApiVersion2 libraryVersion{};
    if (const int status = library.initialize(application, libraryVersion); status != LNKAPI_SUCCESS) {
        m_requestHUBFromCM = false;
        managers.m_CMcheckDone = true;
        eprintf(EPF_WARN, "Lnkapi initialiation failed; LnkInitializeEx2 iStatus=%d; Exiting\n", status);
        return false;
    }
    managers.m_isLnkapiInitialized = true;
    const int limit = static_cast<int>(
        std::min<long>(m_connectionTimeout, INT32_MAX / kMillisecondsPerSecond) * kMillisecondsPerSecond);
    const int status = library.setConnectionTimeout(limit);
    if (status == LNKAPI_SUCCESS)
        eprintf(EPF_INFO,
                "LnkSetConnectionTimeout is set to  CMconnectionTimeout (m_connectionTimeout in millisec) "
                "=%d; \n",
                limit);
    else
        eprintf(EPF_WARN,
                "LnkSetConnectionTimeout  failed iStatus=%d,  CMconnectionTimeout (m_connectionTimeout in "
                "millisec) =%d; \n",
                status, limit);
    return true;
}

HubClient::Lookup HubClient::giveUpLookup(int rc) {
    m_lnkapiErrno = rc;
    m_inProgress = false;
    return Lookup::Failed;
}

// No manager has answered yet: the host may be none, or one that is not available just now.
HubClient::Lookup HubClient::firstLookupFailed(ConnectionManagers& managers, const std::string& cmAddr,
                                               int rc) {
    if (rc == LNKAPI_ERROR_SERVER_NOT_AVAILABLE) {
        m_lnkapiErrno = rc;
        eprintf(EPF_INFO,
                "CM connection valid but LnkGetServerIPFromCM returned rc=%d (%s)  CM_addr= %s "
                "m_CMconnectionRetries=%ld m_connectionRetryLimit=%ld\n",
                rc, getLnkAPIErrorString(rc).c_str(), cmAddr.c_str(), m_CMconnectionRetries.load(),
                m_connectionRetryLimit);
        if (isCMPastRetryLimit()) {
            eprintf(EPF_CRIT, "CM connection exceeded the RetryLimit \n");
            return giveUpLookup(rc);
        }
        m_inProgress = true;
        m_isConnectionTimedOut = false;
        m_requestHUBFromCM = true;
        return Lookup::Again;
    }
    eprintf(EPF_INFO,
            "connectHost::CM connection failed LnkGetServerIPFromCM returned rc=%d(%s)  Connecting to HUB "
            "directly CM_addr= %s\n",
            rc, getLnkAPIErrorString(rc).c_str(), cmAddr.c_str());
    managers.m_CMcheckDone = true;
    m_inProgress = false;
    m_lnkapiErrno = LNKAPI_SUCCESS;
    return Lookup::Dial;
}

// The hubs come from a manager, but none of them has one at present.
HubClient::Lookup HubClient::lookupFailed(const std::string& cmAddr, int rc) {
    const bool isStarted = m_session.getisStarted();
    if (!isStarted && isCMPastRetryLimit()) {
        eprintf(EPF_CRIT, "CM connection exceeded the RetryLimit \n");
        return giveUpLookup(rc);
    }
    if (isStarted && isComingXref() && isCMPastRetryLimit()) {
        eprintf(EPF_WARN, "This is xref hubclient and CM connection exceeded the retry limit  m_port: (%d)",
                int{getHubPort()});
        return giveUpLookup(rc);
    }
    eprintf(levelOf(m_CMconnectionRetries, 1),
            "connectHost::CM connection failed LnkGetServerIPFromCM returned rc=%d(%s);Close Socket and call "
            "lnkapi interface to get new HUB for this port when connectHost is called next time; CM_addr= "
            "%s\n",
            rc, getLnkAPIErrorString(rc).c_str(), cmAddr.c_str());
    askManagerAgain();
    return Lookup::Again;
}

// The attempt goes on, without a socket: the next tick asks for another hub.
void HubClient::askManagerAgain() {
    m_inProgress = true;
    m_connectStartTime = tp::Clock::monotonic();
    m_isConnectionTimedOut = false;
    m_requestHUBFromCM = true;
    m_fd.close();
}

HubClient::Lookup HubClient::takeHubOfManager(ConnectionManagers& managers, std::string cmAddr,
                                              const std::string& hubIp) {
    m_known.m_isAgg = false;
    m_inProgress = false;
    const bool isFirstSuccess = !managers.m_isCMconnection;
    // The host table has the address by which others know the hub, not the one dialled behind a translation.
    const std::string dialled = getDialledAddr();
    const std::string oldAddr = m_hostConfig != nullptr ? m_hostConfig->getAddr() : dialled;
    if (isFirstSuccess) {
        managers.m_isCMconnection = true;
        managers.m_CMcheckDone = true;
        if (dialled != m_original_ipaddr)
            cmAddr = HostTable::hostInfoOf(m_original_ipaddr, m_original_port);
        // A manager hands out another hub by itself, so there is no other side to go to.
        m_session.disableFailover();
        if (m_session.updateCMPortPairLst() != 0) {
            // The next start may find other hosts.
            managers.m_isCMconnection = false;
            managers.m_CMcheckDone = false;
            eprintf(EPF_WARN, "connectHost:updateCMPortPairLst returned error- Primary(Backup) CM adresses "
                              "or Port not same\n");
            return giveUpLookup(PRIMARYBACKUP_CMIPPORT_ERROR);
        }
    } else if (oldAddr != hubIp) {
        cmAddr = HostTable::hostInfoOf(oldAddr, getHubPort());
    }
    m_CMconnectionRetries = 0;
    m_lnkapiErrno = LNKAPI_SUCCESS;
    useHub(managers, cmAddr, hubIp);
    return Lookup::Dial;
}

// From here on this client is the one of that hub, for the log, the host table and the table of ports.
void HubClient::useHub(ConnectionManagers& managers, const std::string& cmAddr, const std::string& hubIp) {
    std::string name = HostTable::hostInfoOf(hubIp, getHubPort());
    std::string localIp;
    if (m_hostConfig != nullptr) {
        m_hostConfig->setAddr(hubIp);
        m_session.renameHost(cmAddr, name);
        localIp = m_hostConfig->getLocalIp(hubIp);
    }
    m_responseQueue->setsocketDesc(name.c_str());
    managers.setHubOfPort(getHubPort(), hubIp);
    if (!localIp.empty())
        name += " (" + localIp + ')';
    name.resize(std::min(name.size(), kMaxHubAddr));
    {
        const tp::MutexLock lock(m_text_mutex);
        m_hub_ip_addr = hubIp;
        m_ip_addr = localIp.empty() ? hubIp : localIp;
        hubAddr = name;
    }
    eprintf(EPF_INFO,
            "connectHost: HUB ip returned from  LnkGetServerIPFromCM  hubAddr=%s annd rc =%d(%s) "
            "LNKAPI_SUCCESS\n",
            name.c_str(), LNKAPI_SUCCESS, getLnkAPIErrorString(LNKAPI_SUCCESS).c_str());
}

// Behind an address translation a manager is reached by another address than its own.
std::string HubClient::reachable(const std::string& addr) const {
    const std::string localIp = m_hostConfig != nullptr ? m_hostConfig->getLocalIp(addr) : std::string();
    return localIp.empty() ? addr : localIp;
}

int HubClient::lookUp(const std::string& managerAddr, std::string& hubIp) {
    // A look-up may last as long as the connection time-out, which the log must explain.
    eprintf(levelOf(m_CMconnectionRetries, 0), "getHUBFromCM: asking %s for the address of a HUB",
            managerAddr.c_str());
    return LnkApi::instance().getServerIP(managerAddr, m_primaryUser.getUserName(),
                                          m_primaryUser.getPassword(), hubIp,
                                          [this] { return m_session.isStopping(); });
}

int HubClient::getHUBFromCM(std::string& cmAddr, std::string& hubIp, int port) {
    ConnectionManagers& managers = m_session.getConnectionManagers();
    const std::string recent = managers.getRecentCM();
    const bool triesRecent = !recent.empty() && port != 0;
    int rc = LNKAPI_SUCCESS;
    if (triesRecent) {
        cmAddr = HostTable::hostInfoOf(reachable(recent), static_cast<size_t>(port));
        rc = lookUp(cmAddr, hubIp);
        eprintf(levelOf(m_CMconnectionRetries, 1),
                "getHUBFromCM: LnkGetServerIPFromCM  retun rc=%d for  recent CM= %s , cmIP =  %s\n", rc,
                recent.c_str(), cmAddr.c_str());
        if (rc == LNKAPI_SUCCESS)
            return rc;
    }
    return askManagersInTurn(managers, triesRecent ? recent : std::string(), cmAddr, hubIp, port, rc);
}

// `tried` has been asked just now. Without a port each manager is first asked at its own.
int HubClient::askManagersInTurn(ConnectionManagers& managers, const std::string& tried, std::string& cmAddr,
                                 std::string& hubIp, int port, int rc) {
    std::string previous;
    bool isAsked = !tried.empty();
    for (const HostPair& manager : managers.candidates()) {
        if (m_session.isStopping())
            return LNKAPI_ERROR_NOTCONNECTED;
        if (manager.addr == previous || (!tried.empty() && manager.addr == tried))
            continue;
        previous = manager.addr;
        if (port == 0)
            port = static_cast<int>(manager.port);
        const std::string addr = reachable(manager.addr);
        cmAddr = HostTable::hostInfoOf(addr, static_cast<size_t>(port));
        rc = lookUp(cmAddr, hubIp);
        isAsked = true;
        eprintf(levelOf(m_CMconnectionRetries, 1),
                "getHUBFromCM: LnkGetServerIPFromCM  retun rc=%d for CM(for connection)= %s CM ip = %s \n",
                rc, manager.addr.c_str(), cmAddr.c_str());
        if (rc == LNKAPI_ERROR_SERVER_NOT_AVAILABLE)
            managers.noteManager(manager.addr);
        if (rc != LNKAPI_SUCCESS)
            continue;
        managers.setRecentCM(manager.addr);
        if (!managers.m_isCMconnection) {
            const tp::MutexLock lock(m_text_mutex);
            m_ip_addr = addr;
            m_port = static_cast<uint16_t>(port);
            m_givenPort = static_cast<size_t>(port);
        }
        return rc;
    }
    return isAsked ? rc : LNKAPI_ERROR_INVALID_PARAM;
}

// Another hub may do better than one that doesn't answer; false when the time-out ends the attempt.
bool HubClient::replaceTimedOutHub() {
    ConnectionManagers& managers = m_session.getConnectionManagers();
    if (!managers.m_CMcheckDone || !managers.m_isCMconnection)
        return false;
    if (!m_session.getisStarted() && isCMPastRetryLimit())
        return false;
    if (m_session.getisStarted() && isComingXref() && m_session.areXrefHubsComing())
        return false;
    const std::string address = getDialledAddr();
    eprintf(isDialRepeated() ? EPF_DBUG : EPF_WARN,
            "HubClient::connectHost -(%s:%u) Connection timed out (retry limit not exceeded) m_fd = "
            "%d;Request CM for a different HUB\n",
            address.c_str(), unsigned{getHubPort()}, m_fd.get());
    // It counts like any failed dial, or a start would go on for as long as the manager has hubs to hand out.
    m_connectionRetries += 1;
    m_outage.noteDial();
    askManagerAgain();
    return true;
}

} // namespace tivra_internal
