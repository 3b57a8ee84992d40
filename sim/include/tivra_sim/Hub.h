#pragma once

#include "tivra_sim/HubConfig.h"
#include "tivra_sim/Request.h"
#include "tivra_sim/Tokens.h"
#include "tivra_sim/TradingDay.h"
#include "tivra_sim/Wire.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tivra_sim {

class GroupDirectory;
class HubEngine;

/// What a hub has done so far. One consistent view, at most a moment old.
struct HubStatistics {
    std::size_t connections = 0;   ///< open now
    std::size_t loggedIn = 0;      ///< of these, logged in
    std::size_t subscriptions = 0; ///< (connection, symbol) pairs now, without the system source
    std::size_t accepted = 0;      ///< connections ever accepted
    std::size_t requests = 0;      ///< requests ever received
    std::size_t protocolErrors =
        0;                        ///< connections that were closed because their bytes were no request frames
    std::uint64_t framesSent = 0; ///< frames handed to the sockets, answers and updates alike
    std::uint64_t bytesSent = 0;  ///< bytes taken by the sockets
    std::uint64_t updatesSent = 0; ///< untagged data records handed to the sockets, without the system source
    std::uint64_t playbackEvents =
        0; ///< events of the file played, whether or not somebody had subscribed them
    std::uint64_t playbackSent = 0;    ///< messages that these made, one per subscriber
    std::uint64_t playbackLeftOut = 0; ///< of Playback::bodies, that nobody can have subscribed
    std::uint64_t playbackDropped = 0; ///< with Playback::dropsForSlow, messages left out for slow clients
    std::uint64_t playbackDroppedBytes = 0; ///< their bytes
    std::size_t slowClients = 0;            ///< connections, ever, that some were left out for
    double playbackSeconds = 0.0;           ///< from its start to its end, or to now
    double playbackLateness = 0.0;          ///< seconds that an event was played after its time, at the most
    bool playbackRunning = false;           ///< started and not yet finished
    bool playbackFinished = false;          ///< all played, and every byte of it taken by the sockets

    [[nodiscard]] bool operator==(const HubStatistics& other) const noexcept;
};

/// A request for updates that stands with a hub.
struct PresentSubscription {
    std::int64_t tag = -1; ///< of the request that made it
    int source = -1;       ///< -1 covers every source
    std::string
        pattern; ///< the symbol or wildcard as asked for; empty when an alternate identifier was named
    bool isWildcard = false;
    std::vector<std::string> symbols; ///< that it covers now
};

/// A hub in a box: a thread of its own with real sockets, which logs clients in, answers their requests and
/// sends them data. Made for tests, demonstrations and benchmarks:
///
///     tivra_sim::Hub hub(tivra_sim::HubConfig::realistic());
///     hub.start();
///     connectTo("127.0.0.1", hub.port());
///
/// All operations may be called from any thread, a script (see script()) among them, but for start, stop and
/// restart, which belong to the owner's threads. Those that change what the hub does have taken effect when
/// they return.
class Hub {
public:
    using Deadline = std::chrono::milliseconds;
    using Frames = std::vector<std::string>;
    /// Asked for every request, on the hub's thread; it must not throw. The frames (complete, see
    /// encodeFrame, or whatever bytes a test wants) are sent in place of the hub's answer; an empty list
    /// withholds it; no value leaves it to the hub.
    using Script = std::function<std::optional<Frames>(const Request&)>;

    explicit Hub(HubConfig config = HubConfig::realistic());
    ~Hub();
    Hub(const Hub&) = delete;
    Hub& operator=(const Hub&) = delete;

    /// Listens and serves. Throws std::system_error when the port cannot be had, std::runtime_error when the
    /// playback file cannot be read.
    void start();
    /// Closes all connections and ends the thread. Requests and counters stay readable. No effect when not
    /// running.
    void stop();
    /// Stops and starts on the same port, with the values, requests and counters kept.
    void restart();
    [[nodiscard]] bool isRunning() const;

    /// The port it listens on, 0 before the first start. It is kept while the hub is stopped: connections are
    /// refused, and the system gives the port to nobody who asks for a free one.
    [[nodiscard]] std::uint16_t port() const;
    /// "address:port", the form in which a client names a host.
    [[nodiscard]] std::string hostString() const;
    [[nodiscard]] const HubConfig& config() const;

    /// @name What has happened
    /// @{
    [[nodiscard]] HubStatistics statistics() const;
    /// What stands now, without the system source: connection by connection, in the order of the requests.
    [[nodiscard]] std::vector<PresentSubscription> subscriptions() const;
    /// All requests since the start or the last clearRequests, in order of arrival.
    [[nodiscard]] std::vector<Request> requests() const;
    [[nodiscard]] std::vector<std::string> requestTexts() const;
    void clearRequests();
    /// Why connections were closed for bytes that are no request frames.
    [[nodiscard]] std::vector<std::string> protocolErrors() const;

    /// Waits for a request that `predicate` accepts, those that have come already included.
    std::optional<Request> waitForRequest(const std::function<bool(const Request&)>& predicate,
                                          Deadline deadline = Deadline(10000)) const;
    /// The same for the first request of a command word.
    std::optional<Request> waitForCommand(std::string_view command,
                                          Deadline deadline = Deadline(10000)) const;
    /// Waits until `count` requests have come since the start or the last clearRequests.
    [[nodiscard]] bool waitForRequests(std::size_t count, Deadline deadline = Deadline(10000)) const;
    /// Waits for exactly `count` open connections.
    [[nodiscard]] bool waitForConnections(std::size_t count, Deadline deadline = Deadline(10000)) const;
    /// Waits for at least `count`.
    [[nodiscard]] bool waitForLogins(std::size_t count, Deadline deadline = Deadline(10000)) const;
    [[nodiscard]] bool waitForSubscriptions(std::size_t count, Deadline deadline = Deadline(10000)) const;
    /// Waits until all of the playback has been taken by the sockets.
    [[nodiscard]] bool waitForPlayback(Deadline deadline = Deadline(60000)) const;
    [[nodiscard]] bool waitFor(const std::function<bool(const HubStatistics&)>& predicate,
                               Deadline deadline = Deadline(10000)) const;
    /// @}

