#include <session/HostConfig.h>

#include "config/HostConfigImpl.h"

namespace tivra {

HostConfig::HostConfig(tivra_internal::HostConfigImpl* impl) noexcept : hostCfgImpl(impl) {}

HostConfig::~HostConfig() {
    delete hostCfgImpl;
}

HostConfig& HostConfig::set(Parameters parameter, long value) {
    if (!hostCfgImpl->process().refuses("HostConfig::set"))
        hostCfgImpl->set(parameter, value);
    return *this;
}

HostConfig& HostConfig::set(Parameters parameter, bool value) {
    if (!hostCfgImpl->process().refuses("HostConfig::set"))
        hostCfgImpl->set(parameter, value);
    return *this;
}

HostConfig& HostConfig::setText(Parameters parameter, const std::string& value) {
    if (!hostCfgImpl->process().refuses("HostConfig::setText"))
        hostCfgImpl->set(parameter, value);
    return *this;
}

} // namespace tivra
