#include "hub/HubClient.h"

#include <algorithm>
#include <functional>
#include <random>
#include <utility>

#include <tp/Clock.h>
#include <tp/eprintf.h>
#include <tp/wipe.h>

#include "config/HostTable.h"
#include "config/UserInfoImpl.h"
#include "hub/ErrorText.h"
#include "hub/HubEventReactor.h"
#include "hub/HubSession.h"
#include "hub/LnkApiErrors.h"
#include "hub/RequestFrame.h"
#include "receive/Queue.h"
#include "receive/QueueReadHandler.h"
#include "request/HubWatchlist.h"

namespace tivra_internal {

namespace {

/// Numbers from 0 up to 1, different for each client and each process.
std::function<double()> chanceOf(const HubClient* client) {
    const auto place = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(client) >> 4U);
    const auto time = static_cast<uint32_t>(static_cast<uint64_t>(tp::Clock::monotonic() * 1e6));
    return [engine = std::minstd_rand(place ^ time)]() mutable {
        return std::uniform_real_distribution<double>(0.0, 1.0)(engine);
    };
}

} // namespace

HubClient::HubClient(UserInfoImpl& user, HubSession& session, const HubClientOptions& options)
    : m_primaryUser(user)
    , m_session(session)
    , m_options(options.withinLimits())
    , m_address(m_options)
    , m_socket(m_address, session, m_options, chanceOf(this),
               [this](const std::string& address) { return moveTo(address); })
    , m_lookup(session, session, user, m_options, m_address)
    , m_heartbeat(m_address, m_options.readTimeout)
    , m_handshake(*this, session, user, m_address, m_dicMetaMap, m_options, chanceOf(this))
    , m_responseQueue(std::make_unique<Queue>(static_cast<std::size_t>(m_options.queueSize),
                                              m_options.compression, this, session.getQueueDepthThreshold()))
    , m_reader(*this, m_socket, m_registration, m_handshake, m_heartbeat, m_dicMetaMap, *m_responseQueue,
               m_options.compression) {
    m_primaryUser.newHub(this);
    reset();
    forgetConnection();
    m_last_reset_time = tp::Clock::monotonic();

    m_responseQueue->setsocketDesc(getHubAddr().c_str());
    if (m_options.inlineDelivery)
        m_responseQueue->setInlineDelivery();
    if (m_options.holdReads)
        m_responseQueue->setHoldReads();
    if (m_options.stampArrivals)
        m_responseQueue->setStampedReads();
    watchlist =
        std::make_unique<HubWatchlist>(this, *this, session.getWatchlist(), session.getRequestSender());
    if (!m_options.isDummy)
        session.claimFirstHubClient(this);
}

HubClient::~HubClient() {
    m_handshake.dropLogin();
    if (HubEventReactor* const reactor = getReactor(); reactor != nullptr) {
        reactor->forgetClient(this);
        m_registration.leave();
    }
    m_socket.close();
    m_primaryUser.deleteHub(this);
    report(HubStage::Left);
}

SessionRequests& HubClient::getRequests() const {
    return m_session;
}

bool HubClient::isReady() const {
    const tp::MutexLock lock(m_ready_mutex);
    return m_ready;
}

bool HubClient::markReady() {
    {
        const tp::MutexLock lock(m_ready_mutex);
        m_ready = true;
    }
    return !hasReadHandler();
}

bool HubClient::hasReadHandler() const {
    const tp::MutexLock lock(m_rqh_mutex);
    return m_readQueueHandler != nullptr;
}

bool HubClient::isStillDelivering() {
    return !m_responseQueue->isEmpty() && hasReadHandler() && !m_responseQueue->awaitEmpty();
}

void HubClient::ask(unsigned what) const {
    if (HubEventReactor* const reactor = getReactor(); reactor != nullptr)
        reactor->ask(what);
}

void HubClient::roomForReads() {
    m_readWaker.wake();
    if (!connected())
        ask(HubEventReactor::kSupervise);
}

void HubClient::queueIsDeep(int percent) {
    m_session.noteQueueDepth(percent);
}

void HubClient::requestContinueEntitlements() {
    m_handshake.siblingsAreReady();
    ask(HubEventReactor::kContinue);
}

void HubClient::setReadQueueHandler(std::unique_ptr<QueueReadHandler> handler) {
    const tp::MutexLock lock(m_rqh_mutex);
    m_readQueueHandler.swap(handler);
}

QueueReadHandler* HubClient::readQueueHandler() const {
    const tp::MutexLock lock(m_rqh_mutex);
    return m_readQueueHandler.get();
}

std::unique_ptr<QueueReadHandler> HubClient::clearQRHPointer() {
    const tp::MutexLock lock(m_rqh_mutex);
    return std::move(m_readQueueHandler);
}

