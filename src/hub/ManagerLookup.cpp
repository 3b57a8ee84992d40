#include "hub/ManagerLookup.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <tp/eprintf.h>

#include "LibraryVersion.h"

#include "config/HostConfigImpl.h"
#include "config/HostTable.h"
#include "config/PasswordQuestion.h"
#include "config/UserInfoImpl.h"
#include "hub/ConnectionManagers.h"
#include "hub/HubAddress.h"
#include "hub/HubClientOptions.h"
#include "hub/LnkApi.h"
#include "hub/LnkApiErrors.h"
#include "hub/SessionManagers.h"
#include "hub/SessionStanding.h"

namespace tivra_internal {

namespace {

constexpr const char* kProgramName = "tivraApi";
constexpr int kMillisecondsPerSecond = 1000;

/// The outage of a manager is logged once: beyond so many look-ups without success each is one like the
/// others.
auto levelOf(long lookups, long logged) {
    return lookups > logged ? EPF_DBUG : EPF_INFO;
}

LnkApplicationVersion applicationVersion() {
    LnkApplicationVersion version{};
    std::strncpy(version.szProgramName, kProgramName, sizeof version.szProgramName - 1);
    // The date is written YYYYMMDD, the version begins with a letter and the number of the build.
    // NOLINTBEGIN(cert-err34-c): both are our own
    const int date = std::atoi(kVersionDate);
    version.sDate.nYear = static_cast<uint16_t>(date / 10'000);
    version.sDate.nMonth = static_cast<uint8_t>(date / 100 % 100);
    version.sDate.nDay = static_cast<uint8_t>(date % 100);
    version.wBuildNumber = static_cast<uint16_t>(std::atoi(kVersion + 1));
    // NOLINTEND(cert-err34-c)
    return version;
}

} // namespace

ManagerLookup::ManagerLookup(SessionManagers& managers, const SessionStanding& session, UserInfoImpl& user,
                             const HubClientOptions& options, HubAddress& address)
    : m_managers(managers)
    , m_session(session)
    , m_user(user)
    , m_hostConfig(options.host)
    , m_connectionTimeout(options.connectionTimeout)
    , m_isEncrypted(options.tls.isOn || options.tls.isRequired)
    , m_retryLimit(options.connectionRetryLimit)
    , m_address(address)
    , m_requestHUBFromCM(!options.isDummy && managers.isCMconnection()) {}

ManagerLookup::~ManagerLookup() {
    dropQuestion();
}

void ManagerLookup::dropQuestion() {
    if (m_question != nullptr)
        m_question->drop();
    m_question.reset();
}

// The first connect of a session asks whether its host is a manager; with one, every connect that wants
// another hub asks again.
ManagerLookup::Outcome ManagerLookup::ask(bool isComingXref) {
    ConnectionManagers& managers = m_managers.getConnectionManagers();
    const bool isKnownManager = managers.m_isCMconnection;
    // A host that has answered as a manager is no hub, though it had none to hand out.
    const bool isManagerItself = !isKnownManager && managers.isManager(m_address.configured());
    if ((isKnownManager || managers.m_CMcheckDone) && !isManagerItself && !m_requestHUBFromCM) {
        dropQuestion();
        return Outcome::NotAsked;
    }
    if (m_isEncrypted)
        return unaskedInClear();
    if (!LnkApi::instance().load())
        return libraryMissing(managers);
    // What can't be asked is dialled itself: its dials alone decide when it has failed.
    if (!managers.m_isLnkapiInitialized && !initializeLibrary(managers))
        return Outcome::NotAsked;

    if (!havePassword())
        return Outcome::Again;
    std::string cmAddr;
    std::string hubIp;
    const int rc = askManagers(cmAddr, hubIp, isKnownManager);
    // A walk that a stop has cut short says nothing about the hosts.
    if (rc == LNKAPI_ERROR_NOTCONNECTED && m_session.isStopping())
        return giveUp(rc);
    m_requestHUBFromCM = false;
    m_CMconnectionRetries += 1;
    if (rc == LNKAPI_SUCCESS)
        return takeHub(managers, cmAddr, hubIp);
    if (!isKnownManager && (rc == LNKAPI_ERROR_WRONG_USERNAMEPASSWORD || rc == LNKAPI_ERROR_NOT_ENTITLED)) {
        eprintf(EPF_INFO,
                "connectHost:CM connection valid but LnkGetServerIPFromCM returned rc=%d (%s) CM_addr= %s\n",
                rc, getLnkAPIErrorString(rc).c_str(), cmAddr.c_str());
        return giveUp(rc);
    }
    if (!isKnownManager && rc == LNKAPI_ERROR_WINSOCK)
        managers.m_enableCMRetry = true;
    if (isKnownManager)
        return lookupFailed(cmAddr, rc, isComingXref);
    // The other managers' answers don't make a hub of this one.
    return firstLookupFailed(managers, cmAddr,
                             managers.isManager(m_address.configured()) ? LNKAPI_ERROR_SERVER_NOT_AVAILABLE
                                                                        : rc);
}

// The question, with the user's password, would go out in clear. A host without encryption may ask all the
// same.
ManagerLookup::Outcome ManagerLookup::unaskedInClear() {
    if (!std::exchange(m_isUnaskedKnown, true))
        eprintf(EPF_INFO, "A connection manager can't be asked over TLS; connecting to HUB directly");
    m_requestHUBFromCM = false;
    return Outcome::NotAsked;
}

ManagerLookup::Outcome ManagerLookup::libraryMissing(ConnectionManagers& managers) {
    if (managers.m_isCMconnection)
        return giveUp(LNKAPI_ERROR_NOT_INITIALIZED);
    return unasked(managers, "Connection manager library not found; connecting to HUB directly");
}

ManagerLookup::Outcome ManagerLookup::unasked(ConnectionManagers& managers, const char* line) {
    eprintf(EPF_INFO, "%s", line);
    managers.m_CMcheckDone = true;
    m_requestHUBFromCM = false;
    return Outcome::NotAsked;
}

bool ManagerLookup::initializeLibrary(ConnectionManagers& managers) {
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

ManagerLookup::Outcome ManagerLookup::giveUp(int rc) {
    m_lnkapiErrno = rc;
    return Outcome::Failed;
}

// No manager has answered yet: the host may be none, or one that is not available just now.
ManagerLookup::Outcome ManagerLookup::firstLookupFailed(ConnectionManagers& managers,
                                                        const std::string& cmAddr, int rc) {
    if (rc == LNKAPI_ERROR_SERVER_NOT_AVAILABLE) {
        m_lnkapiErrno = rc;
        eprintf(EPF_INFO,
                "CM connection valid but LnkGetServerIPFromCM returned rc=%d (%s)  CM_addr= %s "
                "m_CMconnectionRetries=%ld m_connectionRetryLimit=%ld\n",
                rc, getLnkAPIErrorString(rc).c_str(), cmAddr.c_str(), m_CMconnectionRetries.load(),
                m_retryLimit);
        if (isPastRetryLimit()) {
            eprintf(EPF_CRIT, "CM connection exceeded the RetryLimit \n");
            return giveUp(rc);
        }
        m_requestHUBFromCM = true;
        return Outcome::Again;
    }
    eprintf(EPF_INFO,
            "connectHost::CM connection failed LnkGetServerIPFromCM returned rc=%d(%s)  Connecting to HUB "
            "directly CM_addr= %s\n",
            rc, getLnkAPIErrorString(rc).c_str(), cmAddr.c_str());
    managers.m_CMcheckDone = true;
    m_lnkapiErrno = LNKAPI_SUCCESS;
    return Outcome::NoManager;
}

// The hubs come from a manager, but none of them has one at present.
ManagerLookup::Outcome ManagerLookup::lookupFailed(const std::string& cmAddr, int rc, bool isComingXref) {
    const bool isStarted = m_session.getisStarted();
    if (!isStarted && isPastRetryLimit()) {
        eprintf(EPF_CRIT, "CM connection exceeded the RetryLimit \n");
        return giveUp(rc);
    }
    if (isStarted && isComingXref && isPastRetryLimit()) {
        eprintf(EPF_WARN, "This is xref hubclient and CM connection exceeded the retry limit  m_port: (%d)",
                int{m_address.port()});
        return giveUp(rc);
    }
    eprintf(levelOf(m_CMconnectionRetries, 1),
            "connectHost::CM connection failed LnkGetServerIPFromCM returned rc=%d(%s);Close Socket and call "
            "lnkapi interface to get new HUB for this port when connectHost is called next time; CM_addr= "
            "%s\n",
            rc, getLnkAPIErrorString(rc).c_str(), cmAddr.c_str());
    m_requestHUBFromCM = true;
    return Outcome::Again;
}

ManagerLookup::Outcome ManagerLookup::takeHub(ConnectionManagers& managers, std::string cmAddr,
                                              const std::string& hubIp) {
    // The host table has the address by which others know the hub, not the one dialled behind a translation.
    const std::string dialled = m_address.dialled();
    const std::string oldAddr = m_hostConfig != nullptr ? m_hostConfig->getAddr() : dialled;
    if (!managers.m_isCMconnection) {
        if (dialled != m_address.configured())
            cmAddr = HostTable::hostInfoOf(m_address.configured(), m_address.configuredPort());
        if (!acceptManagers(managers))
            return giveUp(PRIMARYBACKUP_CMIPPORT_ERROR);
    } else if (oldAddr != hubIp) {
        cmAddr = HostTable::hostInfoOf(oldAddr, m_address.port());
    }
    m_CMconnectionRetries = 0;
    m_lnkapiErrno = LNKAPI_SUCCESS;
    useHub(managers, cmAddr, hubIp);
    return Outcome::Found;
}

// The first success: the session's hosts are managers. False when they don't go together.
bool ManagerLookup::acceptManagers(ConnectionManagers& managers) {
    managers.m_isCMconnection = true;
    managers.m_CMcheckDone = true;
    // A manager hands out another hub by itself, so there is no other side to go to.
    m_managers.disableFailover();
    if (m_managers.updateCMPortPairLst() == 0)
        return true;
    // The next start may find other hosts.
    managers.m_isCMconnection = false;
    managers.m_CMcheckDone = false;
    eprintf(EPF_WARN, "connectHost:updateCMPortPairLst returned error- Primary(Backup) CM adresses "
                      "or Port not same\n");
    return false;
}

// From here on this client is the one of that hub, for the log, the host table and the table of ports.
void ManagerLookup::useHub(ConnectionManagers& managers, const std::string& cmAddr,
                           const std::string& hubIp) {
    if (m_hostConfig != nullptr) {
        m_hostConfig->setAddr(hubIp);
        m_managers.renameHost(cmAddr, HostTable::hostInfoOf(hubIp, m_address.port()));
    }
    managers.setHubOfPort(m_address.port(), hubIp);
    const std::string name = m_address.become(hubIp);
    eprintf(EPF_INFO,
            "connectHost: HUB ip returned from  LnkGetServerIPFromCM  hubAddr=%s annd rc =%d(%s) "
            "LNKAPI_SUCCESS\n",
            name.c_str(), LNKAPI_SUCCESS, getLnkAPIErrorString(LNKAPI_SUCCESS).c_str());
}

bool ManagerLookup::havePassword() {
    PasswordSource& passwords = m_user.passwords();
    if (passwords.kept() != nullptr)
        return true;
    if (m_question == nullptr)
        m_question =
            passwords.ask(HostTable::hostInfoOf(m_address.configured(), m_address.configuredPort()), nullptr);
    if (!m_question->isAnswered())
        return false;
    if (const std::string fault = m_question->fault(); !fault.empty())
        eprintf(EPF_WARN, "No connection manager is asked for a HUB: %s", fault.c_str());
    m_password = std::exchange(m_question, nullptr)->take();
    return true;
}

int ManagerLookup::askManagers(std::string& cmAddr, std::string& hubIp, bool isKnownManager) {
    if (m_user.passwords().kept() == nullptr && m_password.isEmpty())
        return LNKAPI_ERROR_WRONG_USERNAMEPASSWORD;
    const int rc = getHUBFromCM(cmAddr, hubIp, isKnownManager ? m_address.port() : 0);
    m_password = tivra::Password();
    return rc;
}

int ManagerLookup::lookUp(const std::string& managerAddr, std::string& hubIp) {
    // A look-up may last as long as the connection time-out, which the log must explain.
    eprintf(levelOf(m_CMconnectionRetries, 0), "getHUBFromCM: asking %s for the address of a HUB",
            managerAddr.c_str());
    const tivra::Password* const kept = m_user.passwords().kept();
    return LnkApi::instance().getServerIP(managerAddr, m_user.getUserName(),
                                          (kept != nullptr ? *kept : m_password).text(), hubIp,
                                          [this] { return m_session.isStopping(); });
}

int ManagerLookup::getHUBFromCM(std::string& cmAddr, std::string& hubIp, int port) {
    ConnectionManagers& managers = m_managers.getConnectionManagers();
    const std::string recent = managers.getRecentCM();
    const bool triesRecent = !recent.empty() && port != 0;
    int rc = LNKAPI_SUCCESS;
    if (triesRecent) {
        cmAddr = HostTable::hostInfoOf(m_address.reachable(recent), static_cast<std::size_t>(port));
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
int ManagerLookup::askManagersInTurn(ConnectionManagers& managers, const std::string& tried,
                                     std::string& cmAddr, std::string& hubIp, int port, int rc) {
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
        const std::string addr = m_address.reachable(manager.addr);
        cmAddr = HostTable::hostInfoOf(addr, static_cast<std::size_t>(port));
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
        if (!managers.m_isCMconnection)
            m_address.dialManager(addr, port);
        return rc;
    }
    return isAsked ? rc : LNKAPI_ERROR_INVALID_PARAM;
}

// Another hub may do better than one that doesn't answer.
bool ManagerLookup::mayReplaceHub(bool isComingXref) const {
    const ConnectionManagers& managers = m_managers.getConnectionManagers();
    if (!managers.m_CMcheckDone || !managers.m_isCMconnection)
        return false;
    if (!m_session.getisStarted() && isPastRetryLimit())
        return false;
    return !m_session.getisStarted() || !isComingXref || !m_managers.areXrefHubsComing();
}

void ManagerLookup::noteLoss() {
    if (m_managers.isCMconnection())
        m_requestHUBFromCM = true;
}

void ManagerLookup::noteReady() {
    m_CMconnectionRetries = 0;
    m_lnkapiErrno = 0;
}

void ManagerLookup::startAnew() {
    noteReady();
    m_requestHUBFromCM = m_managers.isCMconnection();
}

} // namespace tivra_internal
