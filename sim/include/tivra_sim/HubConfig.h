#pragma once

#include "tivra_sim/Dictionary.h"
#include "tivra_sim/Tokens.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tivra_sim {

/// A configuration that cannot be read; what() names the key and what was expected there.
class ConfigError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A user that may log in.
struct User {
    std::string name;
    std::string password;
    /// Sources that the user may ask for; ListUserPermission sends them in ascending order.
    std::set<int> permissions;
    /// Most connections at the same time, 0 for any number. One more is refused with status::TOO_MANY_LOGINS.
    unsigned maxLogins = 0;
};

/// How this hub describes its place among hubs in the answer to GetPort for the system source.
enum class Topology {
    SingleInstance, ///< it names itself and nobody else
    Aggregating     ///< it names no port at all
};

/// How far a compressed stream is pushed out. Answers are always pushed out whole, with all before them.
enum class Flush {
    EachBatch, ///< behind all that goes out at once
    EachFrame,
    EachBlock, ///< as EachBatch, but for up to seven bits, which come with the next bytes
    Rarely,    ///< once 64 KB have come together
    WhenFull   ///< when zlib is full; what it holds back comes with the next answer
};

/// A record that the hub sends by itself to those who subscribed it.
struct SystemRecord {
    bool enabled = true;
    std::chrono::milliseconds interval{1000};
};

/// A symbol that the hub carries from the start.
struct Symbol {
    int source = 0;
    std::string symbol;
    /// First values, token to text. Alternate identifiers (CUSIP, ISIN ...) stand here too.
    std::map<int, std::string> fields;
};

/// A message to play as it is.
struct TimedBody {
    double milliseconds = 0.0; ///< since any moment that is the same for all
    std::string_view body;     ///< what goes into the frame; must stay until the next is asked for
};

/// Messages that a hub makes by itself, to see what a client bears.
struct Load {
    std::size_t symbols = 0; ///< LOAD000000 and so on; 0 for no load
    double rate = 1000.0;    ///< messages per second over all symbols, above 0
    std::size_t burst = 1;   ///< how many of them come at once
};

/// Plays the events of a trading-day file, or messages of your own, to whoever subscribes their symbols.
struct Playback {
    /// A gzipped (or plain) CSV file with the columns
    /// ms,symbol,kind,bid,bid_size,ask,ask_size,price,size,exchange,condition,suspicious; empty for no
    /// playback.
    std::string file;
    /// Gives the messages to play in place of a file, one at each call, and false behind the last. All are
    /// read when the hub starts and kept in memory. They are sent byte for byte in their order, also where
    /// their times go back. The hub carries their sources, and all its users may ask for them. Messages
    /// without a source and a symbol have no subscribers, and one with a tag answers a request: both are left
    /// out and counted.
    std::function<bool(TimedBody&)> bodies;
    /// Makes a mix of quotes, trades, records of many fields and long texts in place of a file, at the pace
    /// of its own rate times `factor`.
    Load load;
    /// A client that reads too slowly, so that HubConfig::outputLimit bytes wait for it, doesn't hold up the
    /// playback: what it can't take is left out for it and counted, and its hub status says how many bytes.
    bool dropsForSlow = false;
    /// The source on which the symbols of the file are carried.
    int source = 100;
    /// 0 plays at full speed, 1 at the pace of the day, 60 an hour in a minute.
    double factor = 0.0;
    /// Starts by itself once that many symbols are subscribed, counted over all connections without the
    /// system source. 0 waits for Hub::startPlayback().
    std::size_t startWhenSubscriptions = 0;
    /// Reads no more events than this; 0 reads all.
    std::size_t maxEvents = 0;
    /// How often the file is played, 0 for ever.
    unsigned repeat = 1;
    /// Midnight of the day in seconds since the Unix epoch. The default is 7 October 2013 in New York.
    std::int64_t midnight = 1381118400;

    [[nodiscard]] bool isWanted() const { return !file.empty() || bodies != nullptr || load.symbols > 0; }
};

/// How a hub encrypts its connections: by TLS alone once it has a certificate. The files are PEM.
struct Tls {
    std::string certificateFile; ///< with the chain above it; empty for plain connections
    std::string keyFile;         ///< empty for the file of the certificate
    std::string clientCaFile;    ///< who may vouch for clients, which then need a certificate; empty for none
    bool isOldVersion = false;   ///< speaks nothing later than 1.2
};

/// Everything that a hub is started with. All fields may be changed before the Hub is made; none has an
/// effect later.
struct HubConfig {
    /// Address to listen on.
    std::string bindAddress = "127.0.0.1";
    /// Port to listen on; 0 takes a free one, see Hub::port().
    std::uint16_t port = 0;
    /// Address given out in the answers to GetPort; empty gives the address that the client connected to.
    std::string advertisedHost;

    std::string hubVersion = "V8.2.1";
    std::string dictionaryVersion = "20131007.1";
    std::vector<DictionaryRow> dictionary;
    std::vector<Enumeration> enumerations;

    std::vector<User> users;
    /// Sources that this hub itself carries.
    std::set<int> boxPermissions;
    Topology topology = Topology::SingleInstance;

    /// Serve a login that asks for compression with one zlib stream; otherwise refuse it.
    bool compression = true;
    /// zlib's level, 0 (none) to 9.
    int compressionLevel = 1;
    Flush compressionFlush = Flush::EachBatch;
    /// Merge updates of a symbol for clients that ask for it; otherwise what they ask for is noted, and every
    /// update goes out.
    bool conflation = false;

    SystemRecord heartbeat;
    SystemRecord hubStatus;

    std::vector<Symbol> symbols;
    Playback playback;

    /// Send the last values as a refresh record (token::REFRESH) after a subscription was accepted.
    bool refreshOnSubscribe = false;
    /// Bytes that may wait for one connection before playback pauses for it; 0 lets it overrun every reader.
    std::size_t outputLimit = std::size_t{4} << 20;
    /// Requests that are remembered; older ones are forgotten.
    std::size_t requestLogLimit = 1000000;

    Tls tls;

    /// Nothing but the bindings: no user, dictionary, permission or symbol.
    [[nodiscard]] static HubConfig empty() { return HubConfig{}; }

    /// A hub as one meets it: user "demo" with password "demo", a dictionary of more than 200 fields, the
    /// sources 100 (equities), 101 (options), 102 (on the box but not for the user), 922 (system) and 4100
    /// (news), symbols with alternate identifiers on them, heartbeat and hub status once a second.
    [[nodiscard]] static HubConfig realistic();

    /// realistic(), but without records of its own accord: a test knows every byte on the wire.
    [[nodiscard]] static HubConfig quiet();

    /// Reads JSON over realistic(), or over empty() when it says "base": "empty". Throws ConfigError.
    [[nodiscard]] static HubConfig fromJson(std::string_view text);
    [[nodiscard]] static HubConfig fromJsonFile(const std::string& path);

    enum class Passwords { Show, Hide };
    /// The effective configuration, readable by fromJson when the passwords are shown.
    [[nodiscard]] std::string toJson(Passwords passwords = Passwords::Show) const;
};

} // namespace tivra_sim
