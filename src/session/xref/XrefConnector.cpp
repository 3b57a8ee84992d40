#include "session/xref/XrefConnector.h"

#include <algorithm>
#include <unistd.h>
#include <utility>

#include <tp/Clock.h>
#include <tp/eprintf.h>

#include "hub/HubClient.h"
#include "request/RequestInternal.h"
#include "session/HubTable.h"
#include "session/xref/XrefSession.h"

namespace tivra_internal {
namespace {

constexpr useconds_t kWaitMicroseconds = 1000;
constexpr double kSecondsBetweenAttempts = 30.0;

} // namespace

XrefConnector::XrefConnector(XrefSession& session) : m_session(session) {}
XrefConnector::~XrefConnector() = default;

bool XrefConnector::isComing(const HubClient& client) const {
    return areHubsComing() && client.isComingXref();
}

void XrefConnector::addPort(uint16_t port) {
    tp::MutexLock lock(m_queryXRefPortLst_mutex);
    if (m_queryXRefPortLst.size() >= HubTable::kMaxHubs && m_queryXRefPortLst.count(port) == 0)
        eprintf(EPF_WARN, "A hub names more than %zu ports for cross references; port %d is left out",
                HubTable::kMaxHubs, int{port});
    else
        m_queryXRefPortLst.insert(port);
}

void XrefConnector::removePort(uint16_t port) {
    tp::MutexLock lock(m_queryXRefPortLst_mutex);
    m_queryXRefPortLst.erase(port);
}

bool XrefConnector::mayBeNeeded() const {
    if (isNeeded())
        return false;
    tp::MutexLock lock(m_queryXRefPortLst_mutex);
    return !m_queryXRefPortLst.empty();
}

void XrefConnector::addGrantedSource(int source, uint16_t port) {
    tp::MutexLock lock(m_addRouteWhenPortConnected_mutex);
    m_addRouteWhenPortConnected[source] = port;
}

void XrefConnector::getRemainingPorts() {
    static_cast<void>(beginAttempt()); // one that has failed is over
    while (!isAttemptOver()) {
        ::usleep(kWaitMicroseconds);
        tp::Clock::beat();
    }
    endAttempt();
}

void XrefConnector::connectForEntitlements() {
    if (!mayBeNeeded())
        return;
    {
        tp::MutexLock lock(m_addRouteWhenPortConnected_mutex);
        if (m_addRouteWhenPortConnected.empty())
            return;
    }
    eprintf(EPF_INFO, "Dynamic entitlement: need to connect to all remaining ports");
    getRemainingPorts();
    if (!isDone())
        eprintf(EPF_WARN,
                "Unable to connect to all remaining ports, so adding dynamic entitlements has failed");
}

bool XrefConnector::waitsForHubs(std::unique_ptr<RequestInternal>& request, std::size_t limit) {
    if (isRetryDue() && areFailedHubsLetGo()) {
        eprintf(EPF_INFO, "Asking again for the cross-reference HUBs that failed");
        if (!beginAttempt())
            endAttempt();
    }
    if (!isAttemptOpen() || m_waiting.size() >= limit)
        return false;
    m_waiting.push_back(std::move(request));
    return true;
}

bool XrefConnector::continueRetry() {
    if (!isAttemptOpen() || !isAttemptOver())
        return false;
    endAttempt();
    return true;
}

std::deque<std::unique_ptr<RequestInternal>> XrefConnector::takeWaiting() {
    return std::exchange(m_waiting, {});
}

void XrefConnector::noteConnected(HubClient& client) {
    client.life().noteConnected();
}

void XrefConnector::giveUp(HubClient& client) {
    client.life().giveUp();
}

void XrefConnector::decideXrefHubs() {
    if (phase() != Phase::Coming)
        return;
    tp::MutexLock lock(m_XRefHubLst_mutex);
    const std::size_t size = m_XRefHubLst.size();
    std::size_t connected = 0;
    std::size_t removed = 0;
    for (const HubClient* client : m_XRefHubLst) {
        if (client->life().isConnected() || client->life().isServed())
            ++connected;
        else if (client->life().leavesForGood())
            ++removed;
    }
    if (size == 0)
        return;
    // The master thread may have given them up meanwhile, and that stands.
    Phase expected = Phase::Coming;
    if (connected == size) {
        m_phase.compare_exchange_strong(expected, Phase::AllConnected);
        eprintf(EPF_INFO,
                "All xref hubs connected, m_XRefHUBConnected is set true %d (connectedCnt = xrefHubLstSize) ",
                static_cast<int>(connected));
    } else if (connected + removed == size) {
        m_phase.compare_exchange_strong(expected, Phase::SomeFailed);
        eprintf(EPF_INFO,
                "Some of the xref HUBs are not connected; connectedCnt =%d removeCnt = %d xrefHubLstSize=%d",
                static_cast<int>(connected), static_cast<int>(removed), static_cast<int>(size));
    }
}

void XrefConnector::reset() {
    m_phase = Phase::NotNeeded;
    m_waiting.clear();
    {
        tp::MutexLock lock(m_queryXRefPortLst_mutex);
        m_queryXRefPortLst.clear();
    }
    {
        tp::MutexLock lock(m_XRefHubLst_mutex);
        m_XRefHubLst.clear();
    }
    tp::MutexLock lock(m_addRouteWhenPortConnected_mutex);
    m_addRouteWhenPortConnected.clear();
}

bool XrefConnector::isAttemptOpen() const {
    const Phase now = phase();
    return now != Phase::NotNeeded && now != Phase::Failed && now != Phase::Done;
}

/// Asks for all of them; what has come up before stays. False when one can't be asked for.
bool XrefConnector::beginAttempt() {
    m_attemptTime = tp::Clock::monotonic();
    m_attemptLimit = m_session.xrefWaitLimit();
    m_phase = Phase::Creating;
    if (getQueryXRefs()) {
        m_phase = Phase::Coming;
        return true;
    }
    eprintf(EPF_WARN, "getQueryXRefs returned error; xref hub clients cannot be created ");
    m_phase = Phase::SomeFailed;
    return false;
}

bool XrefConnector::getQueryXRefs() {
    std::vector<uint16_t> ports;
    {
        tp::MutexLock lock(m_queryXRefPortLst_mutex);
        ports.assign(m_queryXRefPortLst.begin(), m_queryXRefPortLst.end());
    }
    return std::all_of(ports.begin(), ports.end(),
                       [this](uint16_t port) { return getHUBForQueryXRef(port); });
}

bool XrefConnector::getHUBForQueryXRef(uint16_t queryXRefPort) {
    if (HubClient* const known = ofPort(queryXRefPort)) {
        m_session.bringBackXrefHub(*known);
        return true;
    }
    const std::optional<HubClient*> created = m_session.createXrefHub(queryXRefPort);
    if (!created)
        return false;
    if (*created != nullptr) {
        tp::MutexLock lock(m_XRefHubLst_mutex);
        m_XRefHubLst.insert(*created);
    }
    return true;
}

/// True when all hubs are connected or some have failed, or nobody would report any more whether they have.
bool XrefConnector::isAttemptOver() {
    if (!areHubsComing())
        return true;
    const std::vector<HubClient*> all = hubs();
    const double elapsed = tp::Clock::monotonic() - m_attemptTime;
    if (!m_session.isLeavingItsHubs() && !all.empty() && elapsed >= 0.0 && elapsed <= m_attemptLimit)
        return false;
    for (HubClient* client : all)
        if (client->life().isComing() && !client->life().isConnected())
            giveUp(*client);
    m_phase = Phase::SomeFailed;
    return true;
}

/// Those that are up are served from now on, whatever has become of the others.
void XrefConnector::endAttempt() {
    serveHubs();
    if (phase() == Phase::SomeFailed) {
        eprintf(EPF_DBUG, "Remove the XRef hub");
        removeFailedHubs();
        noteFailure();
        return;
    }
    for (const HubClient* client : hubs()) {
        if (client->life().isServed())
            continue;
        eprintf(EPF_WARN, "%s: xref HUB not done connecting", client->getHubAddr().c_str());
        noteFailure();
        return;
    }
    m_phase = Phase::Done;
    eprintf(EPF_DBUG, " All QuerXRef HUB connection done-success");
    enterGrantedRoutes();
}

void XrefConnector::serveHubs() {
    m_session.serveXrefHubs(hubs(), [](HubClient& client) {
        if (client.life().noteServed())
            eprintf(EPF_DBUG, "Set m_xrefDone for this xref client %s to true", client.getHubAddr().c_str());
    });
}

void XrefConnector::removeFailedHubs() {
    for (HubClient* client : hubs()) {
        // One that has been up is dialled for ever. A close takes the mark of the others back, but what is
        // not connected by now will not be.
        const HubLife& life = client->life();
        if (life.isServed() || life.isConnected() || life.hasLeft())
            continue;
        m_session.removeXrefHub(*client);
    }
}

void XrefConnector::enterGrantedRoutes() {
    std::map<int, uint16_t> waiting;
    {
        tp::MutexLock lock(m_addRouteWhenPortConnected_mutex);
        waiting = m_addRouteWhenPortConnected;
    }
    for (const auto& [source, port] : waiting)
        m_session.enterGrantedRoute(source, port);
}

void XrefConnector::noteFailure() {
    m_phase = Phase::Failed;
    m_failureTime = tp::Clock::monotonic();
}

bool XrefConnector::isRetryDue() const {
    return phase() == Phase::Failed && tp::Clock::monotonic() - m_failureTime >= kSecondsBetweenAttempts;
}

/// The thread of a hub that was retired lets go of it at its next look, for which it may have to wait for a
/// manager's answer.
bool XrefConnector::areFailedHubsLetGo() const {
    const std::vector<HubClient*> all = hubs();
    return std::none_of(all.begin(), all.end(), [this](const HubClient* client) {
        return client->life().hasLeft() && m_session.isHubServed(*client);
    });
}

std::vector<HubClient*> XrefConnector::hubs() const {
    tp::MutexLock lock(m_XRefHubLst_mutex);
    return {m_XRefHubLst.begin(), m_XRefHubLst.end()};
}

/// The hub of that port, be it in the session or not; null when it has never been asked for.
HubClient* XrefConnector::ofPort(uint16_t port) const {
    tp::MutexLock lock(m_XRefHubLst_mutex);
    const auto found = std::find_if(m_XRefHubLst.begin(), m_XRefHubLst.end(),
                                    [port](const HubClient* client) { return client->getHubPort() == port; });
    return found == m_XRefHubLst.end() ? nullptr : *found;
}

} // namespace tivra_internal
