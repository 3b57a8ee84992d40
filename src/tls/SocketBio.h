#pragma once

#include <openssl/bio.h>

namespace tivra_internal {

/// OpenSSL's way to a socket, which is borrowed. Unlike its own one it raises no SIGPIPE, which would end the
/// host's process; and it reads no more often than it is allowed to, so that a peer whose records hold no
/// data can't keep the thread. Null when there is no memory.
[[nodiscard]] BIO* makeSocketBio(int fd);
/// How often it may read from now on, until a read brings less than there was room for; then it is as if the
/// socket had no bytes.
void allowReads(BIO* bio, int count);
/// Whether another read is allowed, which as a rule means that the socket has more.
[[nodiscard]] bool mayRead(BIO* bio);

} // namespace tivra_internal
