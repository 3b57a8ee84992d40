#include <event/SessionEvent.h>

#include "session/SessionEventImpl.h"

namespace tivra {

SessionEvent::SessionEvent(tivra_internal::SessionEventImpl* impl) noexcept : sessionEventImpl(impl) {}

SessionEvent::~SessionEvent() {
    delete sessionEventImpl;
}

SessionEvent::Types SessionEvent::getType() const {
    return sessionEventImpl->getType();
}

Session& SessionEvent::getSession() const {
    return sessionEventImpl->getSession();
}

std::string SessionEvent::getDicVersion() const {
    return sessionEventImpl->getDicVersion();
}

int SessionEvent::getSourceID() const {
    return sessionEventImpl->getSourceID();
}

int SessionEvent::getQueueDepth() const {
    return sessionEventImpl->getQueueDepth();
}

} // namespace tivra
