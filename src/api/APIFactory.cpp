#include <APIFactory.h>

#include <cstdio>

#include <tp/Process.h>
#include <tp/Thread.h>
#include <tp/eprintf.h>

#include "LockOrder.h"
#include "api/LiveObjects.h"
#include "config/HandleAccess.h"
#include "config/ValueFault.h"
#include "session/SessionImpl.h"

namespace tivra {

using tivra_internal::HandleAccess;
using tivra_internal::HandlePtr;
using tivra_internal::kLockFactory;
using tivra_internal::LiveObjects;

APIFactory* APIFactory::instance = nullptr;
int APIFactory::referenceCount = 0;

namespace {

constexpr std::size_t kPrefixBuffer = 100;

/// Guards the factory's two static fields, until the process has ended.
tp::ProcessMutex& session_mutex() {
    static auto* const mutex = new tp::ProcessMutex(kLockFactory);
    return *mutex;
}

void reportCut(const char* what, const std::string& text) {
    std::fprintf(stderr,
                 "tivra: APIFactory::initialize: %s \"%s\" is longer than %zu characters and was cut\n", what,
                 text.c_str(), tp::kEprintfNameMax);
}

/// True, with a critical line, inside a callback: what follows would wait for the thread that it runs on.
bool isRefusedHere(const char* operation) {
    if (!tp::onLibraryThread())
        return false;
    eprintf(EPF_CRIT, "%s called on a library thread; ignoring it", operation);
    return true;
}

} // namespace

APIFactory* APIFactory::getInstance() {
    const tp::MutexLock lock(session_mutex());
    if (instance == nullptr)
        instance = new APIFactory;
    return instance;
}

int APIFactory::initialize(const std::string& appName, const std::string& appVersion, bool debug,
                           const std::string& logFileName, std::string usage) {
    char prefix[kPrefixBuffer];
    std::snprintf(prefix, sizeof prefix, "%s-%s", appName.c_str(), appVersion.c_str());
    if (const std::string whole = appName + "-" + appVersion; whole.size() > tp::kEprintfNameMax)
        reportCut("the log prefix", whole);
    if (!tp::eprintf_set_filename(logFileName.c_str()))
        reportCut("the log file name", logFileName);
    // A log file that can't be opened is told on standard error by the logger itself.
    static_cast<void>(tp::eprintf_init(EPF_FILE, debug ? EPF_DBUG : EPF_INFO, "%s", prefix));
    if (!debug)
        tp::eprintf_ctrl(EPF_DISABLE, EPF_FILEINFO);
    tp::eprintf_ctrl(EPF_DISABLE, EPF_SUPPRESS);

    if (const char* const fault = tivra_internal::valueFault(usage)) {
        eprintf(EPF_WARN, "Invalid usage passed to APIFactory::initialize: %s", fault);
        usage.clear();
    }
    eprintf(EPF_INFO, "APIFactory initialized Usage : %s", usage.c_str());
    if (!usage.empty() && usage != "External")
        tivra_internal::SessionImpl::setLanguage(usage);
    return 0;
}

int APIFactory::uninitialize() {
    eprintf(EPF_INFO, "APIFactory begin uninitialize");
    tp::eprintf_cleanup();
    const tp::MutexLock lock(session_mutex());
    delete instance;
    instance = nullptr;
    return 0;
}

UserInfo& APIFactory::createUserInfo(const std::string& userName, const std::string& password,
                                     UserEventHandler& userHandler) {
    return LiveObjects::instance().addUser(HandleAccess::makeUserInfo(userName, password, userHandler));
}

UserInfo& APIFactory::createUserInfo(const std::string& userName, PasswordHandler& passwords,
                                     UserEventHandler& userHandler) {
    return LiveObjects::instance().addUser(HandleAccess::makeUserInfo(userName, passwords, userHandler));
}

void APIFactory::destroyUserInfo(UserInfo& userInfo) {
    eprintf(EPF_INFO, "destroyUserInfo called");
    if (isRefusedHere("destroyUserInfo"))
        return;
    HandlePtr<UserInfo> taken;
    switch (LiveObjects::instance().takeUser(userInfo, taken)) {
    case LiveObjects::UserAnswer::Taken:
        break;
    case LiveObjects::UserAnswer::Unknown:
        eprintf(EPF_WARN, "destroyUserInfo: user %p is not known; ignoring it",
                static_cast<const void*>(&userInfo));
        break;
    case LiveObjects::UserAnswer::InUse:
        eprintf(EPF_CRIT, "destroyUserInfo: a session still refers to user %p; destroy the session first",
                static_cast<const void*>(&userInfo));
        break;
    }
}

Session& APIFactory::createSession(UserInfo& userInfo, SessionEventHandler& sessionHandler) {
    bool isOnly = false;
    {
        const tp::MutexLock lock(session_mutex());
        isOnly = referenceCount++ == 0;
    }
    try {
        return LiveObjects::instance().addSession(HandleAccess::makeSession(userInfo, sessionHandler, isOnly),
                                                  userInfo);
    } catch (...) {
        const tp::MutexLock lock(session_mutex());
        --referenceCount;
        throw;
    }
}

void APIFactory::destroySession(Session& session) {
    if (isRefusedHere("destroySession"))
        return;
    LiveObjects::TakenSession taken = LiveObjects::instance().takeSession(session);
    if (taken.session == nullptr) {
        eprintf(EPF_WARN, "destroySession: session %p is not known; ignoring it",
                static_cast<const void*>(&session));
        return;
    }
    {
        const tp::MutexLock lock(session_mutex());
        --referenceCount;
    }
    taken.session.reset();
    LiveObjects::instance().releaseUser(taken.use);
}

} // namespace tivra
