#include "receive/UserEventBase.h"

#include <cstdlib>

#include <tp/eprintf.h>

#include "receive/ServeTurn.h"

namespace tivra_internal {

namespace {

/// Reaching this is a mistake in the library itself, and nothing that input can cause.
[[noreturn]] void unhandled(const char* operation) {
    eprintf(EPF_CRIT, "UserEventBase::%s: registered for an event without a handler", operation);
    std::abort();
}

} // namespace

UserEventBase::~UserEventBase() = default;

void UserEventBase::readableEvent(double /*curtime*/) {
    unhandled("readableEvent");
}

void UserEventBase::readableTurn(double curtime, ServeTurn& turn) {
    do
        readableEvent(curtime);
    while (isStillReadable() && turn.mayGoOn());
}

void UserEventBase::writableEvent(double /*curtime*/) {
    unhandled("writableEvent");
}

void UserEventBase::preActivityEvent(double /*curtime*/) {}

void UserEventBase::postActivityEvent(double /*curtime*/) {}

double UserEventBase::timerEvent(double /*curtime*/) {
    unhandled("timerEvent");
}

void UserEventBase::signalEvent(double /*curtime*/, int /*signum*/) {
    unhandled("signalEvent");
}

} // namespace tivra_internal
