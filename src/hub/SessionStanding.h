#pragma once

#include <string>

#include <session/Session.h>

namespace tivra_internal {

/// How the session stands and what it was made for, as its hub connections ask it. @thread hub; every
/// operation locks for itself.
class SessionStanding {
public:
    virtual ~SessionStanding() = default;

    [[nodiscard]] virtual tivra::Session::States getState() const = 0;
    /// The session stops or changes to other hubs: long waits must end.
    [[nodiscard]] virtual bool isStopping() const = 0;
    [[nodiscard]] virtual bool isInitiallyEstablished() const = 0;
    /// The session has been established since the application's `start`.
    [[nodiscard]] virtual bool getisStarted() const = 0;
    [[nodiscard]] virtual int getQueueDepthThreshold() const = 0;
    /// The word for the application's binding language in the login request.
    [[nodiscard]] virtual std::string getLanguage() const = 0;
    /// The public session, for the events of the user's identity.
    [[nodiscard]] virtual tivra::Session& getSession() = 0;
};

} // namespace tivra_internal
