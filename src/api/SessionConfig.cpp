#include <session/SessionConfig.h>

#include "config/SessionConfigImpl.h"

namespace tivra {

SessionConfig::SessionConfig(tivra_internal::SessionConfigImpl* impl) noexcept : sessionConfigImpl(impl) {}

SessionConfig::~SessionConfig() {
    delete sessionConfigImpl;
}

SessionConfig& SessionConfig::set(Parameters parameter, long value) {
    if (!sessionConfigImpl->process().refuses("SessionConfig::set"))
        sessionConfigImpl->set(parameter, value);
    return *this;
}

SessionConfig& SessionConfig::set(Parameters parameter, bool value) {
    if (!sessionConfigImpl->process().refuses("SessionConfig::set"))
        sessionConfigImpl->set(parameter, value);
    return *this;
}

} // namespace tivra
