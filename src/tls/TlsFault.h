#pragma once

#include <string>

namespace tivra_internal {

/// What a failure of a verification means, and what to do. `code` is one of OpenSSL's X509_V_ERR_.
[[nodiscard]] std::string certificateFault(long code, const std::string& expectedName);

/// What the oldest entry of this thread's error queue means during a handshake, and what to do; empties the
/// queue.
[[nodiscard]] std::string handshakeFault();

/// The same for a connection that is up; empty for what has no text of its own, where the queue stays.
[[nodiscard]] std::string alertFault();

/// The texts for what isn't an error of the library.
[[nodiscard]] std::string closedInHandshake();
[[nodiscard]] std::string pinMismatch(const std::string& foundPin);

/// The oldest entry of this thread's error queue as OpenSSL words it; empties the queue.
[[nodiscard]] std::string queuedError();

} // namespace tivra_internal
