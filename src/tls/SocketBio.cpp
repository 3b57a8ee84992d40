#include "tls/SocketBio.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstdint>

#include "tls/OpenSslHandles.h"

namespace tivra_internal {
namespace {

int fdOf(BIO* bio) {
    return static_cast<int>(reinterpret_cast<std::intptr_t>(BIO_get_data(bio)));
}

bool isTransient(int error) {
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

int writeBytes(BIO* bio, const char* bytes, int length) {
    BIO_clear_retry_flags(bio);
    const ssize_t sent = ::send(fdOf(bio), bytes, static_cast<std::size_t>(length), MSG_NOSIGNAL);
    if (sent < 0 && isTransient(errno))
        BIO_set_retry_write(bio);
    return static_cast<int>(sent);
}

int readBytes(BIO* bio, char* into, int length) {
    BIO_clear_retry_flags(bio);
    const ssize_t got = ::recv(fdOf(bio), into, static_cast<std::size_t>(length), 0);
    if (got < 0 && isTransient(errno))
        BIO_set_retry_read(bio);
    if (got == 0)
        BIO_set_flags(bio, BIO_FLAGS_IN_EOF);
    return static_cast<int>(got);
}

long control(BIO* bio, int command, long, void*) {
    if (command == BIO_CTRL_EOF)
        return BIO_test_flags(bio, BIO_FLAGS_IN_EOF) != 0 ? 1 : 0;
    return command == BIO_CTRL_FLUSH ? 1 : 0;
}

// Never freed: connections may end while the host's static destructors run.
const BIO_METHOD* method() {
    static const BIO_METHOD* const made = []() -> const BIO_METHOD* {
        BioMethodHandle bare(BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "socket"));
        if (bare == nullptr || BIO_meth_set_write(bare.get(), writeBytes) != 1 ||
            BIO_meth_set_read(bare.get(), readBytes) != 1 || BIO_meth_set_ctrl(bare.get(), control) != 1)
            return nullptr;
        return bare.release();
    }();
    return made;
}

} // namespace

BIO* makeSocketBio(int fd) {
    BIO* const bio = method() != nullptr ? BIO_new(method()) : nullptr;
    if (bio == nullptr)
        return nullptr;
    BIO_set_data(bio, reinterpret_cast<void*>(static_cast<std::intptr_t>(fd)));
    BIO_set_init(bio, 1);
    return bio;
}

} // namespace tivra_internal
