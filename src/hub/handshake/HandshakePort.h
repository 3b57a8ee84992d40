#pragma once

#include <sys/time.h>

#include <string>

namespace tivra_internal {

class HubClient;
class UserHub;

/// What a handshake asks of the connection that it runs on. @thread hub
class HandshakePort {
public:
    virtual ~HandshakePort() = default;

    /// The connection as an identity to hand to the session; not to be called through.
    [[nodiscard]] virtual HubClient* client() = 0;
    /// The connection as the user's identity knows it.
    [[nodiscard]] virtual const UserHub& userHub() const = 0;
    /// For log lines.
    [[nodiscard]] virtual int getFd() const = 0;
    /// The hub was dialled before, and hasn't been ready since.
    [[nodiscard]] virtual bool isDialRepeated() const = 0;

    /// Frames and writes a request text: 1 when it is out.
    virtual int sendRequest(const char* text, timeval* timeout) = 0;
    /// The same for the login, which no log line may show; it may close the connection.
    virtual int sendLogin(const std::string& text) = 0;
    virtual void closeConnection() = 0;
    /// The hub has refused the login with this code; suspendClient() follows.
    virtual void noteLoginStatus(int status) = 0;
    /// Closes, then takes the client out of use with a reason that the application may see.
    virtual void suspendClient(const std::string& reason) = 0;
    [[nodiscard]] virtual bool isSuspended() const = 0;

    /// tick() is to be called soon. @thread any
    virtual void continueSoon() = 0;
    /// The handshake goes on: the time-out starts anew.
    virtual void setInitHBTime() = 0;
    /// The hub sends heartbeats from now on.
    virtual void heartbeatSubscribed() = 0;
    /// The fill of the queue is reported to the hub from that many percent on.
    virtual void setJit(int threshold) = 0;
    /// The last step is done.
    virtual void becomeReady() = 0;
};

} // namespace tivra_internal
