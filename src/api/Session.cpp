#include <session/Session.h>

#include <memory>

#include <tp/eprintf.h>

#include "api/LiveObjects.h"
#include "api/StandIns.h"
#include "config/HandleAccess.h"
#include "request/RequestImpl.h"
#include "session/SessionImpl.h"

namespace tivra {

using tivra_internal::HandleAccess;
using tivra_internal::LiveObjects;

Session::Session(UserInfo& userInfo, SessionEventHandler& sessionHandler, bool isValid)
    : sessionImpl(new tivra_internal::SessionImpl(userInfo, sessionHandler, *this, isValid)) {}

Session::~Session() {
    LiveObjects::instance().detachRequests(*this);
    if (!sessionImpl->process().isForeign())
        delete sessionImpl;
}

Session::States Session::getState() const {
    if (sessionImpl->process().refuses("Session::getState"))
        return TIVRA_SESSION_UNAVAILABLE;
    return sessionImpl->getState();
}

SessionConfig& Session::getSessionConfig() {
    if (sessionImpl->process().refuses("Session::getSessionConfig"))
        return tivra_internal::standInSessionConfig();
    return sessionImpl->getSessionConfig();
}

ConnectionConfig& Session::getConnectionConfig() {
    if (sessionImpl->process().refuses("Session::getConnectionConfig"))
        return tivra_internal::standInConnectionConfig();
    return sessionImpl->getConnectionConfig();
}

UserInfo& Session::getUserInfo() {
    return sessionImpl->getUserInfo();
}

bool Session::start() {
    std::string failReason;
    return start(failReason);
}

bool Session::start(std::string& failReason) {
    if (sessionImpl->process().refuses("Session::start")) {
        failReason = "The session was made by the parent of this process";
        return false;
    }
    return sessionImpl->start(failReason);
}

bool Session::stop() {
    if (sessionImpl->process().refuses("Session::stop"))
        return true;
    return sessionImpl->stop();
}

Request& Session::createRequest() {
    const bool isRefused = sessionImpl->process().refuses("Session::createRequest");
    auto request = HandleAccess::make<Request>(
        std::make_unique<tivra_internal::RequestImpl>(isRefused ? nullptr : sessionImpl));
    request->clearRequest();
    return LiveObjects::instance().addRequest(std::move(request), *this);
}

void Session::freeRequest(Request& request) {
    eprintf(EPF_DBUG, "Session::freeRequest called ");
    if (LiveObjects::instance().takeRequest(request) == nullptr)
        eprintf(EPF_WARN, "Session::freeRequest: request %p is not known; ignoring it",
                static_cast<const void*>(&request));
}

int64_t Session::send(Request& request) {
    tivra_internal::RequestImpl& builder = HandleAccess::impl(request);
    if (sessionImpl->process().refuses("Session::send") || builder.process().refuses("Session::send"))
        return 0;
    if (builder.isDetached()) {
        eprintf(EPF_WARN, "send() failed: the session that made request %p has been destroyed",
                static_cast<const void*>(&request));
        return 0;
    }
    return sessionImpl->send(builder);
}

void Session::registerMessageEventHandler(MessageEventHandler* messageEventHandler) {
    if (sessionImpl->process().refuses("Session::registerMessageEventHandler"))
        return;
    sessionImpl->registerMessageEventHandler(messageEventHandler);
}

void Session::registerStatisticsEventHandler(StatisticsEventHandler* statisticsEventHandler, int interval) {
    if (sessionImpl->process().refuses("Session::registerStatisticsEventHandler"))
        return;
    sessionImpl->registerStatisticsEventHandler(statisticsEventHandler, interval);
}

} // namespace tivra