bool HubClient::calcStats(double curtime) {
    return isReady() && m_responseQueue->calcStats(curtime);
}

void HubClient::calcQueueFullStats() {
    if (isReady())
        m_responseQueue->calcQueueFullStats();
}

void HubClient::incrQueryCount() {
    m_responseQueue->incrQueryCount();
}

void HubClient::decrQueryCount() {
    m_responseQueue->decrQueryCount();
}

bool HubClient::handleWatchlistResponse(int64_t tag, int64_t status) {
    return watchlist->handleResponse(tag, status);
}

HubClient::Dial HubClient::connectHost(double) {
    if (connected())
        return Dial::Connected;
    m_registration.endDial();
    if (!inProgress()) {
        m_dialsAtOnce = false;
        m_socket.noteDial();
    }
    switch (m_lookup.ask(isComingXref())) {
    case ManagerLookup::Outcome::NotAsked:
        break;
    case ManagerLookup::Outcome::Found:
        m_handshake.hubReplaced();
        m_responseQueue->setsocketDesc(HostTable::hostInfoOf(m_address.own(), m_address.port()).c_str());
        [[fallthrough]];
    case ManagerLookup::Outcome::NoManager:
        m_socket.abandon();
        break;
    case ManagerLookup::Outcome::Again:
        m_socket.awaitManager();
        report(HubStage::Resolving);
        return Dial::AwaitsManager;
    case ManagerLookup::Outcome::Failed:
        m_socket.abandon();
        m_socket.noteFailedAttempt();
        reportFailedDial();
        return Dial::Failed;
    }
    if (m_socket.state() != HubSocket::State::Dialling) {
        m_suspension.end();
        report(HubStage::Connecting);
        if (const HubSocket::Progress begun = m_socket.begin(); begun != HubSocket::Progress::UnderWay)
            return settle(begun);
    }
    return settle(m_socket.proceed());
}

// The same hub by another address, or another one that the name stands for: the client is that one's now.
bool HubClient::moveTo(const std::string& address) {
    if (m_options.host == nullptr || m_session.isCMconnection() ||
        !m_session.moveHost(*m_options.host, address))
        return false;
    const std::string before = m_address.own();
    const HubStage stage = m_stage;
    HubReport left;
    left.stage = HubStage::Left;
    left.hub = HostTable::hostInfoOf(before, m_address.port());
    m_address.moveTo(address);
    if (m_address.own() == before)
        return true;
    m_session.reportHub(left);
    m_stage = HubStage::Left;
    report(stage);
    m_handshake.hubReplaced();
    m_responseQueue->setsocketDesc(HostTable::hostInfoOf(m_address.own(), m_address.port()).c_str());
    return true;
}

HubClient::Dial HubClient::settle(HubSocket::Progress progress) {
    switch (progress) {
    case HubSocket::Progress::Connected:
        m_registration.enter(getFd());
        setInitHBTime();
        m_handshake.begin();
        report(HubStage::LoggingIn);
        return Dial::Connected;
    case HubSocket::Progress::UnderWay:
        m_registration.awaitDial(getFd(), m_socket.dialAwaitsBytes());
        return Dial::UnderWay;
    case HubSocket::Progress::TimedOut:
        if (m_lookup.mayReplaceHub(isComingXref())) {
            m_socket.replaceHub();
            m_lookup.wantHub(true);
            report(HubStage::Resolving);
            return Dial::AwaitsManager;
        }
        m_socket.giveUp(m_session.isCMconnection() && m_session.getisStarted() && isQueryXRefHUB()
                            ? "for Xref HUB "
                            : "");
        break;
    case HubSocket::Progress::Refused:
        m_lookup.noteLoss();
        break;
    case HubSocket::Progress::NoSocket:
        break;
    }
    reportFailedDial();
    m_socket.countFailedDial();
    return Dial::Failed;
}

int HubClient::sendRequest(const char* text, timeval* timeout) {
    const int result = m_socket.sendRequest(text, timeout);
    if (result == 1)
        setInitHBTime();
    return result;
}

int HubClient::sendLogin(const std::string& text) {
    std::string frame(text.size() + kFrameOverhead, '\0');
    const tp::WipedAtEnd wiped(frame);
    const int size = buildKvnMsg(text.data(), text.size(), frame.data());
    const int written = m_socket.writen(getFd(), frame.data(), size, nullptr);
    if (written == size)
        return 1;
    eprintf(EPF_CRIT, "HubMaster::login - writen returned %d expecting %d", written, size);
    closeIfOutOfStep();
    return -1;
}

void HubClient::readableEvent(double curtime) {
    if (getFd() < 0)
        return;
    if (inProgress()) {
        writableEvent(curtime);
        return;
    }
    if (m_life.hasLeft()) {
        closeConnection();
        return;
    }
    const bool waited = waitsForBoxPerms();
    m_reader.read(curtime);
    noteChanges(waited);
}

