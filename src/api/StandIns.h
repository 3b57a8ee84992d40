#pragma once

namespace tivra {
class ConnectionConfig;
class HostConfig;
class SessionConfig;
} // namespace tivra

namespace tivra_internal {

/// What calls return that must return a reference, in a forked child where the object itself is its parent's:
/// settings that nobody reads. They live as long as the process. @thread any
[[nodiscard]] tivra::SessionConfig& standInSessionConfig();
[[nodiscard]] tivra::ConnectionConfig& standInConnectionConfig();
[[nodiscard]] tivra::HostConfig& standInHostConfig();

} // namespace tivra_internal
