#include <session/Session.h>

#include <memory>

#include <tp/eprintf.h>

#include "api/LiveObjects.h"
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
    delete sessionImpl;
}

Session::States Session::getState() const {
    return sessionImpl->getState();
}

SessionConfig& Session::getSessionConfig() {
    return sessionImpl->getSessionConfig();
}

ConnectionConfig& Session::getConnectionConfig() {
    return sessionImpl->getConnectionConfig();
}

UserInfo& Session::getUserInfo() {
    return sessionImpl->getUserInfo();
}

bool Session::start() {
    std::string failReason;
    return sessionImpl->start(failReason);
}

bool Session::start(std::string& failReason) {
    return sessionImpl->start(failReason);
}

bool Session::stop() {
    return sessionImpl->stop();
}

Request& Session::createRequest() {
    auto request = HandleAccess::make<Request>(std::make_unique<tivra_internal::RequestImpl>(sessionImpl));
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
    if (builder.isDetached()) {
        eprintf(EPF_WARN, "send() failed: the session that made request %p has been destroyed",
                static_cast<const void*>(&request));
        return 0;
    }
    return sessionImpl->send(builder);
}

void Session::registerMessageEventHandler(MessageEventHandler* messageEventHandler) {
    sessionImpl->registerMessageEventHandler(messageEventHandler);
}

void Session::registerStatisticsEventHandler(StatisticsEventHandler* statisticsEventHandler, int interval) {
    sessionImpl->registerStatisticsEventHandler(statisticsEventHandler, interval);
}

} // namespace tivra