/// What bytes that were taken have led to is looked at soon: a wait for siblings that has begun, or the end
/// of the connection.
void HubClient::noteChanges(bool waited) {
    if (m_stage == HubStage::LoggingIn && isLoggedIn())
        report(HubStage::Downloading);
    if (waitsForBoxPerms() != waited)
        m_session.hubHasChanged();
    if (m_responseQueue->sawEndOfStream() && isReady())
        ask(HubEventReactor::kSupervise);
}

void HubClient::continueHeldReads(double curtime) {
    m_reader.continueHeldReads(curtime);
    noteChanges(waitsForBoxPerms());
}

void HubClient::writableEvent(double curtime) {
    if (inProgress()) {
        // The dial has come to an end: the supervision takes its outcome.
        m_registration.endDial();
        ask(HubEventReactor::kSupervise);
        return;
    }
    if (m_socket.readAwaitsRoom()) {
        m_registration.watchReads();
        readableEvent(curtime);
        return;
    }
    (void)m_reader.prepare();
}

bool HubClient::twentyFiveMsTick(double now) {
    const bool waited = waitsForBoxPerms();
    m_handshake.tick();
    m_reader.readLeftOver(now);
    noteChanges(waited);
    continueHeldReads(now);
    return isReady() ? m_reader.holdsReads() || m_socket.stream().hasUnread() || !m_responseQueue->isQuiet()
                     : connected();
}

void HubClient::leaveAfterReadFailure() {
    if (getInitialHubDisconnected()) {
        eprintf(EPF_INFO, "First HUB is disconneted for LB; Dont requestHUBFromCM for this connection");
        return;
    }
    eprintf(EPF_WARN, "Queue full, drop, or other error, so must close Connection to HUB: %s\n",
            getHubAddr().c_str());
    m_session.noteHubDown(this);
    const std::string fault = m_socket.streamFault();
    noteCloseCause(fault.empty() ? "what has come can't be read, or its queue is full" : fault);
    closeConnection();
    m_lookup.noteLoss();
}

void HubClient::continueSoon() {
    ask(HubEventReactor::kContinue);
}

void HubClient::setJit(int threshold) {
    m_responseQueue->setJit(threshold);
}

void HubClient::becomeReady() {
    const double sinceReset = tp::Clock::monotonic() - m_last_reset_time;
    m_socket.restartRetries();
    m_lookup.noteReady();
    // The queue may wait for a callback that runs, so no mutex is held here.
    m_responseQueue->reset();
    report(HubStage::Ready); // before a start is done that has waited for it
    m_session.enterReadyHub(this);
    if (HubEventReactor* const reactor = getReactor(); isWatchlistInUse() && reactor != nullptr)
        reactor->sendWLRequests(this);
    ask(HubEventReactor::kWriteRequests);
    const std::string address = m_address.dialled();
    if (m_last_reset_time != 0.0)
        eprintf(EPF_DBUG, "HubClient for %s:%d completed initialization %f seconds after last reset",
                address.c_str(), getHubPort(), sinceReset);
    eprintf(EPF_INFO, "Completed initialization of HUB %s:%d on fd=%d", address.c_str(), getHubPort(),
            getFd());
    m_socket.noteReady();
}

void HubClient::report(HubReport report) {
    if (isDummy())
        return;
    m_stage = report.stage;
    report.hub = HostTable::hostInfoOf(m_address.own(), m_address.port());
    m_session.reportHub(report);
}

void HubClient::report(HubStage stage) {
    if (stage == m_stage)
        return;
    HubReport made;
    made.stage = stage;
    report(std::move(made));
}

void HubClient::reportFailedDial() {
    HubReport failed;
    failed.stage = HubStage::Lost;
    failed.systemError = getLnkapiErrno() == 0 ? getConnectErrno() : 0;
    failed.cause = getLnkapiErrno() != 0 ? getLnkAPIErrorString(getLnkapiErrno()) : connectFault();
    failed.nextDial = m_socket.nextDial();
    report(std::move(failed));
}

void HubClient::dialNow() {
    if (connected() || inProgress())
        return;
    m_dialsAtOnce = true;
    ask(HubEventReactor::kSupervise);
}

std::optional<double> HubClient::pauseBeforeDial() const {
    const std::optional<double> next = m_socket.nextDial();
    if (!next || connected() || inProgress() || m_life.leavesForGood() || m_handshake.isBarred())
        return std::nullopt;
    return std::max(*next, m_handshake.nextDial()) - tp::Clock::monotonic();
}

bool HubClient::isInitTimedOut(double) const {
    return connected() && !m_handshake.awaitsPassword() &&
           m_heartbeat.isHandshakeTimedOut(m_handshake.beginTime(), isHeldUp());
}