    /// @name Data
    /// @{
    /// Starts the playback of the configuration from its beginning, whatever is subscribed.
    void startPlayback();
    void stopPlayback();
    /// Stores the record's values for its source and symbol (which it makes known) and sends it to its
    /// subscribers. Returns how many got it.
    std::size_t pushRecord(const Record& record);
    /// The same with many, in their order, for one look of the hub's thread. Returns how many went out.
    std::size_t pushRecords(const std::vector<Record>& records);
    /// Sends the last values of a symbol as a refresh record to its subscribers. Returns how many got it.
    std::size_t pushRefresh(int source, std::string_view symbol);
    /// Sends a record to every connection that is logged in, subscribed or not. Returns how many got it.
    std::size_t pushToAll(const Record& record);
    /// Sends the heartbeat, or the hub status, at once to its subscribers.
    std::size_t pushHeartbeat();
    std::size_t pushHubStatus(std::int64_t droppedBytes, std::int64_t idleCount);
    /// Tells all connections that this hub has begun (type 3 or 4) or ended (0) just-in-time conflation.
    std::size_t pushJit(int conflation);
    /// Tells all connections that a source was granted or withdrawn, without changing any permission.
    std::size_t pushEntitlementAlert(int source, bool granted);
    /// Changes the permissions of all users, and of the box when granted, and tells all connections.
    std::size_t grantSource(int source);
    std::size_t withdrawSource(int source);
    /// Changes the permissions of one user, not the box, and tells that user's connections.
    std::size_t grant(std::string_view user, int source);
    std::size_t withdraw(std::string_view user, int source);
    /// Takes a source on the box, or off it, and tells nobody.
    void carry(int source);
    void stopCarrying(int source);
    /// @}

    /// @name Misbehaviour
    /// @{
    enum class Close {
        Orderly, ///< the peer reads an end of stream
        Reset    ///< the peer's connection is reset
    };
    /// Closes every connection at once; bytes still waiting are lost.
    void dropConnections(Close how = Close::Orderly);
    /// Closes each connection that is open now once that many more bytes, or frames, have gone out on it;
    /// bytes are those on the wire.
    void dropAfterBytes(std::uint64_t bytes, Close how = Close::Orderly);
    void dropAfterFrames(std::uint64_t frames, Close how = Close::Orderly);
    /// Ends the stream to every client; what a client sends is read until it closes its side.
    void halfClose();
    /// Keeps everything that should be sent until it is switched off; heartbeats are left out meanwhile.
    /// Requests are still read.
    void setSilent(bool silent);
    /// Stops reading the sockets, so that a client's writes come to a halt.
    void setDeaf(bool deaf);
    /// Closes new connections at once while off.
    void setAccepting(bool accepting);
    /// Sends every answer that much later, in order, and updates of symbols behind the answers that wait.
    void setAnswerDelay(std::chrono::milliseconds delay);
    /// The command of a refusal, an ignore or a wrong answer that is meant for every request but a login.
    static constexpr const char* ANY_COMMAND = "*";
    /// Answers a command with a status and nothing else. `times` 0 is for good.
    void refuse(std::string_view command, int status, unsigned times = 0);
    /// refuse("LoginUser", status, times).
    void refuseLogin(int status, unsigned times = 0);
    /// Says that it is too busy, so that the client should ask again.
    void answerBusy(std::string_view command, unsigned times);
    /// Leaves a command without an answer.
    void ignore(std::string_view command, unsigned times = 0);
    enum class Wrong {
        Tag,      ///< the answer carries a tag that nobody asked with
        Twice,    ///< the whole answer comes a second time
        NoStatus, ///< the status is left out, so that the answer does not end
        Garbage   ///< good frames with bodies that hold no pair
    };
    /// Does what a command asks for, and spoils the answer.
    void answerWrong(std::string_view command, Wrong how, unsigned times = 0);
    /// Ends every refuse, ignore and wrong answer.
    void clearRefusals();
    /// Replaces the script; an empty function removes it.
    void script(Script script);
    /// Sends bytes as they are to every connection, behind what is waiting; a compressed connection
    /// compresses them.
    void sendRaw(std::string_view bytes);
    /// The same past the compression, so that a compressed stream is garbled.
    void sendPastCompression(std::string_view bytes);
    /// Sends a body in a good frame to every connection, and nothing else: no value is stored.
    void sendBody(std::string_view body);
    /// Writes at most `bytes` at a time with a pause between; 0 ends that.
    void setWriteSize(std::size_t bytes, std::chrono::microseconds pause = std::chrono::microseconds(1000));
    /// Writes each frame in two pieces, cut behind `offset` bytes (frames of that length and below stay
    /// whole), with a pause between; 0 ends that. On a compressed connection each frame is flushed for
    /// itself, and what it is compressed to is cut.
    void splitFrames(std::size_t offset, std::chrono::microseconds pause = std::chrono::microseconds(1000));
    /// @}

private:
    friend class HubGroup;
    /// A member of a group.
    Hub(HubConfig config, std::shared_ptr<GroupDirectory> group, std::size_t member);

    std::unique_ptr<HubEngine> m_engine;
};

} // namespace tivra_sim
