#pragma once

#include <memory>

#include <data/MessageReader.h>
#include <event/MessageEvent.h>
#include <event/SessionEvent.h>
#include <event/StatisticsEvent.h>
#include <event/UserEvent.h>
#include <request/Request.h>
#include <session/ConnectionConfig.h>
#include <session/HostConfig.h>
#include <session/Session.h>
#include <session/SessionConfig.h>
#include <user/UserInfo.h>

namespace tivra_internal {

/// Destroys a handle and with it the implementation that it owns.
struct HandleDeleter {
    template<class Handle>
    void operator()(Handle* handle) const noexcept;
};

/// Owns a public handle inside the library.
template<class Handle>
using HandlePtr = std::unique_ptr<Handle, HandleDeleter>;

/// The one way from a public handle to its implementation and back: every handle keeps its constructors, its
/// destructor and its one pointer private and befriends this class. @thread any
class HandleAccess {
public:
    static SessionImpl& impl(const tivra::Session& handle) { return *handle.sessionImpl; }
    static SessionConfigImpl& impl(const tivra::SessionConfig& handle) { return *handle.sessionConfigImpl; }
    static ConnectionConfigImpl& impl(const tivra::ConnectionConfig& handle) {
        return *handle.connectionConfigImpl;
    }
    static HostConfigImpl& impl(const tivra::HostConfig& handle) { return *handle.hostCfgImpl; }
    static UserInfoImpl& impl(const tivra::UserInfo& handle) { return *handle.userInfoImpl; }
    static RequestImpl& impl(const tivra::Request& handle) { return *handle.requestImpl; }
    static SessionEventImpl& impl(const tivra::SessionEvent& handle) { return *handle.sessionEventImpl; }
    static UserEventImpl& impl(const tivra::UserEvent& handle) { return *handle.userEventImpl; }
    static StatisticsEventImpl& impl(const tivra::StatisticsEvent& handle) {
        return *handle.statisticsEventImpl;
    }
    static MessageEventImpl& impl(const tivra::MessageEvent& handle) { return *handle.messsgeEventImpl; }
    static MessageReaderImpl& impl(const tivra::MessageReader& handle) { return *handle.messageReaderImpl; }

    /// Makes a handle that takes over a ready implementation, which must be complete where this is called.
    template<class Handle, class Impl>
    static HandlePtr<Handle> make(std::unique_ptr<Impl> impl) {
        HandlePtr<Handle> handle(new Handle(impl.get()));
        static_cast<void>(impl.release());
        return handle;
    }

    /// Sessions and users are built by their handles, since their implementations keep a reference to it.
    static HandlePtr<tivra::Session> makeSession(tivra::UserInfo& userInfo,
                                                 tivra::SessionEventHandler& handler, bool isValid) {
        return HandlePtr<tivra::Session>(new tivra::Session(userInfo, handler, isValid));
    }
    static HandlePtr<tivra::UserInfo> makeUserInfo(const std::string& userName, const std::string& password,
                                                   tivra::UserEventHandler& handler) {
        return HandlePtr<tivra::UserInfo>(new tivra::UserInfo(userName, password, handler));
    }
    static HandlePtr<tivra::UserInfo> makeUserInfo(const std::string& userName,
                                                   tivra::PasswordHandler& passwords,
                                                   tivra::UserEventHandler& handler) {
        return HandlePtr<tivra::UserInfo>(new tivra::UserInfo(userName, passwords, handler));
    }

private:
    friend struct HandleDeleter;

    template<class Handle>
    static void destroy(Handle* handle) noexcept {
        delete handle;
    }
};

template<class Handle>
void HandleDeleter::operator()(Handle* handle) const noexcept {
    HandleAccess::destroy(handle);
}

} // namespace tivra_internal
