#include "config/ConnectionConfigImpl.h"

#include <cstdlib>
#include <memory>
#include <utility>
#include <vector>

#include <tp/eprintf.h>

#include "config/AllowedHubs.h"
#include "config/HandleAccess.h"
#include "config/HostConfigImpl.h"
#include "config/HostTable.h"
#include "config/NameLookup.h"
#include "config/ParameterTable.h"

namespace tivra_internal {

using tivra::HostConfig;

namespace {

struct AddressAndPort {
    std::string address;
    std::size_t port;
};

/// Everything before the first colon is the address, what follows is the port; without a colon there is none.
AddressAndPort splitHostInfo(const std::string& hostInfo) {
    const std::size_t colon = hostInfo.find(':');
    if (colon == std::string::npos)
        return {hostInfo, 0};
    return {hostInfo.substr(0, colon), std::strtoul(hostInfo.c_str() + colon + 1, nullptr, 10)};
}

std::string joined(const std::vector<std::string>& texts) {
    std::string all;
    for (const std::string& text : texts)
        all.append(all.empty() ? "" : ", ").append(text);
    return all;
}

std::string findOrEmpty(const std::map<std::string, std::string>& map, const std::string& key) {
    const auto it = map.find(key);
    return it == map.end() ? std::string() : it->second;
}

} // namespace

const std::atomic<long>* ConnectionConfigImpl::longField(HostConfig::Parameters parameter) const {
    switch (parameter) {
    case HostConfig::CONFLATION_INTERVAL_LONG:
        return &conflationInterval;
    case HostConfig::READ_TIMEOUT_LONG:
        return &readTimeout;
    case HostConfig::CONNECTION_TIMEOUT_LONG:
        return &connectionTimeout;
    case HostConfig::CONNECTION_RETRY_LIMIT_LONG:
        return &connectionRetryLimit;
    case HostConfig::QUEUE_SIZE_LONG:
        return &queueSize;
    case HostConfig::BLOCKING_CONNECTION_TIME_LIMIT_LONG:
        return &blockingConnectionLimit;
    case HostConfig::CONFLATION_TYPE_LONG:
        return &conflationType;
    case HostConfig::JIT_CONFLATION_THRESHOLD_PERCENT_LONG:
        return &jitThreshold;
    default:
        return nullptr;
    }
}

const std::atomic<bool>* ConnectionConfigImpl::boolField(HostConfig::Parameters parameter) const {
    switch (parameter) {
    case HostConfig::COMPRESSION_BOOL:
        return &compression;
    case HostConfig::CONFLATION_INDICATOR_BOOL:
        return &conflationIndicator;
    case HostConfig::TLS_BOOL:
        return &m_tls;
    case HostConfig::REQUIRE_TLS_BOOL:
        return &m_requireTls;
    case HostConfig::STOP_AFTER_REFUSAL_BOOL:
        return &m_stopAfterRefusal;
    case HostConfig::ONLY_ALLOWED_HUBS_BOOL:
        return &m_onlyAllowedHubs;
    default:
        return nullptr;
    }
}

void ConnectionConfigImpl::set(HostConfig::Parameters parameter, long value) {
    auto* field = const_cast<std::atomic<long>*>(longField(parameter));
    if (field == nullptr) {
        eprintf(EPF_WARN, "Invalid parameter (%d) passed to ConnectionConfig::set(long)",
                static_cast<int>(parameter));
        return;
    }
    *field = value;
    eprintf(EPF_INFO, "%s=%ld", HostConfigImpl::getParameterName(parameter), value);
}

void ConnectionConfigImpl::set(HostConfig::Parameters parameter, bool value) {
    auto* field = const_cast<std::atomic<bool>*>(boolField(parameter));
    if (field == nullptr) {
        eprintf(EPF_WARN, "Invalid parameter (%d) passed to ConnectionConfig::set(bool)",
                static_cast<int>(parameter));
        return;
    }
    *field = value;
    eprintf(EPF_INFO, "%s=%d", HostConfigImpl::getParameterName(parameter), value ? 1 : 0);
}

void ConnectionConfigImpl::set(HostConfig::Parameters parameter, const std::string& value) {
    if (findParameter(parameter, ParameterType::String) == nullptr) {
        eprintf(EPF_WARN, "Invalid parameter (%d) passed to ConnectionConfig::setText",
                static_cast<int>(parameter));
        return;
    }
    {
        const tp::MutexLock lock(m_texts_mutex);
        m_texts[parameter] = value;
    }
    eprintf(EPF_INFO, "%s=%s", HostConfigImpl::getParameterName(parameter), value.c_str());
}

std::string ConnectionConfigImpl::getString(HostConfig::Parameters parameter) const {
    const tp::MutexLock lock(m_texts_mutex);
    const auto found = m_texts.find(parameter);
    return found == m_texts.end() ? std::string() : found->second;
}

long ConnectionConfigImpl::getLong(HostConfig::Parameters parameter, long defaultValue) const {
    if (const std::atomic<long>* field = longField(parameter))
        return *field;
    eprintf(EPF_WARN, "Invalid parameter (%d) passed to ConnectionConfig::getLong",
            static_cast<int>(parameter));
    return defaultValue;
}

bool ConnectionConfigImpl::getBoolean(HostConfig::Parameters parameter, bool defaultValue) const {
    if (const std::atomic<bool>* field = boolField(parameter))
        return *field;
    eprintf(EPF_WARN, "Invalid parameter (%d) passed to ConnectionConfig::getBoolean",
            static_cast<int>(parameter));
    return defaultValue;
}

HostConfig& ConnectionConfigImpl::getHostConfig(const std::string& hostInfoString,
                                                tivra::ConnectionConfig* connectionConfig, bool isExternal) {
    eprintf(EPF_DBUG, "ConnectionConfigImpl::getHostConfig(ENTRY): hostInfoString (%s)",
            hostInfoString.c_str());
    return m_hostTable.findOrAdd(hostInfoString, [&] {
        const AddressAndPort split = splitHostInfo(hostInfoString);
        const tp::MutexLock lock(m_host_mutex);
        auto host =
            std::make_unique<HostConfigImpl>(split.address, split.port, connectionConfig, next_host_index++);
        host->setIsExternal(isExternal);
        return HandleAccess::make<HostConfig>(std::move(host));
    });
}

bool ConnectionConfigImpl::removeHost(const std::string& hostInfoString,
                                      const std::function<bool(std::size_t index)>& isInUse) {
    return m_hostTable.removeHost(hostInfoString, isInUse);
}

std::vector<ConnectionConfigImpl::LostName> ConnectionConfigImpl::lookUpNames() {
    // The hosts stay while they are asked for: only a session that is destroyed takes them away.
    std::vector<std::pair<std::string, HostConfigImpl*>> named;
    m_hostTable.forEachNamed([&named](const std::string& hostInfo, HostConfigImpl* host) {
        if (host != nullptr && host->isExternal() && !isAddress(host->getGiven()))
            named.emplace_back(hostInfo, host);
    });
    std::vector<LostName> lost;
    for (const auto& [hostInfo, host] : named) {
        if (std::string fault = host->lookUp(); !fault.empty()) {
            lost.push_back({hostInfo, host->getGiven(), std::move(fault)});
            continue;
        }
        eprintf(EPF_INFO, "The host %s is %s", hostInfo.c_str(), joined(host->getAddresses()).c_str());
        const bool isUnchecked = host->getBoolean(HostConfig::TLS_BOOL, false) &&
                                 host->getString(HostConfig::TLS_SERVER_NAME_STRING).empty();
        if (isUnchecked)
            host->set(HostConfig::TLS_SERVER_NAME_STRING, host->getGiven());
    }
    m_namesAreFresh = true;
    return lost;
}

void ConnectionConfigImpl::lookUpNamesOnce() {
    if (!m_namesAreFresh)
        for (const LostName& each : lookUpNames())
            eprintf(EPF_WARN, "The address of the host %s can't be looked up: %s", each.name.c_str(),
                    each.fault.c_str());
    m_namesAreFresh = false;
}

void ConnectionConfigImpl::addNATPair(const std::string& hubIp, const std::string& localIp) {
    const std::string hub = trimString(hubIp);
    const std::string local = trimString(localIp);
    const tp::MutexLock lock(m_nat_mutex);
    if (!natMap.emplace(hub, local).second) {
        eprintf(EPF_WARN, "Failed to add NAT pair %s, %s: HUB ip %s already exists in a NAT pair",
                hub.c_str(), local.c_str(), hub.c_str());
        return;
    }
    if (!natMap2.emplace(local, hub).second) {
        eprintf(EPF_WARN, "Failed to add NAT pair %s, %s: local ip %s already exists in a NAT pair",
                hub.c_str(), local.c_str(), local.c_str());
        if (natMap.erase(hub) == 0)
            eprintf(EPF_WARN, "Failed to find NAT entry for HUB ip %s", hub.c_str());
        return;
    }
    eprintf(EPF_INFO, "Adding NAT pair %s, %s", hub.c_str(), local.c_str());
}

std::string ConnectionConfigImpl::getLocalIp(const std::string& hubIp) const {
    const tp::MutexLock lock(m_nat_mutex);
    std::string local = findOrEmpty(natMap, hubIp);
    if (local.empty())
        eprintf(EPF_DBUG, "No Local NAT address found for %s", hubIp.c_str());
    return local;
}

std::string ConnectionConfigImpl::getHublIp(const std::string& localIp) const {
    const tp::MutexLock lock(m_nat_mutex);
    std::string hub = findOrEmpty(natMap2, localIp);
    if (hub.empty())
        eprintf(EPF_DBUG, "No HUB NAT address found for %s", localIp.c_str());
    return hub;
}

std::shared_ptr<const AllowedHubs> ConnectionConfigImpl::makeAllowedHubs() const {
    std::vector<std::string> configured;
    m_hostTable.forEachNamed([&configured](const std::string&, const HostConfigImpl* host) {
        if (host == nullptr || !host->isExternal())
            return;
        configured.push_back(host->getOriginalAddr());
        for (std::string& address : host->getAddresses())
            configured.push_back(std::move(address));
    });
    {
        const tp::MutexLock lock(m_nat_mutex);
        for (const auto& [hubIp, localIp] : natMap)
            configured.insert(configured.end(), {hubIp, localIp});
    }
    return std::make_shared<const AllowedHubs>(configured, getString(HostConfig::ALLOWED_HUBS_STRING));
}

std::string ConnectionConfigImpl::trimString(const std::string& text) {
    constexpr const char* kWhiteSpace = " \n\t\v\f\r";
    const std::size_t first = text.find_first_not_of(kWhiteSpace);
    if (first == std::string::npos)
        return {};
    return text.substr(first, text.find_last_not_of(kWhiteSpace) - first + 1);
}

} // namespace tivra_internal
