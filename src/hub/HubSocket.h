#pragma once

#include <sys/time.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <tp/ByteStream.h>

#include "hub/AddressTurn.h"
#include "hub/Outage.h"
#include "hub/RetryPace.h"
#include "hub/SocketHandle.h"
#include "tls/TlsSettings.h"

namespace tivra_internal {

class AllowedHubs;
class HubAddress;
class SessionStanding;
class TlsClient;
class TlsStream;
struct HubClientOptions;

/// The TCP connection to one hub, with the encryption over it where that is wanted: it dials, counts the
/// dials, tests whether the peer is there, and writes frames.
/// @thread hub, but for the getters that say otherwise. Differences of times are taken from the monotonic
/// clock.
class HubSocket {
public:
    enum class State {
        Closed,
        TimedOut,      ///< closed, since the hub has not answered in time
        AwaitsManager, ///< no socket yet: a connection manager is asked for a hub
        Dialling,
        Connected
    };
    /// How a dial has gone on.
    enum class Progress {
        Connected,
        UnderWay,
        TimedOut, ///< the socket is still open: replaceHub() or giveUp() is to follow
        Refused,
        NoSocket
    };

    /// Has the hub dialled at another address of its host's name; false when it may not be.
    using Move = std::function<bool(const std::string& address)>;

    /// `chance` gives numbers from 0 up to 1, for the pauses between dials.
    HubSocket(const HubAddress& address, const SessionStanding& session, const HubClientOptions& options,
              std::function<double()> chance, Move move = {});
    ~HubSocket();
    HubSocket(const HubSocket&) = delete;
    HubSocket& operator=(const HubSocket&) = delete;

    // --- state; @thread any ---
    [[nodiscard]] int fd() const { return m_fd.get(); }
    [[nodiscard]] State state() const { return m_state.load(std::memory_order_relaxed); }
    [[nodiscard]] bool isConnected() const { return state() == State::Connected; }
    [[nodiscard]] bool isInProgress() const {
        return state() == State::AwaitsManager || state() == State::Dialling;
    }
    /// The system's code of the last failed dial, 0 when there was none.
    [[nodiscard]] int connectErrno() const { return m_connectErrno.load(std::memory_order_relaxed); }
    /// The same for people. @thread hub
    [[nodiscard]] std::string connectFault() const;
    /// What the encryption, or the want of one, has ended the last attempt with; empty for any other end.
    /// @thread hub
    [[nodiscard]] const std::string& encryptionFault() const { return m_connectFault; }
    /// The same of a connection that came to its end before it was of use. @thread hub
    void noteEncryptionFault(const std::string& fault) { m_connectFault = fault; }

    // --- dialling ---
    void noteDial();
    /// A dial may begin now. The first one of an outage may at once, unless the dial before is too close; the
    /// others after a pause, or without pauses at the turns that the supervision makes once a second.
    [[nodiscard]] bool mayDial(bool isTurn) const;
    /// With pauses: when that is, by the monotonic clock.
    [[nodiscard]] std::optional<double> nextDial() const;
    /// The attempt has ended before the hub was ready.
    void noteFailedAttempt();
    /// The hub was dialled before, and hasn't been ready since.
    [[nodiscard]] bool isDialRepeated() const { return m_outage.isDialRepeated(); }
    /// Opens a socket and begins to connect it.
    [[nodiscard]] Progress begin();
    /// Looks for the hub's answer.
    [[nodiscard]] Progress proceed();
    /// A dial under way waits for bytes, not for the socket to be writable.
    [[nodiscard]] bool dialAwaitsBytes() const { return m_handshakeAwaitsBytes; }
    /// The dial that has timed out goes on with another hub, which a connection manager is asked for.
    void replaceHub();
    /// The dial that has timed out has failed. `purpose` stands in the log line, which names no other.
    void giveUp(const char* purpose);
    /// The attempt goes on without a socket.
    void awaitManager();
    /// The attempt has ended, or begins anew.
    void abandon() { close(State::Closed); }

