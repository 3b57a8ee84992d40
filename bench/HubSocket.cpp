#include "HubSocket.h"

#include "Road.h"
#include "RoadHub.h"

#include <cstring>
#include <stdexcept>
#include <string_view>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <tivra_sim/Wire.h>

namespace tivra_bench {

HubSocket::HubSocket(std::uint16_t port) : m_fd(socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("the hub cannot be reached");
}

HubSocket::~HubSocket() {
    close(m_fd);
}

void HubSocket::logIn(bool compressed) {
    const std::string compression = compressed ? "1" : "0";
    request("5026=1|5022=LoginUser|5028=demo|5029=demo|13265=" + compression +
            "|5053=V1.7.0.1|5129=C++|5128=Linux");
}

void HubSocket::snapshot(int source, const std::string& symbol) {
    static constexpr std::string_view kEnd = "5026=18|5001=0\x03";
    request("5022=QuerySnap|4=" + std::to_string(source) + "|5=" + symbol + "|5026=18");
    char answer[4096];
    std::size_t have = 0;
    do {
        const std::size_t got = receive(answer + have, sizeof answer - have);
        if (got == 0)
            throw std::runtime_error("the hub does not answer");
        have += got;
    } while (!std::string_view(answer, have).ends_with(kEnd));
}

void HubSocket::subscribe(const RoadTask& task) {
    logIn(task.compressed);
    int tag = 18;
    for (const char* symbol : kSymbols) {
        if (task.paced && std::strcmp(symbol, kPacedSymbol) != 0)
            continue;
        request("5022=Subscribe|4=" + std::to_string(kSource) + "|5=" + symbol +
                "|5026=" + std::to_string(tag++));
    }
}

std::size_t HubSocket::receive(char* to, std::size_t room) {
    const ssize_t got = read(m_fd, to, room);
    return got > 0 ? static_cast<std::size_t>(got) : 0;
}

void HubSocket::shutDown() {
    shutdown(m_fd, SHUT_RDWR);
}

void HubSocket::request(const std::string& text) {
    const std::string frame = tivra_sim::encodeFrame(text);
    if (send(m_fd, frame.data(), frame.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(frame.size()))
        throw std::runtime_error("the hub does not take a request");
}

} // namespace tivra_bench
