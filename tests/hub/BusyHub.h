#pragma once

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vector>

#include "hub/HubPeer.h"

namespace tivra_internal {

/// A listener whose queue of waiting connections is full, so that a further dial stays open.
class BusyHub {
public:
    explicit BusyHub(const HubPeer& hub) {
        for (int i = 0; i < 64; ++i) {
            const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
            sockaddr_in address{};
            address.sin_family = AF_INET;
            address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            address.sin_port = htons(hub.port());
            static_cast<void>(::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)));
            m_fds.push_back(fd);
            pollfd watched{fd, POLLOUT, 0};
            if (::poll(&watched, 1, 20) == 0)
                break;
        }
    }
    ~BusyHub() {
        for (const int fd : m_fds)
            ::close(fd);
    }

private:
    std::vector<int> m_fds;
};

} // namespace tivra_internal