    // --- the count of dials; @thread any ---
    [[nodiscard]] bool isPastRetryLimit() const;
    [[nodiscard]] long retryLimit() const { return m_connectionRetryLimit; }
    void restartRetries() { m_connectionRetries = 0; }
    /// The dial has failed, and who wants to know has been told: a start may end on this very count.
    void countFailedDial() { m_connectionRetries += 1; }

    // --- the connection ---
    /// What is to be read. Whoever gets it uses it before the socket is closed.
    [[nodiscard]] tp::ByteStream stream() const;
    /// A read goes on only once the socket takes bytes.
    [[nodiscard]] bool readAwaitsRoom() const;
    /// What was wrong with the encryption of what has come; empty when nothing was.
    [[nodiscard]] std::string streamFault() const;
    /// False when the peer has closed. `bytesAreLeft`: what has come is not taken at present.
    [[nodiscard]] bool isValid(bool bytesAreLeft) const;
    /// The peer has sent bytes that have not been read yet.
    [[nodiscard]] bool hasUnreadBytes() const;
    void noteLoss();
    void close() { close(State::Closed); }
    /// The hub is ready: the next dial is a first one again.
    void noteReady();

    // --- writing ---
    /// Frames and writes a request text: 1 sent, -1 failed, -2 not writable within `timeout` (null: no
    /// limit).
    [[nodiscard]] int sendRequest(const char* text, const timeval* timeout);
    /// Writes a frame; returns the bytes written, -1 or -2 as sendRequest. A frame that has been begun ends
    /// whole, unless the peer stalls or the session stops: then the stream is out of step.
    [[nodiscard]] int writen(int fd, const char* buf, int n, const timeval* timeout);
    /// The hub has got part of a frame: the connection is of no use any more.
    [[nodiscard]] bool isOutOfStep() const { return m_frameCutShort; }

private:
    enum class Wait { Writable, TimedOut, Failed };

    [[nodiscard]] Progress dial();
    [[nodiscard]] Progress dialNextAddress();
    [[nodiscard]] bool moveOn();
    [[nodiscard]] bool mayBeDialled();
    [[nodiscard]] bool openSocket();
    [[nodiscard]] Progress refuse(int error);
    /// `head` begins the line of the log.
    [[nodiscard]] Progress refuse(int error, const char* head, std::string fault);
    [[nodiscard]] Progress refuseSecurely(int error, std::string fault) {
        return refuse(error, "no secure connection", std::move(fault));
    }
    [[nodiscard]] Progress encrypt();
    [[nodiscard]] Progress finish();
    [[nodiscard]] Progress notDone(bool signalled);
    void close(State state);
    [[nodiscard]] bool hasBegunWrite(int written) const;
    [[nodiscard]] Wait waitWritable(int fd, const timeval* timeout, int left, int total) const;
    [[nodiscard]] Wait waitForPeer(int fd, int left, int total) const;

    const HubAddress& m_address;
    const SessionStanding& m_session;
    const long m_connectionTimeout; ///< seconds
    const long m_connectionRetryLimit;
    const long m_readTimeout; ///< seconds
    const double m_dialNotBefore;
    const bool m_stampArrivals; ///< by the kernel
    const Move m_move;
    const TlsSettings m_tlsSettings;
    const std::shared_ptr<const AllowedHubs> m_allowedHubs; ///< null: all are
    const bool m_onlyAllowedHubs;

    SocketHandle m_fd;
    std::unique_ptr<TlsClient> m_tls;    ///< null without encryption
    std::unique_ptr<TlsStream> m_stream; ///< over m_fd; null for a plain connection
    AddressTurn m_turn;
    bool m_handshakeAwaitsBytes = false;
    std::string m_connectFault; ///< where m_connectErrno doesn't say it all
    std::string m_warnedOf;     ///< the last address elsewhere that the log knows of
    std::atomic<State> m_state{State::Closed};
    std::atomic<int> m_connectErrno{0};
    std::atomic<long> m_connectionRetries{0}; ///< dials since the last ready
    Outage m_outage;
    std::optional<RetryPace> m_pace; ///< with pauses
    std::atomic<double> m_lastDial{-1e9};
    double m_connectStartTime = 0.0;
    double m_share = 0.0;         ///< seconds that this address may take
    bool m_frameCutShort = false; ///< see isOutOfStep
};

} // namespace tivra_internal
