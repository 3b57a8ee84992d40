#include <session/ConnectionConfig.h>

#include <cstdlib>

#include <tp/eprintf.h>

#include "api/StandIns.h"
#include "config/ConnectionConfigImpl.h"

namespace tivra {

ConnectionConfig::ConnectionConfig() : connectionConfigImpl(nullptr) {
    eprintf(EPF_CRIT, "Wrong ConnectionConfig contructor called");
    std::abort(); // private and never called: there would be no session behind this object
}

ConnectionConfig::ConnectionConfig(tivra_internal::ConnectionConfigImpl* impl) noexcept
    : connectionConfigImpl(impl) {}

ConnectionConfig::~ConnectionConfig() {
    delete connectionConfigImpl;
}

ConnectionConfig& ConnectionConfig::set(HostConfig::Parameters parameter, long value) {
    if (!connectionConfigImpl->process().refuses("ConnectionConfig::set"))
        connectionConfigImpl->set(parameter, value);
    return *this;
}

ConnectionConfig& ConnectionConfig::set(HostConfig::Parameters parameter, bool value) {
    if (!connectionConfigImpl->process().refuses("ConnectionConfig::set"))
        connectionConfigImpl->set(parameter, value);
    return *this;
}

ConnectionConfig& ConnectionConfig::setText(HostConfig::Parameters parameter, const std::string& value) {
    if (!connectionConfigImpl->process().refuses("ConnectionConfig::setText"))
        connectionConfigImpl->set(parameter, value);
    return *this;
}

HostConfig& ConnectionConfig::getHostConfig(std::string hostInfoString) {
    if (connectionConfigImpl->process().refuses("ConnectionConfig::getHostConfig"))
        return tivra_internal::standInHostConfig();
    return connectionConfigImpl->getHostConfig(hostInfoString, this, true);
}

ConnectionConfig& ConnectionConfig::addNATPair(std::string hubIp, std::string localIp) {
    if (!connectionConfigImpl->process().refuses("ConnectionConfig::addNATPair"))
        connectionConfigImpl->addNATPair(hubIp, localIp);
    return *this;
}

} // namespace tivra
