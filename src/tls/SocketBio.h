#pragma once

#include <openssl/bio.h>

namespace tivra_internal {

/// OpenSSL's way to a socket, which is borrowed. Unlike its own one it raises no SIGPIPE, which would end the
/// host's process. Null when there is no memory.
[[nodiscard]] BIO* makeSocketBio(int fd);

} // namespace tivra_internal
