#include "config/HostConfigImpl.h"

#include <utility>

#include <tp/eprintf.h>

#include "config/ConnectionConfigImpl.h"
#include "config/HandleAccess.h"
#include "config/NameLookup.h"
#include "config/ParameterTable.h"

namespace tivra_internal {

using tivra::HostConfig;

HostConfigImpl::HostConfigImpl(std::string ip, std::size_t hostPort, tivra::ConnectionConfig* config,
                               std::size_t hostIndex)
    : m_given(ip), port(hostPort), index(hostIndex), ipAddr(std::move(ip)), connectionConfig(config) {}

HostConfigImpl::WritableValue HostConfigImpl::writableValue(HostConfig::Parameters parameter) {
    Entry& entry = parameterValueMap[parameter];
    const bool isFirst = entry.value == nullptr || entry.isInherited;
    if (isFirst)
        entry = Entry{std::make_shared<ParameterValue>(), false};
    return {*entry.value, isFirst};
}

void HostConfigImpl::set(HostConfig::Parameters parameter, long value) {
    if (findParameter(parameter, ParameterType::Long) == nullptr) {
        eprintf(EPF_WARN, "Invalid parameter (%d) passed to HostConfig::set(long)",
                static_cast<int>(parameter));
        return;
    }
    const tp::MutexLock lock(m_parameters_mutex);
    const WritableValue target = writableValue(parameter);
    // The first long value of a host stays in force; applications rely on it.
    if (target.isFirst)
        target.value.longValue = value;
    else
        target.value.boolValue = value != 0;
    eprintf(EPF_INFO, "%s:%zu: %s=%ld", ipAddr.c_str(), port, getParameterName(parameter), value);
}

void HostConfigImpl::set(HostConfig::Parameters parameter, bool value) {
    if (findParameter(parameter, ParameterType::Bool) == nullptr) {
        eprintf(EPF_WARN, "Invalid parameter (%d) passed to HostConfig::set(bool)",
                static_cast<int>(parameter));
        return;
    }
    const tp::MutexLock lock(m_parameters_mutex);
    writableValue(parameter).value.boolValue = value;
    eprintf(EPF_INFO, "%s:%zu: %s=%s", ipAddr.c_str(), port, getParameterName(parameter),
            value ? "true" : "false");
}

void HostConfigImpl::set(HostConfig::Parameters parameter, std::string value) {
    if (findParameter(parameter, ParameterType::String) == nullptr) {
        eprintf(EPF_WARN, "Invalid parameter (%d) passed to HostConfig::setText",
                static_cast<int>(parameter));
        return;
    }
    if (parameter == HostConfig::ALLOWED_HUBS_STRING) {
        eprintf(EPF_WARN, "%s is for all connections: ConnectionConfig::setText takes it",
                getParameterName(parameter));
        return;
    }
    const tp::MutexLock lock(m_parameters_mutex);
    eprintf(EPF_INFO, "%s:%zu: %s=%s", ipAddr.c_str(), port, getParameterName(parameter), value.c_str());
    ParameterValue& target = writableValue(parameter).value;
    const tp::MutexLock textLock(target.text_mutex);
    target.text = std::move(value);
}

std::shared_ptr<const ParameterValue> HostConfigImpl::findValue(HostConfig::Parameters parameter) const {
    const tp::MutexLock lock(m_parameters_mutex);
    const auto it = parameterValueMap.find(parameter);
    return it == parameterValueMap.end() ? nullptr : it->second.value;
}

long HostConfigImpl::getLong(HostConfig::Parameters parameter, long defaultValue) const {
    if (const auto value = findValue(parameter))
        return value->longValue;
    if (findParameter(parameter, ParameterType::Long) != nullptr)
        return HandleAccess::impl(*getConnectionConfig()).getLong(parameter, defaultValue);
    eprintf(EPF_WARN, "Invalid parameter (%d) passed to HostConfig::getLong", static_cast<int>(parameter));
    return defaultValue;
}

bool HostConfigImpl::getBoolean(HostConfig::Parameters parameter, bool defaultValue) const {
    if (const auto value = findValue(parameter))
        return value->boolValue;
    if (findParameter(parameter, ParameterType::Bool) != nullptr)
        return HandleAccess::impl(*getConnectionConfig()).getBoolean(parameter, defaultValue);
    eprintf(EPF_WARN, "Invalid parameter (%d) passed to ConnectionConfigImpl::getBoolean",
            static_cast<int>(parameter));
    return defaultValue;
}

std::string HostConfigImpl::getString(HostConfig::Parameters parameter) const {
    if (findParameter(parameter, ParameterType::String) == nullptr) {
        eprintf(EPF_WARN, "Invalid parameter (%d) passed to HostConfig::getString",
                static_cast<int>(parameter));
        return {};
    }
    if (const auto value = findValue(parameter)) {
        const tp::MutexLock lock(value->text_mutex);
        return value->text;
    }
    return HandleAccess::impl(*getConnectionConfig()).getString(parameter);
}

long HostConfigImpl::getUsableLong(HostConfig::Parameters parameter) const {
    const ParameterInfo* info = findParameter(parameter, ParameterType::Long);
    return info == nullptr ? getLong(parameter, 0)
                           : clampToLimits(*info, getLong(parameter, info->defaultValue));
}

std::string HostConfigImpl::getAddr() const {
    const tp::MutexLock lock(m_parameters_mutex);
    return ipAddr;
}

void HostConfigImpl::setAddr(const std::string& addr) {
    const tp::MutexLock lock(m_parameters_mutex);
    ipAddr = addr;
}

std::string HostConfigImpl::getOriginalAddr() const {
    const tp::MutexLock lock(m_parameters_mutex);
    return m_addresses.empty() ? m_given : m_addresses.front();
}

std::string HostConfigImpl::lookUp() {
    NameLookup found = lookUpName(m_given);
    const tp::MutexLock lock(m_parameters_mutex);
    if (found.fault.empty()) {
        m_addresses.clear();
        for (const std::uint32_t address : found.addresses)
            m_addresses.push_back(addressText(address));
    }
    if (!m_addresses.empty())
        ipAddr = m_addresses.front();
    return std::move(found.fault);
}

bool HostConfigImpl::hasAddressesOfName() const {
    const tp::MutexLock lock(m_parameters_mutex);
    return !m_addresses.empty();
}

std::vector<std::string> HostConfigImpl::getAddresses() const {
    const tp::MutexLock lock(m_parameters_mutex);
    return m_addresses;
}

tivra::ConnectionConfig* HostConfigImpl::getConnectionConfig() const {
    const tp::MutexLock lock(m_parameters_mutex);
    return connectionConfig;
}

std::string HostConfigImpl::getLocalIp(const std::string& hubIp) const {
    return HandleAccess::impl(*getConnectionConfig()).getLocalIp(hubIp);
}

std::string HostConfigImpl::getHubIp(const std::string& localIp) const {
    return HandleAccess::impl(*getConnectionConfig()).getHublIp(localIp);
}

void HostConfigImpl::copyParameters(const HostConfigImpl& other) {
    if (&other == this)
        return;
    // Two hosts are never locked together, so that they can copy from each other in any order.
    ParameterValueMapType values;
    tivra::ConnectionConfig* config = nullptr;
    {
        const tp::MutexLock lock(other.m_parameters_mutex);
        values = other.parameterValueMap;
        config = other.connectionConfig;
    }
    for (auto& [parameter, entry] : values)
        entry.isInherited = true;
    const tp::MutexLock lock(m_parameters_mutex);
    parameterValueMap = std::move(values);
    connectionConfig = config;
}

const char* HostConfigImpl::getParameterName(HostConfig::Parameters parameter) {
    const auto i = static_cast<std::size_t>(parameter);
    return i < kHostParameters.size() ? kHostParameters[i].name : "UNKNOWN_PARAMETER_NAME";
}

} // namespace tivra_internal
