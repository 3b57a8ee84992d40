#include "hub/ReadWaker.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

#include <tp/EventReactor.h>
#include <tp/aboveStandardStreams.h>

#include "hub/HubClient.h"

namespace tivra_internal {

void ReadWaker::listen(tp::EventReactor& reactor) {
    if (m_event.get() < 0)
        m_event.assign(tp::aboveStandardStreams(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)));
    if (m_event.get() < 0 || hasSocket())
        return;
    reactor.regSocket(this, m_event.get());
    reactor.watchReads(this);
}

void ReadWaker::leave(tp::EventReactor& reactor) {
    reactor.unRegSocket(this);
}

void ReadWaker::wake() noexcept {
    const uint64_t one = 1;
    // It can't fail but by being full, and then the hub thread will look anyway.
    [[maybe_unused]] const ssize_t written = ::write(m_event.get(), &one, sizeof(one));
}

void ReadWaker::readableEvent(double curtime) {
    uint64_t count = 0;
    if (::read(m_event.get(), &count, sizeof(count)) > 0)
        m_client.continueHeldReads(curtime);
}

} // namespace tivra_internal
