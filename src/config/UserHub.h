#pragma once

namespace tivra_internal {

/// What a user's identity may ask of a connection that logs it in; its address is the connection's identity.
/// @thread hub
class UserHub {
public:
    virtual ~UserHub() = default;

    /// True for the pseudo connection that carries the library's own messages; it never logs in.
    [[nodiscard]] virtual bool isDummy() const = 0;
    /// True for a first hub that the session is dropping on purpose.
    [[nodiscard]] virtual bool isInitialHubDisconnected() const = 0;
};

} // namespace tivra_internal
