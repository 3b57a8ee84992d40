#pragma once

#include <string>

#include "TivraApi.h"

namespace tivra_internal {
class HandleAccess;
class HostConfigImpl;
} // namespace tivra_internal

namespace tivra {

/// The settings of one host where they differ from those of all connections, obtained with
/// ConnectionConfig::getHostConfig.
///
/// No setter fails; a wrong parameter is logged at the warning level and changes nothing. Setters return the
/// object itself, so that calls chain. The first value given to a _LONG parameter of a host stays in force;
/// later ones are ignored. A _BOOL or a _STRING parameter can be set again.
///
/// Long values are stored as given and brought into range where they are used.
///
/// @thread application, before Session::start; lives as long as its session.
class TIVRA_API HostConfig {
public:
    /// The parameters of a connection. The end of a name tells the type that `set` must be called
    /// with; those that end in _STRING are for `setText`.
    enum Parameters : int {
        /// This host is a backup: used when the primary hosts are lost. Per host only; default false.
        BACKUP_BOOL = 0,
        /// Ask the hub for compressed data. Default true.
        COMPRESSION_BOOL = 1,
        /// Ask the hub to mark messages that may not be conflated (MessageEvent::isConflatable). Default
        /// false.
        CONFLATION_INDICATOR_BOOL = 2,
        /// Milliseconds over which the hub conflates updates; hubs ignore it with the just-in-time kinds of
        /// conflation. Default 1000.
        CONFLATION_INTERVAL_LONG = 3,
        /// Seconds without data after which a connection counts as lost; 0 (or below) turns that off;
        /// default 5.
        READ_TIMEOUT_LONG = 4,
        /// Seconds that one attempt to connect may take; used within 0 to 2000000; default 5.
        CONNECTION_TIMEOUT_LONG = 5,
        /// Failed attempts after which a hub is given up; below 0 counts as 0; default 5.
        CONNECTION_RETRY_LIMIT_LONG = 6,
        /// Megabytes of the hub's receive queue; below 1 counts as 1; default 1. What comes while the queue
        /// is full is dropped and counted (StatisticsEvent::DROP); a tivra::Feed leaves it at the hub.
        /// Nothing can be left out of a compressed stream, so there, unless SessionConfig::HOLD_READS_BOOL
        /// has it wait, the connection is closed and dialled again: what waits in the queue is delivered
        /// until the hub is ready anew, and whatever is left of it by then is discarded.
        QUEUE_SIZE_LONG = 7,
        /// Has no effect: a connect blocks no thread. Milliseconds, 0 to 60000; default 200.
        BLOCKING_CONNECTION_TIME_LIMIT_LONG = 8,
        /// Kind of conflation: 1 trade-safe, 3 just in time, 4 just in time by interval; default 1.
        CONFLATION_TYPE_LONG = 9,
        /// How full the receive queue must be, in percent, for just-in-time conflation to begin; used within
        /// 1 to 75; default 25.
        JIT_CONFLATION_THRESHOLD_PERCENT_LONG = 10,
        /// Encrypt the connection by TLS, its handshake a part of CONNECTION_TIMEOUT_LONG. The hub's
        /// certificate is always checked. A connection manager can't be asked over TLS, so the host has to be
        /// a hub. Default false.
        TLS_BOOL = 11,
        /// Make no connection without TLS, be it to a host or to a hub that hubs name. Default false.
        REQUIRE_TLS_BOOL = 12,
        /// File (PEM) of the certificates that may vouch for the hub's; empty, the default, for the system's.
        TLS_CA_FILE_STRING = 13,
        /// File (PEM) of revocation lists, one of each issuer; empty, the default, for none.
        TLS_CRL_FILE_STRING = 14,
        /// The name, or the address, that the hub's certificate has to be for; empty, the default, for the
        /// address by which the hub is configured or named.
        TLS_SERVER_NAME_STRING = 15,
        /// The only public keys that the hub may have, whoever vouches for them: "sha256/" and the Base64 of
        /// the SHA-256 of the key (DER), several after commas; empty, the default, for any.
        TLS_PINNED_KEY_STRING = 16,
        /// File (PEM) of this client's certificate and the chain above it; empty, the default, for none.
        TLS_CERTIFICATE_FILE_STRING = 17,
        /// File (PEM) of its key, which others than owner and group mustn't be able to read, not encrypted;
        /// empty, the default, for that of the certificate.
        TLS_KEY_FILE_STRING = 18,
        /// The least version of TLS: "1.2", the default, or "1.3".
        TLS_MIN_VERSION_STRING = 19,
        /// Dial a hub that has refused the login no more before the session starts again, or
        /// tivra::Feed::reconnectNow is called. Default false: it is dialled after 1, 2, 4 ... 30 seconds.
        STOP_AFTER_REFUSAL_BOOL = 20,
        /// Where hubs may be that hubs or connection managers name: addresses, networks such as 10.1.0.0/16,
        /// and names, which are looked up at the start; with commas between. Hosts that are configured, and
        /// what addNATPair names, may always be dialled. Empty, the default: the networks of these too, which
        /// are taken to be the 256 addresses around each, or all loopback addresses. A hub elsewhere is a
        /// warning in the log. For all connections only.
        ALLOWED_HUBS_STRING = 21,
        /// Don't dial a hub elsewhere at all: no login goes there. Default false.
        ONLY_ALLOWED_HUBS_BOOL = 22
    };

    HostConfig(const HostConfig&) = delete;
    HostConfig& operator=(const HostConfig&) = delete;

    /// Sets a parameter whose name ends in _LONG for this host. The first value stays.
    HostConfig& set(Parameters parameter, long value);
    /// The same for a value written as a plain int, which would otherwise fit `long` and `bool` alike.
    HostConfig& set(Parameters parameter, int value) { return set(parameter, static_cast<long>(value)); }
    /// Sets a parameter whose name ends in _BOOL for this host.
    HostConfig& set(Parameters parameter, bool value);
    /// Keeps a pointer (a text, say) from passing as a bool.
    HostConfig& set(Parameters parameter, const void* value) = delete;
    /// Sets a parameter whose name ends in _STRING for this host.
    HostConfig& setText(Parameters parameter, const std::string& value);

private:
    friend class tivra_internal::HandleAccess;

    explicit HostConfig(tivra_internal::HostConfigImpl* impl) noexcept;
    ~HostConfig();

    tivra_internal::HostConfigImpl* hostCfgImpl;
};

} // namespace tivra
