#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <session/ConnectionConfig.h>
#include <session/HostConfig.h>
#include <tp/Mutex.h>
#include <tp/Process.h>

#include "LockOrder.h"
#include "config/ParameterTable.h"

namespace tivra_internal {

class AllowedHubs;
class HostTable;

/// The settings of all connections, the indexes of the hosts and the NAT pairs. The application writes it
/// before the start, hub threads read it; it borrows the session's host table.
class ConnectionConfigImpl : public tp::OfOneProcess {
public:
    /// NatMapType: hub address to local address. NatMapType2: the other way round.
    using NatMapType = std::map<std::string, std::string>;
    using NatMapType2 = std::map<std::string, std::string>;

    explicit ConnectionConfigImpl(HostTable& hosts) : m_hostTable(hosts) {}
    ConnectionConfigImpl(const ConnectionConfigImpl&) = delete;
    ConnectionConfigImpl& operator=(const ConnectionConfigImpl&) = delete;

    void set(tivra::HostConfig::Parameters parameter, long value);
    void set(tivra::HostConfig::Parameters parameter, bool value);
    void set(tivra::HostConfig::Parameters parameter, const std::string& value) TP_EXCLUDES(m_texts_mutex);

    /// The value as it was set; `defaultValue` for a parameter that has no connection-wide long value.
    [[nodiscard]] long getLong(tivra::HostConfig::Parameters parameter, long defaultValue) const;
    /// The value as it was set; `defaultValue` for a parameter that has no connection-wide bool value.
    [[nodiscard]] bool getBoolean(tivra::HostConfig::Parameters parameter, bool defaultValue) const;

    /// The text as it was set, empty when none was.
    [[nodiscard]] std::string getString(tivra::HostConfig::Parameters parameter) const
        TP_EXCLUDES(m_texts_mutex);

    /// Finds a host or makes it. `isExternal` tells whether the application has named it or the library.
    tivra::HostConfig& getHostConfig(const std::string& hostInfoString,
                                     tivra::ConnectionConfig* connectionConfig, bool isExternal);
    /// See HostTable::removeHost.
    [[nodiscard]] bool removeHost(const std::string& hostInfoString,
                                  const std::function<bool(std::size_t index)>& isInUse);

    /// A host whose name stands for no address.
    struct LostName {
        std::string host; ///< as it is configured
        std::string name;
        std::string fault; ///< in words for an error
    };
    /// Looks up the names among the hosts that the application has named, which may take as long as the
    /// system's resolver does. Where nothing else says whom a certificate has to be for, it is the name.
    std::vector<LostName> lookUpNames();
    /// The same for a start, unless it has just been done; what is lost is logged.
    void lookUpNamesOnce();

    void addNATPair(const std::string& hubIp, const std::string& localIp);
    /// The address under which a hub's address is reached from here; empty when no pair says so.
    [[nodiscard]] std::string getLocalIp(const std::string& hubIp) const;
    /// The address that hubs know a local address by; empty when no pair says so.
    [[nodiscard]] std::string getHublIp(const std::string& localIp) const;

    /// Of the hosts that the application has named, the NAT pairs and ALLOWED_HUBS_STRING. It may look up
    /// names, and take its time for it.
    [[nodiscard]] std::shared_ptr<const AllowedHubs> makeAllowedHubs() const;

    /// Without the white space at both ends.
    [[nodiscard]] static std::string trimString(const std::string& text);

private:
    [[nodiscard]] const std::atomic<long>* longField(tivra::HostConfig::Parameters parameter) const;
    [[nodiscard]] const std::atomic<bool>* boolField(tivra::HostConfig::Parameters parameter) const;

    std::atomic<bool> compression{isOnByDefault(tivra::HostConfig::COMPRESSION_BOOL)};
    std::atomic<bool> conflationIndicator{isOnByDefault(tivra::HostConfig::CONFLATION_INDICATOR_BOOL)};
    std::atomic<long> conflationInterval{defaultOf(tivra::HostConfig::CONFLATION_INTERVAL_LONG)};
    std::atomic<long> readTimeout{defaultOf(tivra::HostConfig::READ_TIMEOUT_LONG)};
    std::atomic<long> connectionTimeout{defaultOf(tivra::HostConfig::CONNECTION_TIMEOUT_LONG)};
    std::atomic<long> connectionRetryLimit{defaultOf(tivra::HostConfig::CONNECTION_RETRY_LIMIT_LONG)};
    std::atomic<long> queueSize{defaultOf(tivra::HostConfig::QUEUE_SIZE_LONG)};
    std::atomic<long> blockingConnectionLimit{
        defaultOf(tivra::HostConfig::BLOCKING_CONNECTION_TIME_LIMIT_LONG)};
    std::atomic<long> conflationType{defaultOf(tivra::HostConfig::CONFLATION_TYPE_LONG)};
    std::atomic<long> jitThreshold{defaultOf(tivra::HostConfig::JIT_CONFLATION_THRESHOLD_PERCENT_LONG)};

    std::atomic<bool> m_tls{isOnByDefault(tivra::HostConfig::TLS_BOOL)};
    std::atomic<bool> m_requireTls{isOnByDefault(tivra::HostConfig::REQUIRE_TLS_BOOL)};
    std::atomic<bool> m_stopAfterRefusal{isOnByDefault(tivra::HostConfig::STOP_AFTER_REFUSAL_BOOL)};
    std::atomic<bool> m_onlyAllowedHubs{isOnByDefault(tivra::HostConfig::ONLY_ALLOWED_HUBS_BOOL)};
    mutable tp::Mutex m_texts_mutex{kLockParameterTexts};
    std::map<tivra::HostConfig::Parameters, std::string> m_texts TP_GUARDED_BY(m_texts_mutex);

    HostTable& m_hostTable;
    std::atomic<bool> m_namesAreFresh{false}; ///< looked up since the last start
    tp::Mutex m_host_mutex{kLockHost};
    std::size_t next_host_index TP_GUARDED_BY(m_host_mutex) = 0;

    mutable tp::Mutex m_nat_mutex{kLockNatPairs};
    NatMapType natMap TP_GUARDED_BY(m_nat_mutex);
    NatMapType2 natMap2 TP_GUARDED_BY(m_nat_mutex);
};

} // namespace tivra_internal
