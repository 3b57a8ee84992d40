#include <tp/EventBase.h>

#include <tp/eprintf.h>

#include <cstdlib>

namespace tp {

namespace {

[[noreturn]] void abortUnhandled(const char* handler) {
    eprintf(EPF_CRIT, "an object is registered for events without overriding %s", handler);
    std::abort();
}

} // namespace

EventBase::~EventBase() = default;

void EventBase::readableEvent(double) {
    abortUnhandled("readableEvent");
}

void EventBase::writableEvent(double) {
    abortUnhandled("writableEvent");
}

void EventBase::preActivityEvent(double) {}

void EventBase::postActivityEvent(double) {}

double EventBase::timerEvent(double) {
    abortUnhandled("timerEvent");
}

void EventBase::signalEvent(double, int) {
    abortUnhandled("signalEvent");
}

} // namespace tp
