#include "tls/SocketBio.h"

#include <sys/socket.h>

#include <cerrno>
#include <memory>
#include <new>

#include <tp/isTransient.h>

#include "tls/OpenSslHandles.h"

namespace tivra_internal {
namespace {

/// What a BIO holds.
struct Socket {
    int fd;
    int readsLeft;
};

Socket& socketOf(BIO* bio) {
    return *static_cast<Socket*>(BIO_get_data(bio));
}

int writeBytes(BIO* bio, const char* bytes, int length) {
    BIO_clear_retry_flags(bio);
    const ssize_t sent = ::send(socketOf(bio).fd, bytes, static_cast<std::size_t>(length), MSG_NOSIGNAL);
    if (sent < 0 && tp::isTransient(errno))
        BIO_set_retry_write(bio);
    return static_cast<int>(sent);
}

int readBytes(BIO* bio, char* into, int length) {
    BIO_clear_retry_flags(bio);
    Socket& socket = socketOf(bio);
    if (socket.readsLeft <= 0) {
        BIO_set_retry_read(bio);
        errno = EAGAIN;
        return -1;
    }
    const ssize_t got = ::recv(socket.fd, into, static_cast<std::size_t>(length), 0);
    socket.readsLeft = got == length ? socket.readsLeft - 1 : 0;
    if (got < 0 && tp::isTransient(errno))
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

int destroy(BIO* bio) {
    const std::unique_ptr<Socket> socket(static_cast<Socket*>(BIO_get_data(bio)));
    BIO_set_data(bio, nullptr);
    return 1;
}

// Never freed: connections may end while the host's static destructors run.
const BIO_METHOD* method() {
    static const BIO_METHOD* const made = []() -> const BIO_METHOD* {
        BioMethodHandle bare(BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "socket"));
        if (bare == nullptr || BIO_meth_set_write(bare.get(), writeBytes) != 1 ||
            BIO_meth_set_read(bare.get(), readBytes) != 1 || BIO_meth_set_ctrl(bare.get(), control) != 1 ||
            BIO_meth_set_destroy(bare.get(), destroy) != 1)
            return nullptr;
        return bare.release();
    }();
    return made;
}

} // namespace

BIO* makeSocketBio(int fd) {
    std::unique_ptr<Socket> socket(new (std::nothrow) Socket{fd, 0});
    BIO* const bio = socket != nullptr && method() != nullptr ? BIO_new(method()) : nullptr;
    if (bio == nullptr)
        return nullptr;
    BIO_set_data(bio, socket.release());
    BIO_set_init(bio, 1);
    return bio;
}

void allowReads(BIO* bio, int count) {
    socketOf(bio).readsLeft = count;
}

bool mayRead(BIO* bio) {
    return socketOf(bio).readsLeft > 0;
}

} // namespace tivra_internal
