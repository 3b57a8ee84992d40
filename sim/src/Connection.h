#pragma once

#include "Conflator.h"
#include "Descriptor.h"
#include "HubModel.h"
#include "OutputQueue.h"
#include "TlsServer.h"
#include "tivra_sim/Hub.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace tivra_sim {

/// What a client asked to be sent, under the tag of its request.
struct Subscription {
    std::int64_t tag = -1;
    int source = -1; ///< -1 covers every source
    std::string pattern;
    bool isWildcard = false;
    std::vector<SymbolEntry*> symbols;
};

/// What a client has told about itself, and what it has been granted.
struct ClientState {
    bool isLoggedIn = false;
    std::string user;
    std::string version;
    std::string platform;
    std::string language;
    /// Tokens that are added to every record of a source.
    std::map<int, std::set<int>> alternateIndexes;
    /// Tokens that updates are cut down to; empty lets all through.
    std::set<int> filter;
};

/// One client of the hub: its socket, what it is subscribed to, and what waits to be sent to it. Used by the
/// hub's thread alone.
class Connection {
public:
    Connection(std::uint64_t id, Descriptor socket, std::string localAddress, std::string peerAddress,
               std::uint16_t peerPort);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    [[nodiscard]] std::uint64_t id() const { return m_id; }
    [[nodiscard]] int fd() const { return m_socket.get(); }
    /// Null for a plain connection.
    [[nodiscard]] TlsSession* tls() const { return m_tls.get(); }
    void encrypt(std::unique_ptr<TlsSession> session) { m_tls = std::move(session); }
    /// As ::recv.
    [[nodiscard]] ssize_t receive(void* into, std::size_t length);
    [[nodiscard]] const std::string& localAddress() const { return m_localAddress; }
    [[nodiscard]] const std::string& peerAddress() const { return m_peerAddress; }
    [[nodiscard]] std::uint16_t peerPort() const { return m_peerPort; }
    ClientState& client() { return m_client; }
    FrameReader& reader() { return m_reader; }
    OutputQueue& output() { return m_output; }
    /// Nothing where the hub doesn't merge updates.
    std::optional<Conflator>& conflator() { return m_conflator; }

    /// @name Answers, which may be told to wait
    /// @{
    void answer(std::string frame, Clock::time_point due);
    /// Moves the answers that are due at `now` to the output.
    void releaseAnswers(Clock::time_point now);
    [[nodiscard]] bool hasWaitingAnswer() const { return !m_waiting.empty(); }
    [[nodiscard]] Clock::time_point nextAnswerAt() const { return m_waiting.front().due; }
    /// @}

    /// @name Subscriptions
    /// @{
    void subscribe(Subscription subscription);
    /// Ends those for which `predicate` holds; returns how many.
    std::size_t unsubscribe(const std::function<bool(const Subscription&)>& predicate);
    /// Takes a new symbol into the wildcard subscriptions that match it.
    void cover(SymbolEntry& entry);
    /// All symbols subscribed, each once, in ascending order of source and symbol.
    [[nodiscard]] std::vector<SymbolEntry*> subscribedSymbols() const;
    /// All that stand, in the order in which they were made.
    [[nodiscard]] const std::vector<Subscription>& subscriptions() const { return m_subscriptions; }
    /// Symbols subscribed, without the system source.
    [[nodiscard]] std::size_t subscriptionCount() const { return m_countedSymbols; }
    /// @}

    /// Sends an update of a symbol, whose frame may be at hand, in the way that this client wants it; behind
    /// the answers that wait, of which one may have an older image of the symbol.
    void update(const SymbolEntry& entry, std::string_view body, std::string_view frame, FrameKind kind);

    /// Whether the socket refused more bytes, and whether it is watched for room.
    bool isBlocked = false;
    /// Bytes of a playback that were left out since it read too slowly.
    std::uint64_t droppedBytes = 0;
    bool isWatchedForRoom = false;
    /// Whether its stream has been ended, so that nothing more is sent.
    bool isHalfClosed = false;
    /// Whether it is about to be closed: nothing is read from it or sent to it any more.
    bool isClosing = false;

private:
    /// A body as this client wants it: cut down to its filter, and with its alternate indexes added.
    [[nodiscard]] std::string tailored(std::string_view body, const SymbolEntry& entry) const;
    /// Whether bodies must pass tailored() before they are sent.
    [[nodiscard]] bool needsTailoring() const {
        return !m_client.alternateIndexes.empty() || !m_client.filter.empty();
    }
    /// An answer, or an update that came after it was asked for.
    struct Waiting {
        Clock::time_point due;
        std::string text; ///< the frame of an answer, the body of an update
        FrameKind kind;
        const SymbolEntry* entry = nullptr; ///< of an update
    };

    void send(const SymbolEntry& entry, std::string_view body, std::string_view frame, FrameKind kind);

    void attach(SymbolEntry& entry);
    void detach(SymbolEntry& entry);

    std::uint64_t m_id;
    Descriptor m_socket;
    std::unique_ptr<TlsSession> m_tls;
    std::string m_localAddress;
    std::string m_peerAddress;
    std::uint16_t m_peerPort;

    ClientState m_client;
    FrameReader m_reader;
    OutputQueue m_output;
    std::optional<Conflator> m_conflator;
    std::deque<Waiting> m_waiting;
    std::vector<Subscription> m_subscriptions;
    /// How many subscriptions cover a symbol.
    std::unordered_map<SymbolEntry*, std::size_t> m_covered;
    std::size_t m_countedSymbols = 0;
};

} // namespace tivra_sim
