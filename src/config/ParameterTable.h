#pragma once

#include <algorithm>
#include <array>
#include <limits>

#include <session/HostConfig.h>
#include <session/SessionConfig.h>

/// Every parameter that an application can set, once: setters, readers, docs/parameters.md and the help of
/// the tools are made from it.
namespace tivra_internal {

enum class ParameterType { Bool, Long, String };

/// What a setter or a reader does with a long value below `minimum` or above `maximum`.
enum class OutOfRange {
    Impossible,       ///< a bool or a text
    CorrectedWhenSet, ///< corrected, with a warning in the log
    ClampedWhenUsed,  ///< stored as given
    Accepted          ///< any value goes to the hub
};

/// One parameter. A bool has 0 and 1 for its limits and its default; a text has none, and is empty by
/// default.
struct ParameterInfo {
    int value;
    const char* name;
    ParameterType type;
    const char* unit;
    long minimum;
    long maximum;
    long defaultValue;
    OutOfRange outOfRange;
    const char* help;
};

inline constexpr long kNoMinimum = std::numeric_limits<long>::min();
inline constexpr long kNoMaximum = std::numeric_limits<long>::max();

inline constexpr std::array<ParameterInfo, 13> kSessionParameters{{
    {tivra::SessionConfig::RECOVERY_BOOL, "RECOVERY_BOOL", ParameterType::Bool, "", 0, 1, 1,
     OutOfRange::Impossible, "deprecated: setting it only logs a warning"},
    {tivra::SessionConfig::MULTITHREADED_API_CONNECTIONS_BOOL, "MULTITHREADED_API_CONNECTIONS_BOOL",
     ParameterType::Bool, "", 0, 1, 0, OutOfRange::Impossible,
     "spread hubs and callbacks over several threads instead of one each"},
    {tivra::SessionConfig::MAX_USER_THREADS_LONG, "MAX_USER_THREADS_LONG", ParameterType::Long, "threads", 0,
     kNoMaximum, 0, OutOfRange::CorrectedWhenSet,
     "most threads for callbacks when multithreaded; 0 means one per hub"},
    {tivra::SessionConfig::MAX_HUB_THREADS_LONG, "MAX_HUB_THREADS_LONG", ParameterType::Long, "threads", 0,
     kNoMaximum, 0, OutOfRange::CorrectedWhenSet,
     "most threads for hub connections when multithreaded; 0 means one per hub"},
    {tivra::SessionConfig::MAX_REQUEST_QUEUE_SIZE_LONG, "MAX_REQUEST_QUEUE_SIZE_LONG", ParameterType::Long,
     "requests", 100000, 50000000, 100000, OutOfRange::CorrectedWhenSet,
     "how many requests may wait to be sent, and how many for each hub; 10000000 with WATCHLIST_BOOL unless "
     "set"},
    {tivra::SessionConfig::WATCHLIST_BOOL, "WATCHLIST_BOOL", ParameterType::Bool, "", 0, 1, 0,
     OutOfRange::Impossible, "remember standing requests and send them again after a loss or a restart"},
    {tivra::SessionConfig::MAX_WATCHLIST_SIZE_LONG, "MAX_WATCHLIST_SIZE_LONG", ParameterType::Long,
     "requests", 1, kNoMaximum, 10000000, OutOfRange::CorrectedWhenSet,
     "how many standing requests are remembered"},
    {tivra::SessionConfig::QUEUE_DEPTH_THRESHOLD_PERCENT_LONG, "QUEUE_DEPTH_THRESHOLD_PERCENT_LONG",
     ParameterType::Long, "percent", 1, 101, 70, OutOfRange::CorrectedWhenSet,
     "how full a receive queue must be for an alarm event; 101 means never"},
    {tivra::SessionConfig::END_LOST_REQUESTS_BOOL, "END_LOST_REQUESTS_BOOL", ParameterType::Bool, "", 0, 1, 0,
     OutOfRange::Impossible,
     "end requests whose hub is lost before the answer with the status -997 instead of not at all"},
    {tivra::SessionConfig::INLINE_CALLBACKS_BOOL, "INLINE_CALLBACKS_BOOL", ParameterType::Bool, "", 0, 1, 0,
     OutOfRange::Impossible,
     "call the message callback on the thread that reads, where a slow one holds up the hubs of that thread"},
    {tivra::SessionConfig::LAZY_VALUES_BOOL, "LAZY_VALUES_BOOL", ParameterType::Bool, "", 0, 1, 0,
     OutOfRange::Impossible,
     "decode the numbers of a message when they are asked for; worth it where callbacks read two at most"},
    {tivra::SessionConfig::HOLD_READS_BOOL, "HOLD_READS_BOOL", ParameterType::Bool, "", 0, 1, 0,
     OutOfRange::Impossible,
     "wait for slow callbacks instead of dialling a compressed connection again when its queue is full; a "
     "feed's plain ones wait too"},
    {tivra::SessionConfig::KERNEL_TIMESTAMPS_BOOL, "KERNEL_TIMESTAMPS_BOOL", ParameterType::Bool, "", 0, 1, 0,
     OutOfRange::Impossible,
     "count the times of messages from when the kernel got them; without compression"},
}};

inline constexpr std::array<ParameterInfo, 23> kHostParameters{{
    {tivra::HostConfig::BACKUP_BOOL, "BACKUP_BOOL", ParameterType::Bool, "", 0, 1, 0, OutOfRange::Impossible,
     "this host is a backup, used when the primary hosts are lost; per host only"},
    {tivra::HostConfig::COMPRESSION_BOOL, "COMPRESSION_BOOL", ParameterType::Bool, "", 0, 1, 1,
     OutOfRange::Impossible, "ask the hub for compressed data"},
    {tivra::HostConfig::CONFLATION_INDICATOR_BOOL, "CONFLATION_INDICATOR_BOOL", ParameterType::Bool, "", 0, 1,
     0, OutOfRange::Impossible, "ask the hub to mark messages that may not be conflated"},
    {tivra::HostConfig::CONFLATION_INTERVAL_LONG, "CONFLATION_INTERVAL_LONG", ParameterType::Long,
     "milliseconds", kNoMinimum, kNoMaximum, 1000, OutOfRange::Accepted,
     "time over which the hub conflates updates; ignored with conflation just in time"},
    {tivra::HostConfig::READ_TIMEOUT_LONG, "READ_TIMEOUT_LONG", ParameterType::Long, "seconds", 0, kNoMaximum,
     5, OutOfRange::ClampedWhenUsed, "silence after which a connection counts as lost; 0 turns that off"},
    {tivra::HostConfig::CONNECTION_TIMEOUT_LONG, "CONNECTION_TIMEOUT_LONG", ParameterType::Long, "seconds", 0,
     2000000, 5, OutOfRange::ClampedWhenUsed, "time that one attempt to connect may take"},
    {tivra::HostConfig::CONNECTION_RETRY_LIMIT_LONG, "CONNECTION_RETRY_LIMIT_LONG", ParameterType::Long,
     "attempts", 0, kNoMaximum, 5, OutOfRange::ClampedWhenUsed,
     "failed attempts after which a hub is given up"},
    {tivra::HostConfig::QUEUE_SIZE_LONG, "QUEUE_SIZE_LONG", ParameterType::Long, "megabytes", 0, kNoMaximum,
     1, OutOfRange::ClampedWhenUsed,
     "size of the hub's receive queue; 0 means 1. What a full queue can't take is dropped; a compressed "
     "connection is dialled again instead"},
    {tivra::HostConfig::BLOCKING_CONNECTION_TIME_LIMIT_LONG, "BLOCKING_CONNECTION_TIME_LIMIT_LONG",
     ParameterType::Long, "milliseconds", 0, 60000, 200, OutOfRange::ClampedWhenUsed,
     "accepted and not used: a connect blocks no thread"},
    {tivra::HostConfig::CONFLATION_TYPE_LONG, "CONFLATION_TYPE_LONG", ParameterType::Long, "", kNoMinimum,
     kNoMaximum, 1, OutOfRange::Accepted,
     "kind of conflation: 1 trade-safe, 3 just in time, 4 just in time by interval"},
    {tivra::HostConfig::JIT_CONFLATION_THRESHOLD_PERCENT_LONG, "JIT_CONFLATION_THRESHOLD_PERCENT_LONG",
     ParameterType::Long, "percent", 1, 75, 25, OutOfRange::ClampedWhenUsed,
     "how full the receive queue must be for just-in-time conflation to begin"},
    {tivra::HostConfig::TLS_BOOL, "TLS_BOOL", ParameterType::Bool, "", 0, 1, 0, OutOfRange::Impossible,
     "encrypt the connection by TLS; the host has to be a hub then, not a connection manager"},
    {tivra::HostConfig::REQUIRE_TLS_BOOL, "REQUIRE_TLS_BOOL", ParameterType::Bool, "", 0, 1, 0,
     OutOfRange::Impossible, "make no connection without TLS, be it to a hub that hubs name"},
    {tivra::HostConfig::TLS_CA_FILE_STRING, "TLS_CA_FILE_STRING", ParameterType::String, "", 0, 0, 0,
     OutOfRange::Impossible,
     "file (PEM) of the certificates that may vouch for the hub's; empty for those of the system"},
    {tivra::HostConfig::TLS_CRL_FILE_STRING, "TLS_CRL_FILE_STRING", ParameterType::String, "", 0, 0, 0,
     OutOfRange::Impossible, "file (PEM) of revocation lists, one of each issuer; empty for none"},
    {tivra::HostConfig::TLS_SERVER_NAME_STRING, "TLS_SERVER_NAME_STRING", ParameterType::String, "", 0, 0, 0,
     OutOfRange::Impossible,
     "the name or address that the hub's certificate has to be for; empty for the hub's address"},
    {tivra::HostConfig::TLS_PINNED_KEY_STRING, "TLS_PINNED_KEY_STRING", ParameterType::String, "", 0, 0, 0,
     OutOfRange::Impossible,
     "the only public keys that the hub may have, each `sha256/` and Base64, after commas; empty for any"},
    {tivra::HostConfig::TLS_CERTIFICATE_FILE_STRING, "TLS_CERTIFICATE_FILE_STRING", ParameterType::String, "",
     0, 0, 0, OutOfRange::Impossible,
     "file (PEM) of this client's certificate and the chain above it; empty for none"},
    {tivra::HostConfig::TLS_KEY_FILE_STRING, "TLS_KEY_FILE_STRING", ParameterType::String, "", 0, 0, 0,
     OutOfRange::Impossible,
     "file (PEM) of its key, which not everybody may be able to read; empty for that of the certificate"},
    {tivra::HostConfig::TLS_MIN_VERSION_STRING, "TLS_MIN_VERSION_STRING", ParameterType::String, "", 0, 0, 0,
     OutOfRange::Impossible, "the least version of TLS, 1.2 or 1.3; empty for 1.2"},
    {tivra::HostConfig::STOP_AFTER_REFUSAL_BOOL, "STOP_AFTER_REFUSAL_BOOL", ParameterType::Bool, "", 0, 1, 0,
     OutOfRange::Impossible, "dial a hub that has refused the login no more"},
    {tivra::HostConfig::ALLOWED_HUBS_STRING, "ALLOWED_HUBS_STRING", ParameterType::String, "", 0, 0, 0,
     OutOfRange::Impossible,
     "addresses, networks such as 10.1.0.0/16 and names, after commas, where hubs may be that hubs or "
     "connection managers name; empty for the networks of the hosts. For all connections only"},
    {tivra::HostConfig::ONLY_ALLOWED_HUBS_BOOL, "ONLY_ALLOWED_HUBS_BOOL", ParameterType::Bool, "", 0, 1, 0,
     OutOfRange::Impossible, "don't dial hubs elsewhere, in place of a warning"},
}};

namespace parameter_table {

template<std::size_t N>
constexpr bool isIndexedByValue(const std::array<ParameterInfo, N>& table) {
    for (std::size_t i = 0; i < N; ++i) {
        if (table[i].value != static_cast<int>(i))
            return false;
    }
    return true;
}
static_assert(isIndexedByValue(kSessionParameters) && isIndexedByValue(kHostParameters));

template<std::size_t N>
constexpr const ParameterInfo* find(const std::array<ParameterInfo, N>& table, int value,
                                    ParameterType type) {
    if (value < 0 || value >= static_cast<int>(N))
        return nullptr;
    const ParameterInfo& info = table[static_cast<std::size_t>(value)];
    return info.type == type ? &info : nullptr;
}

} // namespace parameter_table

/// The entry of a parameter of that type; null for any other value.
constexpr const ParameterInfo* findParameter(tivra::SessionConfig::Parameters parameter, ParameterType type) {
    return parameter_table::find(kSessionParameters, static_cast<int>(parameter), type);
}
constexpr const ParameterInfo* findParameter(tivra::HostConfig::Parameters parameter, ParameterType type) {
    return parameter_table::find(kHostParameters, static_cast<int>(parameter), type);
}

/// The value brought into the parameter's limits.
constexpr long clampToLimits(const ParameterInfo& info, long value) {
    return std::clamp(value, info.minimum, info.maximum);
}

constexpr long defaultOf(tivra::SessionConfig::Parameters parameter) {
    return kSessionParameters[static_cast<std::size_t>(parameter)].defaultValue;
}
constexpr long defaultOf(tivra::HostConfig::Parameters parameter) {
    return kHostParameters[static_cast<std::size_t>(parameter)].defaultValue;
}

template<class Parameters>
constexpr bool isOnByDefault(Parameters parameter) {
    return defaultOf(parameter) != 0;
}

} // namespace tivra_internal