// Where callbacks run on this thread, bytes that wait show that it was the thread that didn't listen.
bool HubClient::isHeldUp() const {
    return m_options.inlineDelivery && m_socket.hasUnreadBytes();
}

bool HubClient::isHBTimedOut(double) {
    if (!m_heartbeat.isCheckDue() || isHeldUp())
        return false;
    const tp::MutexLock lock(m_rqh_mutex);
    // Heartbeats stand behind what a slow reader has yet to take, however long that is waited for, and behind
    // what isn't read yet when it has just taken all.
    const bool isBehind =
        m_options.holdReads &&
        (!m_responseQueue->isEmpty() || m_responseQueue->hasInputLeft() || m_socket.hasUnreadBytes());
    return m_readQueueHandler != nullptr && m_heartbeat.isSilent(*m_readQueueHandler, m_session.getState(),
                                                                 m_responseQueue->getQueryCount(), isBehind);
}

void HubClient::reset() {
    eprintf(EPF_DBUG, "HubClient::reset(ENTRY): this=%p", static_cast<void*>(this));
    m_socket.close();
    m_suspension.end();
    m_primaryUser.resetHub(this);
}

// What a close takes with it. What the client has learnt about its hub stays.
void HubClient::forgetConnection() {
    m_heartbeat.forget();
    m_handshake.forget();
    m_reader.forget();
    m_life.noteClosed();
}

void HubClient::closeConnection() {
    const bool wasReady = isReady();
    const bool isUnheard = m_reader.isClosedUnheard();
    HubReport ending = std::exchange(m_ending, HubReport());
    if (wasReady)
        m_responseQueue->printStats(false, false, 0.0);
    if (getFd() < 0)
        return;
    if (const std::string fault = m_socket.streamFault(); !fault.empty()) {
        eprintf(isDialRepeated() ? EPF_DBUG : EPF_WARN, "%s: %s", getHubAddr().c_str(), fault.c_str());
        m_socket.noteEncryptionFault(fault);
        if (ending.cause.empty())
            ending.cause = fault;
    }
    m_socket.noteLoss();
    if (!wasReady)
        m_socket.noteFailedAttempt();
    m_registration.leave();
    m_socket.close();
    reset();
    {
        const tp::MutexLock lock(m_ready_mutex);
        m_ready = false;
    }
    m_last_reset_time = tp::Clock::monotonic();
    forgetConnection();
    // Behind a connection manager a hub that is lost, ready or not, is replaced by another.
    if (!getInitialHubDisconnected())
        m_lookup.noteLoss();
    if (HubEventReactor* const reactor = getReactor(); reactor != nullptr)
        reactor->forgetClient(this);
    // A first hub that the session lets go is no loss, nor is one that had not come up.
    if (wasReady && !getInitialHubDisconnected())
        m_session.countHubLoss(this);
    if (wasReady) {
        if (QueueReadHandler* const handler = readQueueHandler(); handler != nullptr)
            handler->noteLoss();
        m_session.endOutstanding(this);
    }
    reportEnd(std::move(ending), wasReady, isUnheard);
    m_session.hubHasChanged();
    ask(HubEventReactor::kSupervise);
}

void HubClient::reportEnd(HubReport ending, bool wasReady, bool isUnheard) {
    if (ending.stage != HubStage::Refused)
        ending.stage = HubStage::Lost;
    if (ending.cause.empty() && wasReady)
        ending.systemError = m_responseQueue->streamError();
    if (ending.cause.empty() && isUnheard && !m_options.tls.isOn)
        ending.cause =
            "the hub has closed the connection before it said anything; if it speaks TLS alone, set "
            "TLS_BOOL";
    if (ending.cause.empty())
        ending.cause =
            ending.systemError != 0 ? errorText(ending.systemError) : "the hub has closed the connection";
    if (const std::optional<double> next = m_socket.nextDial(); next && !m_handshake.isBarred())
        ending.nextDial = std::max(*next, m_handshake.nextDial());
    report(std::move(ending));
}

void HubClient::suspendClient(const std::string& reason) {
    m_ending.stage = HubStage::Refused;
    m_ending.cause = reason;
    // Closing clears a suspension, so it comes first.
    closeConnection();
    m_suspension.suspend(reason);
    m_session.hubHasChanged();
    ask(HubEventReactor::kSupervise);
}

bool HubClient::closeIfOutOfStep() {
    if (!isOutOfStep())
        return false;
    m_session.noteHubDown(this);
    closeConnection();
    return true;
}

void HubClient::startAnew() {
    m_life.startAnew();
    m_socket.abandon();
    m_socket.restartRetries();
    m_lookup.startAnew();
    m_handshake.lift();
    // Suspended, it would be taken out again by the session check before it is dialled.
    m_suspension.end();
    m_primaryUser.newHub(this);
}

} // namespace tivra_internal
