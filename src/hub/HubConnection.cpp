// The connection of a hub client: dialling, health tests, closing.
#include "hub/HubClient.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <tp/Clock.h>
#include <tp/eprintf.h>

#include "config/UserInfoImpl.h"
#include "hub/ErrorText.h"
#include "hub/HubEventReactor.h"
#include "hub/HubSession.h"
#include "hub/PortAnswer.h"
#include "kvnparse/Parser.h"
#include "kvnparse/StreamFramer.h"
#include "kvnparse/StreamParser.h"
#include "receive/Queue.h"
#include "receive/QueueReadHandler.h"

namespace tivra_internal {

namespace {

/// A handshake may last as long as so many read time-outs, and no less than so many seconds.
constexpr double kHandshakeTimeouts = 12.0;
constexpr double kLeastHandshakeLimit = 60.0;

/// False for a text that is no address. The text of the broadcast address reads like an error and is none.
bool readAddress(const std::string& text, in_addr& address) {
    address.s_addr = ::inet_addr(text.c_str());
    return address.s_addr != INADDR_NONE || text == "255.255.255.255";
}

double secondsSince(double time) {
    return tp::Clock::monotonic() - time;
}

/// A monotonic time for a log line: when it was by the wall clock. 0, for never, stays 0.
double epochOf(double time) {
    return time == 0.0 ? 0.0 : tp::Clock::now() - secondsSince(time);
}

} // namespace

HubClient::Dial HubClient::connectHost(double curtime) {
    if (connected())
        return Dial::Connected;
    if (!inProgress())
        m_outage.noteDial();
    if (const Lookup lookup = askManager(); lookup != Lookup::Dial)
        return lookup == Lookup::Again ? Dial::AwaitsManager : Dial::Failed;

    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(getHubPort());
    const bool isAddress = readAddress(getDialledAddr(), address.sin_addr);

    // An attempt without a socket has only asked a manager so far.
    if (!inProgress() || m_fd.get() < 0) {
        m_inProgress = false;
        {
            const tp::MutexLock lock(m_text_mutex);
            m_suspended.store(false, std::memory_order_release);
            m_suspendReason.clear();
        }
        m_connectErrno = 0;
        if (!isAddress || m_givenPort == 0 || m_givenPort > size_t{kMaxPort})
            return failConnect(EINVAL);
        if (const Dial begun = beginConnect(address); begun != Dial::UnderWay)
            return begun;
    }

    const bool signalled = waitForConnect(curtime);
    sockaddr_in peer{};
    socklen_t length = sizeof(peer);
    if (::getpeername(m_fd.get(), reinterpret_cast<sockaddr*>(&peer), &length) != 0)
        return connectNotDone(signalled);
    return finishConnect();
}

// A socket that blocks nobody and isn't inherited. On failure -1 with the cause stored; the dial has been
// counted.
int HubClient::openSocket() {
    m_fd.assign(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (const int fd = m_fd.get(); fd >= 0 && fd < kFirstUsableDescriptor)
        m_fd.assign(::fcntl(fd, F_DUPFD_CLOEXEC, kFirstUsableDescriptor));
    if (m_fd.get() < 0) {
        m_connectErrno = errno;
        eprintf(isDialRepeated() ? EPF_DBUG : EPF_CRIT,
                "HubClient::connectHost - error in socket, errno = %d\n", getConnectErrno());
        m_connectionRetries += 1;
        return -1;
    }
    if (const int rc = ::fcntl(m_fd.get(), F_SETFL, O_NONBLOCK); rc < 0) {
        m_connectErrno = errno;
        eprintf(EPF_CRIT, "HubClient::connectHost - Error %d on set non-blocking FD %d: (%d)%s", rc,
                m_fd.get(), getConnectErrno(), errorText(getConnectErrno()).c_str());
        m_fd.close();
        m_connectionRetries += 1;
        return -1;
    }
    return m_fd.get();
}

HubClient::Dial HubClient::beginConnect(const sockaddr_in& address) {
    if (openSocket() < 0)
        return Dial::Failed;
    eprintf(isDialRepeated() ? EPF_DBUG : EPF_INFO, "Connecting to %s with connection timeout=%ld seconds",
            getHubAddr().c_str(), m_connectionTimeout);
    m_connectStartTime = tp::Clock::monotonic();
    if (::connect(m_fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0)
        return finishConnect();
    if (errno != EINPROGRESS)
        return failConnect(errno);
    m_inProgress = true;
    return Dial::UnderWay;
}

// True when the socket has become writable or failed. One client of a tick may wait; the others only look, so
// that the reactor serves its hubs.
bool HubClient::waitForConnect(double curtime) {
    HubEventReactor* const reactor = getReactor();
    const long limit = reactor != nullptr ? reactor->takeConnectWait(curtime, m_blockingConnectionLimit)
                                          : m_blockingConnectionLimit;
    pollfd watched{m_fd.get(), POLLOUT, 0};
    const timespec wait{limit / 1000, limit % 1000 * 1'000'000};
    return ::ppoll(&watched, 1, &wait, nullptr) > 0;
}

HubClient::Dial HubClient::connectNotDone(bool signalled) {
    if (signalled) {
        int error = 0;
        socklen_t length = sizeof(error);
        if (::getsockopt(m_fd.get(), SOL_SOCKET, SO_ERROR, &error, &length) == 0 && error != 0)
            return failConnect(error);
    }
    const double elapsed = secondsSince(m_connectStartTime);
    if (elapsed < 0.0 || elapsed > static_cast<double>(m_connectionTimeout)) {
        if (replaceTimedOutHub())
            return Dial::AwaitsManager;
        m_inProgress = false;
        m_connectErrno = ETIMEDOUT;
        const std::string address = getDialledAddr();
        const bool isXref = m_session.isCMconnection() && m_session.getisStarted() && isQueryXRefHUB();
        eprintf(isDialRepeated() ? EPF_DBUG : EPF_WARN,
                "HubClient::connectHost -(%s:%u) Connection timed out %s%d: (%d)%s",
                address.empty() ? "NULL" : address.c_str(), unsigned{getHubPort()},
                isXref ? "for Xref HUB " : "", m_fd.get(), ETIMEDOUT, errorText(ETIMEDOUT).c_str());
        m_isConnectionTimedOut = true;
        m_outage.begin(tp::Clock::monotonic());
        m_fd.close();
        m_connectionRetries += 1;
        return Dial::Failed;
    }
    eprintf(EPF_DBUG,
            "HubClient::connectHost - socket not ready; startTime = %f, endTime=%f, blockingTime =%f ",
            epochOf(m_connectStartTime), tp::Clock::now(), elapsed);
    m_isConnectionTimedOut = false;
    return Dial::UnderWay;
}

HubClient::Dial HubClient::failConnect(int error) {
    m_connectErrno = error;
    eprintf(isDialRepeated() ? EPF_DBUG : EPF_CRIT, "HubClient::connectHost -(%s) Error connect %d: (%d)%s",
            getHubAddr().c_str(), m_fd.get(), error, errorText(error).c_str());
    m_outage.begin(tp::Clock::monotonic());
    m_inProgress = false;
    m_fd.close();
    m_connectionRetries += 1;
    // Behind a connection manager a hub that can't be reached is replaced by another.
    m_requestHUBFromCM = m_session.isCMconnection();
    return Dial::Failed;
}

HubClient::Dial HubClient::finishConnect() {
    const double elapsed = secondsSince(m_connectStartTime);
    eprintf(
        EPF_DBUG,
        "HubClient::connectHost - getpeername success time; startTime = %f, endTime=%f, blockingTime =%f ",
        epochOf(m_connectStartTime), tp::Clock::now(), elapsed);
    m_inProgress = false;
    registerSocket();
    setInitHBTime();
    m_step.m_beginTime = tp::Clock::monotonic();
    m_connectionRetries += 1;
    m_isConnectionTimedOut = false;
    return Dial::Connected;
}

void HubClient::registerSocket() {
    const tp::MutexLock lock(m_huber_mutex);
    if (m_HUB_Event_Reactor == nullptr)
        return;
    m_HUB_Event_Reactor->regSocket(this, m_fd.get());
    m_HUB_Event_Reactor->watchReads(this);
    m_HUB_Event_Reactor->regActivity(this);
}

void HubClient::unregisterSocket() {
    const tp::MutexLock lock(m_huber_mutex);
    if (m_HUB_Event_Reactor == nullptr)
        return;
    m_HUB_Event_Reactor->unWatchReads(this);
    m_HUB_Event_Reactor->unWatchWrites(this);
    m_HUB_Event_Reactor->unRegSocket(this);
    m_readWaker.leave(*m_HUB_Event_Reactor);
    m_HUB_Event_Reactor->unRegActivity(this);
}

bool HubClient::isValidConnection() {
    pollfd watched{m_fd.get(), POLLIN | POLLHUP, 0};
    if (::poll(&watched, 1, 0) <= 0)
        return true;
    char byte = 0;
    const ssize_t got = ::recv(m_fd.get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    // Bytes that nobody takes would hide a hang-up for as long as reads are held.
    const bool isHungUp = m_readsHeld && (watched.revents & (POLLHUP | POLLERR)) != 0;
    if (got == 0 || isHungUp) {
        eprintf(EPF_DBUG, "pfd.revents=%x; POLLIN=%x; POLLHUP=%x\n", static_cast<unsigned>(watched.revents),
                static_cast<unsigned>(POLLIN), static_cast<unsigned>(POLLHUP));
        eprintf(m_outage.isUnderWay() ? EPF_DBUG : EPF_CRIT, "Lost Connection to HUB: %s\n",
                getHubAddr().c_str());
        return false;
    }
    if (got < 0) {
        const int error = errno;
        eprintf(EPF_DBUG, "%s: isValidConnection: recv ret=%zd; errno=%d (%s) fd=%d\n", getHubAddr().c_str(),
                got, error, errorText(error).c_str(), m_fd.get());
    }
    return true;
}

bool HubClient::isInitTimedOut(double) {
    const double heartbeat = getInitHBTime();
    if (m_readTimeout == 0 || m_fd.get() < 1 || inProgress() || heartbeat == 0.0)
        return false;
    const double elapsed = secondsSince(heartbeat);
    if (elapsed >= 0.0 && elapsed <= static_cast<double>(m_readTimeout))
        return isHandshakeTooLong();
    eprintf(EPF_INFO,
            "Heartbeat timeout during initialization on HUB: %s; curtime=%f; heartbeat_time=%f; "
            "readTimeout=%ld;  \n",
            getHubAddr().c_str(), tp::Clock::now(), epochOf(heartbeat), m_readTimeout);
    return true;
}

// A hub that gives one sign of life after the other and never gets to the end would hold up a start for ever.
bool HubClient::isHandshakeTooLong() const {
    const double limit =
        std::max(kHandshakeTimeouts * static_cast<double>(m_readTimeout), kLeastHandshakeLimit);
    const double elapsed = secondsSince(m_step.m_beginTime);
    if (elapsed <= limit)
        return false;
    eprintf(EPF_INFO, "The handshake with HUB %s is not complete after %.0f seconds", getHubAddr().c_str(),
            elapsed);
    return true;
}

bool HubClient::isHBTimedOut(double) {
    const double now = tp::Clock::monotonic();
    if (m_last_HB_check == 0.0)
        m_last_HB_check = now;
    const double limit = static_cast<double>(m_readTimeout);
    const double sinceCheck = now - m_last_HB_check;
    if (m_readTimeout == 0 || (sinceCheck >= 0.0 && sinceCheck < limit))
        return false;

    const tp::MutexLock lock(m_rqh_mutex);
    if (m_readQueueHandler == nullptr)
        return false;
    const tivra::Session::States state = m_session.getState();
    if (state != tivra::Session::TIVRA_SESSION_ESTABLISHED &&
        state != tivra::Session::TIVRA_SESSION_RECOVERY) {
        m_last_HB_check = now;
        return false;
    }
    const double heartbeat = m_readQueueHandler->getHBTime();
    const uint64_t idleCount = m_readQueueHandler->getHubIdleCount();
    bool isTimedOut = true;
    if (getHBSeen())
        isTimedOut = idleCount > static_cast<uint64_t>(m_readTimeout) && now - heartbeat > limit;
    if (isTimedOut)
        eprintf(EPF_INFO,
                "Heartbeat timeout on HUB: %s; curtime=%f; heartbeat_msg_time=%f; m_readTimeout=%ld; "
                "HubIdleCount=%lu; queryCnt=%ld \n",
                getHubAddr().c_str(), tp::Clock::now(), epochOf(heartbeat), m_readTimeout,
                static_cast<unsigned long>(idleCount), static_cast<long>(m_responseQueue->getQueryCount()));
    setHBSeen(false);
    m_last_HB_check = now;
    return isTimedOut;
}

void HubClient::reset() {
    eprintf(EPF_DBUG, "HubClient::reset(ENTRY): this=%p", static_cast<void*>(this));
    m_first_time = true;
    m_fd.close();
    m_logged_in = false;
    {
        const tp::MutexLock lock(m_text_mutex);
        m_suspended.store(false, std::memory_order_release);
        m_suspendReason.clear();
    }
    m_primaryUser.resetHub(this);
}

// What a close takes with it. What the client has learnt about its hub stays.
void HubClient::forgetConnection() {
    m_inProgress = false;
    m_connectStartTime = 0.0;
    m_initHBTime = 0.0;
    m_isConnectionTimedOut = false;
    m_last_HB_check = 0.0;
    m_frameCutShort = false;
    m_readsHeld = false;
    m_messagesLeft = false;
    // A download that the close has cut short is taken up again, or the hub's dictionary would stay
    // incomplete.
    if (isOutstanding(GET_DIC) && !m_known.m_haveDIC)
        m_known.m_dowloadDIC = true;
    m_step = ConversationState();
    if (zkvnParser != nullptr)
        zkvnParser->reset();
    if (kvnParser != nullptr)
        kvnParser->reset();
    if (framer != nullptr)
        framer->reset();
    waitForAllHubsToGetBoxPerms = false;
    m_continueEntitlements = false;
    m_xrefConnected = false;
    m_xrefRemove = false;
    setHBSeen(false);
}

void HubClient::closeConnection() {
    const bool wasReady = isReady();
    if (wasReady)
        m_responseQueue->printStats(false, false, 0.0);
    if (m_fd.get() < 0)
        return;
    m_outage.begin(tp::Clock::monotonic());
    unregisterSocket();
    m_fd.close();
    reset();
    {
        const tp::MutexLock lock(m_ready_mutex);
        m_ready = false;
    }
    m_last_reset_time = tp::Clock::monotonic();
    forgetConnection();
    // Behind a connection manager a hub that is lost, ready or not, is replaced by another.
    if (m_session.isCMconnection() && !getInitialHubDisconnected())
        m_requestHUBFromCM = true;
    if (HubEventReactor* const reactor = getReactor(); reactor != nullptr)
        reactor->forgetClient(this);
    // A first hub that the session lets go is no loss, nor is one that had not come up.
    if (wasReady && !getInitialHubDisconnected())
        m_session.countHubLoss(this);
    if (wasReady)
        m_session.endOutstanding(this);
}

void HubClient::suspendClient(const std::string& reason) {
    // Closing clears a suspension, so it comes first.
    closeConnection();
    const tp::MutexLock lock(m_text_mutex);
    m_suspendReason = reason;
    m_suspended.store(true, std::memory_order_release);
}

bool HubClient::closeIfOutOfStep() {
    if (!m_frameCutShort)
        return false;
    m_session.noteHubDown(this);
    closeConnection();
    return true;
}

} // namespace tivra_internal
