#include "hub/HubSocket.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include <tp/Clock.h>
#include <tp/aboveStandardStreams.h>
#include <tp/eprintf.h>

#include "config/AllowedHubs.h"
#include "config/NameLookup.h"
#include "hub/ErrorText.h"
#include "hub/HubAddress.h"
#include "hub/HubClientOptions.h"
#include "hub/MonotonicTime.h"
#include "hub/RequestFrame.h"
#include "hub/SessionStanding.h"
#include "receive/StampedRead.h"
#include "tls/TlsClient.h"

namespace tivra_internal {

namespace {

constexpr int kWaitSliceMilliseconds = 100;
constexpr double kDefaultStallSeconds = 30.0;
/// The least time between two dials, in seconds: a hub that comes up and is lost again and again is dialled
/// no more than once a second, and a first dial is not followed soon by that of the next turn.
constexpr double kBeforeFirstDial = 1.0;
constexpr double kBeforeDial = 0.9;
/// How long the handshake of the last dial that is allowed has before the count of dials is held against it.
constexpr double kForHandshake = 0.9;

int pollWritable(int fd, const timespec& wait, short& events) {
    pollfd watched{fd, POLLOUT, 0};
    const int rc = ::ppoll(&watched, 1, &wait, nullptr);
    events = watched.revents;
    return rc;
}

timespec toTimespec(const timeval& time) {
    return {std::max<time_t>(time.tv_sec, 0), std::clamp<long>(time.tv_usec, 0, 999'999) * 1000};
}

} // namespace

HubSocket::HubSocket(const HubAddress& address, const SessionStanding& session,
                     const HubClientOptions& options, std::function<double()> chance, Move move)
    : m_address(address)
    , m_session(session)
    , m_connectionTimeout(options.connectionTimeout)
    , m_connectionRetryLimit(options.connectionRetryLimit)
    , m_readTimeout(options.readTimeout)
    , m_dialNotBefore(options.dialNotBefore)
    , m_stampArrivals(options.stampArrivals)
    , m_move(std::move(move))
    , m_tlsSettings(options.tls)
    , m_allowedHubs(options.allowedHubs)
    , m_onlyAllowedHubs(options.onlyAllowedHubs)
    , m_tls(options.tls.isOn ? TlsClient::make(options.tls) : nullptr)
    , m_turn(options.addressesOfName, options.address) {
    if (options.pauses)
        m_pace.emplace(std::move(chance), *options.pauses);
}

HubSocket::~HubSocket() = default;

HubSocket::Progress HubSocket::begin() {
    m_connectErrno = 0;
    m_connectFault.clear();
    m_state = State::Closed;
    m_turn.end(); // what is missing here is missing at every address
    if (m_tlsSettings.isRequired && !m_tlsSettings.isOn)
        return refuseSecurely(EPERM,
                              "REQUIRE_TLS_BOOL allows no plain connection: set TLS_BOOL, or give tls://");
    if (m_tlsSettings.isOn && m_tls == nullptr)
        return refuseSecurely(EPROTONOSUPPORT, "this library has been built without TLS: build it with "
                                               "-DTIVRA_TLS=ON, or set TLS_BOOL to false");
    m_turn.begin(tp::Clock::monotonic(), static_cast<double>(m_connectionTimeout));
    if (m_turn.count() < 2 || !m_move || (!m_move(m_turn.address()) && !moveOn()))
        m_turn.end();
    return dial();
}

// The next address of the host's name that may be dialled.
bool HubSocket::moveOn() {
    while (m_turn.advance())
        if (m_move(m_turn.address()))
            return true;
    return false;
}

HubSocket::Progress HubSocket::dial() {
    sockaddr_in peer{};
    if (!m_address.toSocketAddress(peer))
        return looksLikeName(m_address.dialled())
                   ? refuse(EINVAL, "not dialled",
                            "its name stands for no address, as the log says where it was looked up; a start "
                            "looks it up again")
                   : refuse(EINVAL);
    if (!mayBeDialled())
        return refuse(EACCES, "not dialled",
                      "ONLY_ALLOWED_HUBS_BOOL is set, and the address is none that is configured or allowed: "
                      "ALLOWED_HUBS_STRING can name it");
    if (!openSocket())
        return Progress::NoSocket;
    eprintf(isDialRepeated() ? EPF_DBUG : EPF_INFO, "Connecting to %s with connection timeout=%ld seconds",
            m_address.shown().c_str(), m_connectionTimeout);
    m_connectStartTime = tp::Clock::monotonic();
    m_share = m_turn.share(m_connectStartTime);
    if (::connect(fd(), reinterpret_cast<const sockaddr*>(&peer), sizeof(peer)) == 0)
        return encrypt();
    if (errno != EINPROGRESS)
        return refuse(errno);
    m_state = State::Dialling;
    return Progress::UnderWay;
}

// A hub may name others at any address, and whoever is dialled gets the login.
bool HubSocket::mayBeDialled() {
    const std::string own = m_address.own();
    if (m_allowedHubs == nullptr || m_allowedHubs->contain(own) ||
        m_allowedHubs->contain(m_address.dialled()))
        return true;
    if (!m_onlyAllowedHubs && std::exchange(m_warnedOf, own) != own)
        eprintf(
            EPF_WARN,
            "HUB %s has been named by others and is elsewhere than the hosts: it is dialled all the same, "
            "and gets the login. ALLOWED_HUBS_STRING can name it, ONLY_ALLOWED_HUBS_BOOL keep it out",
            m_address.shown().c_str());
    return !m_onlyAllowedHubs;
}

// A socket that blocks nobody and isn't inherited. Without one the cause is stored.
bool HubSocket::openSocket() {
    m_fd.assign(tp::aboveStandardStreams(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)));
    if (m_fd.get() < 0) {
        m_connectErrno = errno;
        eprintf(isDialRepeated() ? EPF_DBUG : EPF_CRIT,
                "HubClient::connectHost - error in socket, errno = %d\n", connectErrno());
        noteFailedAttempt();
        return false;
    }
    if (const int rc = ::fcntl(m_fd.get(), F_SETFL, O_NONBLOCK); rc < 0) {
        m_connectErrno = errno;
        eprintf(EPF_CRIT, "HubClient::connectHost - Error %d on set non-blocking FD %d: (%d)%s", rc,
                m_fd.get(), connectErrno(), errorText(connectErrno()).c_str());
        close();
        noteFailedAttempt();
        return false;
    }
    if (m_stampArrivals)
        stampArrivals(m_fd.get());
    return true;
}

void HubSocket::noteDial() {
    m_outage.noteDial();
    m_lastDial = tp::Clock::monotonic();
}

bool HubSocket::mayDial(bool isTurn) const {
    if (state() == State::Dialling)
        return true;
    if (secondsSince(m_dialNotBefore) < 0.0)
        return false;
    if (const std::optional<double> next = nextDial(); next && state() != State::AwaitsManager)
        return tp::Clock::monotonic() >= *next;
    if (!isTurn && (m_outage.isDialled() || state() == State::AwaitsManager))
        return false;
    return secondsSince(m_lastDial) >= (isTurn ? kBeforeDial : kBeforeFirstDial);
}

std::optional<double> HubSocket::nextDial() const {
    if (!m_pace)
        return std::nullopt;
    const double afterReady = m_outage.isDialled() ? 0.0 : m_lastDial + kBeforeFirstDial;
    return std::max({m_dialNotBefore, afterReady, m_pace->nextDial()});
}

void HubSocket::noteFailedAttempt() {
    if (m_pace)
        m_pace->refused(tp::Clock::monotonic());
}

HubSocket::Progress HubSocket::proceed() {
    if (m_stream != nullptr)
        return encrypt();
    pollfd watched{fd(), POLLOUT, 0};
    const bool signalled = ::poll(&watched, 1, 0) > 0;
    sockaddr_in peer{};
    socklen_t length = sizeof(peer);
    if (::getpeername(fd(), reinterpret_cast<sockaddr*>(&peer), &length) != 0)
        return notDone(signalled);
    return encrypt();
}

HubSocket::Progress HubSocket::notDone(bool signalled) {
    if (signalled) {
        int error = 0;
        socklen_t length = sizeof(error);
        if (::getsockopt(fd(), SOL_SOCKET, SO_ERROR, &error, &length) == 0 && error != 0)
            return refuse(error);
    }
    const double elapsed = secondsSince(m_connectStartTime);
    if (elapsed < 0.0 || elapsed > m_share)
        return m_turn.isLast() ? Progress::TimedOut : refuse(ETIMEDOUT);
    eprintf(EPF_DBUG,
            "HubClient::connectHost - socket not ready; startTime = %f, endTime=%f, blockingTime =%f ",
            epochOf(m_connectStartTime), tp::Clock::now(), elapsed);
    return Progress::UnderWay;
}

HubSocket::Progress HubSocket::refuse(int error) {
    m_connectErrno = error;
    eprintf(isDialRepeated() ? EPF_DBUG : EPF_CRIT, "HubClient::connectHost -(%s) Error connect %d: (%d)%s",
            m_address.shown().c_str(), fd(), error, errorText(error).c_str());
    return dialNextAddress();
}

HubSocket::Progress HubSocket::refuse(int error, const char* head, std::string fault) {
    m_connectErrno = error;
    eprintf(isDialRepeated() ? EPF_DBUG : EPF_CRIT, "HubClient::connectHost -(%s) %s: %s",
            m_address.shown().c_str(), head, fault.c_str());
    m_connectFault = std::move(fault);
    return dialNextAddress();
}

// This address leads nowhere; it is a failed dial when the name has no other one that is left.
HubSocket::Progress HubSocket::dialNextAddress() {
    const std::string before = m_address.shown();
    if (!m_turn.isLast()) {
        close();
        if (moveOn()) {
            eprintf(isDialRepeated() ? EPF_DBUG : EPF_INFO,
                    "The name of the host %s stands for %s too, which is dialled now", before.c_str(),
                    m_address.shown().c_str());
            m_connectErrno = 0;
            m_connectFault.clear();
            return dial();
        }
    }
    noteLoss();
    close();
    noteFailedAttempt();
    return Progress::Refused;
}

std::string HubSocket::connectFault() const {
    std::string fault = m_connectFault.empty() ? errorText(connectErrno()) : m_connectFault;
    if (m_turn.count() > 1)
        fault += ", at the last of the " + std::to_string(m_turn.count()) + " addresses of its host";
    return fault;
}

// The connection is up; the dial is done once it is encrypted too, where that is wanted.
HubSocket::Progress HubSocket::encrypt() {
    if (m_tls == nullptr)
        return finish();
    m_state = State::Dialling;
    std::string fault;
    if (m_stream == nullptr)
        m_stream = m_tls->open(fd(), m_address.own(), fault);
    if (m_stream == nullptr)
        return refuseSecurely(EPROTO, std::move(fault));
    const TlsStream::Step step = m_stream->handshake();
    m_handshakeAwaitsBytes = step == TlsStream::Step::AwaitsBytes;
    if (step == TlsStream::Step::Failed)
        return refuseSecurely(EPROTO, m_stream->fault());
    if (step != TlsStream::Step::Done)
        return notDone(false);
    eprintf(isDialRepeated() ? EPF_DBUG : EPF_INFO, "The connection to %s is encrypted: %s",
            m_address.shown().c_str(), m_stream->description().c_str());
    return finish();
}

HubSocket::Progress HubSocket::finish() {
    const double elapsed = secondsSince(m_connectStartTime);
    eprintf(
        EPF_DBUG,
        "HubClient::connectHost - getpeername success time; startTime = %f, endTime=%f, blockingTime =%f ",
        epochOf(m_connectStartTime), tp::Clock::now(), elapsed);
    m_state = State::Connected;
    m_connectionRetries += 1;
    return Progress::Connected;
}

void HubSocket::giveUp(const char* purpose) {
    m_connectErrno = ETIMEDOUT;
    if (m_stream != nullptr)
        m_connectFault = "the peer hasn't finished the TLS handshake within the connection time-out: it may "
                         "speak no TLS, or be overloaded";
    const std::string address = m_address.dialled();
    eprintf(isDialRepeated() ? EPF_DBUG : EPF_WARN,
            "HubClient::connectHost -(%s:%u) Connection timed out %s%d: (%d)%s",
            address.empty() ? "NULL" : address.c_str(), unsigned{m_address.port()}, purpose, fd(), ETIMEDOUT,
            errorText(ETIMEDOUT).c_str());
    noteLoss();
    close(State::TimedOut);
    noteFailedAttempt();
}

// It counts like any failed dial, or a start would go on for as long as the manager has hubs to hand out.
void HubSocket::replaceHub() {
    eprintf(isDialRepeated() ? EPF_DBUG : EPF_WARN,
            "HubClient::connectHost -(%s:%u) Connection timed out (retry limit not exceeded) m_fd = "
            "%d;Request CM for a different HUB\n",
            m_address.dialled().c_str(), unsigned{m_address.port()}, fd());
    m_connectionRetries += 1;
    m_outage.noteDial();
    awaitManager();
}

void HubSocket::awaitManager() {
    close(State::AwaitsManager);
}

void HubSocket::close(State state) {
    m_state = state;
    if (m_stream != nullptr)
        m_stream->end();
    m_stream.reset();
    m_handshakeAwaitsBytes = false;
    // A child that the host has forked may hold the descriptor too: the connection ends all the same.
    if (fd() >= 0)
        ::shutdown(fd(), SHUT_RDWR);
    m_fd.close();
    m_frameCutShort = false;
}

bool HubSocket::isPastRetryLimit() const {
    const bool hasJustConnected = isConnected() && secondsSince(m_lastDial) < kForHandshake;
    const bool isPast =
        !hasJustConnected && m_connectionRetries.load(std::memory_order_relaxed) > m_connectionRetryLimit;
    if (isPast)
        eprintf(EPF_INFO, "Connection retry limit of %ld exceeded for HUB: %s\n", m_connectionRetryLimit,
                m_address.shown().c_str());
    return isPast;
}

bool HubSocket::isValid(bool bytesAreLeft) const {
    if (m_stream != nullptr && m_stream->hasEnded() && !m_stream->hasUnread()) {
        eprintf(m_outage.isUnderWay() ? EPF_DBUG : EPF_CRIT, "Lost Connection to HUB: %s\n",
                m_address.shown().c_str());
        return false;
    }
    pollfd watched{fd(), POLLIN | POLLHUP, 0};
    if (::poll(&watched, 1, 0) <= 0)
        return true;
    char byte = 0;
    const ssize_t got = ::recv(fd(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    // The peer has ended, but what came before lies in the encryption still.
    const bool hasEnded = got == 0 && !stream().hasUnread();
    // Bytes that nobody takes would hide a hang-up for as long as reads are held.
    const bool isHungUp = bytesAreLeft && (watched.revents & (POLLHUP | POLLERR)) != 0;
    if (hasEnded || isHungUp) {
        eprintf(EPF_DBUG, "pfd.revents=%x; POLLIN=%x; POLLHUP=%x\n", static_cast<unsigned>(watched.revents),
                static_cast<unsigned>(POLLIN), static_cast<unsigned>(POLLHUP));
        eprintf(m_outage.isUnderWay() ? EPF_DBUG : EPF_CRIT, "Lost Connection to HUB: %s\n",
                m_address.shown().c_str());
        return false;
    }
    if (got < 0) {
        const int error = errno;
        eprintf(EPF_DBUG, "%s: isValidConnection: recv ret=%zd; errno=%d (%s) fd=%d\n",
                m_address.shown().c_str(), got, error, errorText(error).c_str(), fd());
    }
    return true;
}

bool HubSocket::hasUnreadBytes() const {
    int count = 0;
    return stream().hasUnread() || (::ioctl(fd(), FIONREAD, &count) == 0 && count > 0);
}

tp::ByteStream HubSocket::stream() const {
    return {fd(), m_stream.get()};
}

bool HubSocket::readAwaitsRoom() const {
    return m_stream != nullptr && m_stream->readAwaitsRoom();
}

std::string HubSocket::streamFault() const {
    return m_stream != nullptr ? m_stream->fault() : std::string();
}

void HubSocket::noteLoss() {
    m_outage.begin(tp::Clock::monotonic());
}

void HubSocket::noteReady() {
    if (m_outage.isUnderWay())
        eprintf(EPF_INFO, "HUB %s:%d is back after %.1f seconds", m_address.dialled().c_str(),
                m_address.port(), m_outage.secondsUntil(tp::Clock::monotonic()));
    m_outage.end();
    m_turn.noteReady();
    if (m_pace)
        m_pace->accepted();
}

int HubSocket::sendRequest(const char* text, const timeval* timeout) {
    const int socket = fd();
    if (socket < 0) {
        eprintf(EPF_CRIT, "HubClient::sendRequest - socket descriptor not valid");
        return -1;
    }
    const std::size_t length = std::strlen(text);
    if (length > kMaxRequestText) {
        eprintf(EPF_CRIT, "HubClient::sendRequest - Maximum Length Exceeded %zu", length);
        return -1;
    }
    std::array<char, kMaxRequestText + kFrameOverhead> frame;
    const int size = buildKvnMsg(text, length, frame.data());
    eprintf(EPF_DBUG, "HubClient::sendRequest - sending %s to %s", text, m_address.shown().c_str());
    const int written = writen(socket, frame.data(), size, timeout);
    if (written == size)
        return 1;
    if (written == -2)
        return -2;
    eprintf(EPF_WARN, "%s: HubClient::sendRequest - writen returned %d expecting %d",
            m_address.shown().c_str(), written, size);
    return -1;
}

int HubSocket::writen(int fd, const char* buf, int n, const timeval* timeout) {
    // A stream that is out of step takes nothing more.
    if (fd < 0 || m_frameCutShort)
        return -1;
    const tp::ByteStream stream(fd, m_stream.get());
    int written = 0;
    int result = 0;
    while (written < n) {
        // Only a frame that has not been begun may be given up for lack of time.
        const Wait wait = timeout != nullptr && !hasBegunWrite(written)
                              ? waitWritable(fd, timeout, n - written, written)
                              : waitForPeer(fd, n - written, written);
        if (wait == Wait::TimedOut)
            return -2;
        result = -1;
        if (wait == Wait::Failed)
            break;
        const ssize_t sent = stream.write(buf + written, static_cast<std::size_t>(n - written));
        if (sent < 0 && (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK))
            continue;
        if (sent <= 0) {
            result = sent < 0 ? -1 : written;
            break;
        }
        written += static_cast<int>(sent);
        result = written;
    }
    if (written < n && hasBegunWrite(written))
        m_frameCutShort = true;
    return result;
}

// The peer may have got a part of it, which an encryption doesn't count before it has gone out whole.
bool HubSocket::hasBegunWrite(int written) const {
    return written > 0 || (m_stream != nullptr && m_stream->isWriting());
}

// One wait of the caller's length, taken up again when a signal cuts it short.
HubSocket::Wait HubSocket::waitWritable(int fd, const timeval* timeout, int left, int written) const {
    const timespec wait = toTimespec(*timeout);
    for (;;) {
        short events = 0;
        const int rc = pollWritable(fd, wait, events);
        if (rc > 0)
            return (events & (POLLOUT | POLLERR | POLLHUP)) != 0 ? Wait::Writable : Wait::Failed;
        if (rc == 0) {
            eprintf(EPF_DBUG,
                    "%s: HubClient::writen - select timeout hit; aborting write; nleft=%d; nbytes=%d\n",
                    m_address.shown().c_str(), left, written);
            return Wait::TimedOut;
        }
        if (errno != EINTR) {
            eprintf(EPF_WARN, "%s: HubClient::writen - select error: errno=%d\n", m_address.shown().c_str(),
                    errno);
            return Wait::Failed;
        }
    }
}

// Waits for a peer that takes no data, until it does, the session stops or the peer has stalled for too long.
HubSocket::Wait HubSocket::waitForPeer(int fd, int left, int written) const {
    const double limit = m_readTimeout == 0 ? kDefaultStallSeconds : static_cast<double>(m_readTimeout);
    const double start = tp::Clock::monotonic();
    constexpr timespec slice{0, kWaitSliceMilliseconds * 1'000'000L};
    for (;;) {
        short events = 0;
        const int rc = pollWritable(fd, slice, events);
        if (rc > 0)
            return (events & (POLLOUT | POLLERR | POLLHUP)) != 0 ? Wait::Writable : Wait::Failed;
        if (rc < 0 && errno != EINTR) {
            eprintf(EPF_WARN, "%s: HubClient::writen - select error: errno=%d\n", m_address.shown().c_str(),
                    errno);
            return Wait::Failed;
        }
        if (m_session.isStopping() || tp::Clock::monotonic() - start > limit) {
            eprintf(EPF_WARN,
                    "%s: HubClient::writen - the HUB takes no data; giving up; nleft=%d; nbytes=%d\n",
                    m_address.shown().c_str(), left, written);
            return Wait::Failed;
        }
    }
}

} // namespace tivra_internal
