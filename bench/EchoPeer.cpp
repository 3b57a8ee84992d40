#include "EchoPeer.h"

#include <array>
#include <stdexcept>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace tivra_bench {
namespace {

using Question = std::array<char, 48>;
using Answer = std::array<char, 128>;

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

bool receiveAll(int fd, void* to, std::size_t size) {
    return recv(fd, to, size, MSG_WAITALL) == static_cast<ssize_t>(size);
}

void serve(const ChildProcess::Ends& parent) {
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), size) != 0 || listen(listener, 1) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        throw std::runtime_error("no port to answer at");
    const std::uint16_t port = ntohs(address.sin_port);
    if (!writeAll(parent.tell, &port, sizeof port))
        return;
    const int fd = accept(listener, nullptr, nullptr);
    Question question;
    const Answer answer{};
    while (receiveAll(fd, question.data(), question.size()))
        if (!writeAll(fd, answer.data(), answer.size()))
            return;
}

} // namespace

EchoPeer::EchoPeer() : m_process(&serve), m_fd(socket(AF_INET, SOCK_STREAM, 0)) {
    std::uint16_t port = 0;
    if (!m_process.read(&port, sizeof port))
        throw std::runtime_error("nobody answers");
    const sockaddr_in address = loopback(port);
    const int on = 1;
    setsockopt(m_fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (connect(m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("who answers can't be reached");
}

EchoPeer::~EchoPeer() {
    close(m_fd);
}

void EchoPeer::ask() {
    const Question question{};
    Answer answer;
    if (!writeAll(m_fd, question.data(), question.size()) || !receiveAll(m_fd, answer.data(), answer.size()))
        throw std::runtime_error("no answer");
}

} // namespace tivra_bench
