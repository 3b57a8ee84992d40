// How a hub client writes: framing a request and putting the frame on the socket, whole or not at all.
#include "hub/HubClient.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include <tp/Clock.h>
#include <tp/eprintf.h>

#include "hub/HubSession.h"
#include "kvnparse/FrameFormat.h"

namespace tivra_internal {

namespace {

constexpr int kWaitSliceMilliseconds = 100;
constexpr double kDefaultStallSeconds = 30.0;

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

int HubClient::buildKvnMsg(const char* text, size_t len, char* out) {
    KVNAPI::writeFrameHeader(out, static_cast<uint32_t>(len));
    std::memcpy(out + KVNAPI::KVN_HEADER_SIZE, text, len);
    out[KVNAPI::KVN_HEADER_SIZE + len] = KVNAPI::ETX;
    out[KVNAPI::KVN_FRAME_EXTRA + len] = '\0';
    return static_cast<int>(len + KVNAPI::KVN_FRAME_EXTRA);
}

int HubClient::sendRequest(const char* text, timeval* timeout) {
    const int fd = m_fd.get();
    if (fd < 0) {
        eprintf(EPF_CRIT, "HubClient::sendRequest - socket descriptor not valid");
        return -1;
    }
    const size_t length = std::strlen(text);
    if (length > kMaxRequestText) {
        eprintf(EPF_CRIT, "HubClient::sendRequest - Maximum Length Exceeded %zu", length);
        return -1;
    }
    std::array<char, kMaxRequestText + kFrameOverhead> frame;
    const int size = buildKvnMsg(text, length, frame.data());
    eprintf(EPF_DBUG, "HubClient::sendRequest - sending %s to %s", text, getHubAddr().c_str());
    const int written = writen(fd, frame.data(), size, timeout);
    if (written == size) {
        setInitHBTime();
        return 1;
    }
    if (written == -2)
        return -2;
    eprintf(EPF_WARN, "%s: HubClient::sendRequest - writen returned %d expecting %d", getHubAddr().c_str(),
            written, size);
    return -1;
}

int HubClient::writen(int fd, const char* buf, int n, const timeval* timeout) {
    // A stream that is out of step takes nothing more.
    if (fd < 0 || m_frameCutShort)
        return -1;
    int written = 0;
    int result = 0;
    while (written < n) {
        // Only a frame that has not been begun may be given up for lack of time.
        const Wait wait = written == 0 && timeout != nullptr ? waitWritable(fd, timeout, n - written, written)
                                                             : waitForPeer(fd, n - written, written);
        if (wait == Wait::TimedOut)
            return -2;
        result = -1;
        if (wait == Wait::Failed)
            break;
        const ssize_t sent = ::send(fd, buf + written, static_cast<size_t>(n - written), MSG_NOSIGNAL);
        if (sent < 0 && (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK))
            continue;
        if (sent <= 0) {
            result = sent < 0 ? -1 : written;
            break;
        }
        written += static_cast<int>(sent);
        result = written;
    }
    if (written > 0 && written < n)
        m_frameCutShort = true;
    return result;
}

// One wait of the caller's length, taken up again when a signal cuts it short.
HubClient::Wait HubClient::waitWritable(int fd, const timeval* timeout, int left, int written) {
    const timespec wait = toTimespec(*timeout);
    for (;;) {
        short events = 0;
        const int rc = pollWritable(fd, wait, events);
        if (rc > 0)
            return (events & (POLLOUT | POLLERR | POLLHUP)) != 0 ? Wait::Writable : Wait::Failed;
        if (rc == 0) {
            eprintf(EPF_DBUG,
                    "%s: HubClient::writen - select timeout hit; aborting write; nleft=%d; nbytes=%d\n",
                    getHubAddr().c_str(), left, written);
            return Wait::TimedOut;
        }
        if (errno != EINTR) {
            eprintf(EPF_WARN, "%s: HubClient::writen - select error: errno=%d\n", getHubAddr().c_str(),
                    errno);
            return Wait::Failed;
        }
    }
}

// Waits for a peer that takes no data, until it does, the session stops or the peer has stalled for too long.
HubClient::Wait HubClient::waitForPeer(int fd, int left, int written) {
    const double limit = m_readTimeout == 0 ? kDefaultStallSeconds : static_cast<double>(m_readTimeout);
    const double start = tp::Clock::monotonic();
    constexpr timespec slice{0, kWaitSliceMilliseconds * 1'000'000L};
    for (;;) {
        short events = 0;
        const int rc = pollWritable(fd, slice, events);
        if (rc > 0)
            return (events & (POLLOUT | POLLERR | POLLHUP)) != 0 ? Wait::Writable : Wait::Failed;
        if (rc < 0 && errno != EINTR) {
            eprintf(EPF_WARN, "%s: HubClient::writen - select error: errno=%d\n", getHubAddr().c_str(),
                    errno);
            return Wait::Failed;
        }
        if (m_session.isStopping() || tp::Clock::monotonic() - start > limit) {
            eprintf(EPF_WARN,
                    "%s: HubClient::writen - the HUB takes no data; giving up; nleft=%d; nbytes=%d\n",
                    getHubAddr().c_str(), left, written);
            return Wait::Failed;
        }
    }
}

} // namespace tivra_internal
